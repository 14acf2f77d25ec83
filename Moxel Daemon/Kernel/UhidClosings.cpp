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

bool UhidClosings::await(const std::string &name, std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, limit, [&] { return !names_.contains(name); });
}

void UhidClosings::awaitAll(std::chrono::milliseconds limit) noexcept {
    std::unique_lock lock(mutex_);
    (void)changed_.wait_for(lock, limit, [this] { return names_.empty(); });
}

void UhidClosings::closed(const std::string &name) {
    const std::lock_guard lock(mutex_);
    names_.erase(names_.find(name));
    changed_.notify_all();
}

} // namespace moxel::daemon
