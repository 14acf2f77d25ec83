#include "Platform/Linux/CloseAside.h"

#include "Platform/Linux/BlockingCalls.h"
#include "Platform/Linux/Guard.h"

#include <memory>
#include <utility>

namespace moxel {

namespace {

/// Ends wherever the last reference to it goes.
struct Closing {
    Closing(Descriptor &which, std::function<void()> &next) : descriptor(std::move(which)) {
        then.swap(next);
    }
    ~Closing() {
        descriptor.reset();
        if (then)
            guarded("what follows the closing of a device", then);
    }
    Closing(const Closing &) = delete;
    Closing &operator=(const Closing &) = delete;

    Descriptor descriptor;
    std::function<void()> then;
};

} // namespace

void closeAside(Descriptor descriptor, std::function<void()> then) noexcept {
    guarded("closing a device", [&] {
        auto closing = std::make_shared<Closing>(descriptor, then);
        auto call = [closing]() mutable { closing.reset(); };
        closing.reset();
        (void)BlockingCalls().make(std::move(call), BlockingCalls::Clock::now());
    });
    if (!then) // It has gone with the descriptor.
        return;
    descriptor.reset();
    guarded("what follows the closing of a device", then);
}

} // namespace moxel
