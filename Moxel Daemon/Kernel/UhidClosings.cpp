#include "Moxel Daemon/Kernel/UhidClosings.h"

#include "Platform/Linux/CloseAside.h"
#include "Platform/Linux/Guard.h"

#include <utility>

namespace moxel::daemon {

void UhidClosings::close(Descriptor device, const std::string &name) noexcept {
    guarded("closing a device", [&] {
        std::function<void()> then = [self = shared_from_this(), name] { self->closed(name); };
        {
            const std::lock_guard lock(mutex_);
            names_.insert(name);
        }
        closeAside(std::move(device), std::move(then));
    });
}

UhidClosings::Name UhidClosings::await(const std::string &name, std::function<void()> then) {
    const std::lock_guard lock(mutex_);
    if (!names_.contains(name))
        return Name::isFree;
    if (waiting_.contains(name))
        return Name::isPromised;
    waiting_[name] = std::move(then);
    return Name::isComing;
}

void UhidClosings::forget(const std::string &name) noexcept {
    const std::lock_guard lock(mutex_);
    waiting_.erase(name);
}

void UhidClosings::awaitAll(std::chrono::milliseconds limit) noexcept {
    std::unique_lock lock(mutex_);
    (void)changed_.wait_for(lock, limit, [this] { return names_.empty(); });
}

void UhidClosings::closed(const std::string &name) {
    std::function<void()> then;
    {
        const std::lock_guard lock(mutex_);
        names_.erase(names_.find(name));
        if (const auto waiting = waiting_.find(name); waiting != waiting_.end() && !names_.contains(name)) {
            then = std::move(waiting->second);
            waiting_.erase(waiting);
        }
        changed_.notify_all();
    }
    if (then)
        then();
}

} // namespace moxel::daemon
