#include "Protocol/CallerThreadWatch.h"

#include "Helpers/Logging.h"

#include <new>
#include <utility>

namespace moxel {

void CallerThreadWatch::posted() noexcept {
    ++posted_;
    if (!isWatching_.load() && !isWatching_.exchange(true))
        lookLater();
}

void CallerThreadWatch::lookLater() noexcept {
    auto call = [self = weak_from_this(), takenBefore = taken_.load()] {
        if (const std::shared_ptr<CallerThreadWatch> watch = self.lock())
            watch->look(takenBefore);
    };
    bool isArranged = false;
    try {
        isArranged = later_(patience, std::move(call));
    } catch (const std::bad_alloc &) { // No reason to lose the message that is being forwarded. Sessions with
                                       // faults come here.
    }
    if (!isArranged)
        isWatching_ = false; // The next piece tries again.
}

/// Something waited when the look was arranged. When nothing has been taken since, it waits still.
void CallerThreadWatch::look(uint64_t takenBefore) {
    const uint64_t taken = taken_.load();
    const bool isEmpty = taken == posted_.load();
    if (isEmpty) {
        isWatching_ = false;
        // What was posted just before that found a watch, which is over now: a moment that no test can hit at
        // will.
        if (taken_.load() != posted_.load() && !isWatching_.exchange(true))
            lookLater();
    } else if (taken != takenBefore) {
        lookLater();
    } else {
        logError("Error: messages have waited for more than 2 s for a thread that does not run its run loop: "
                 "it has installed the handlers and must call MoxelRunLoopDispatch");
    }
}

} // namespace moxel
