// A one-shot timer that can be set again and again.
#pragma once

#include "Platform/Linux/Descriptor.h"
#include "Platform/Result.h"
#include "Platform/RunLoop.h"

#include <chrono>
#include <memory>
#include <optional>

namespace moxel {

/// Holds its descriptor for its whole life, so that it can be set when no other descriptor is left. Lives on
/// its run loop's thread.
class Alarm {
  public:
    using Clock = std::chrono::steady_clock;

    static Result<Alarm> create(RunLoop &runLoop, RunLoop::Callback callback);

    /// Rings at `time`, at once when that is past, unless it rings earlier anyway.
    void ringBy(Clock::time_point time) noexcept;

  private:
    explicit Alarm(Descriptor timer) noexcept;

    Descriptor timer_;
    RunLoopSource source_;
    std::shared_ptr<std::optional<Clock::time_point>> due_; ///< Shared with the source's callback.
};

} // namespace moxel
