// Notices that forwarded messages wait because the thread that they are for does not run its run loop.
#pragma once

#include "Platform/RunLoop.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>

namespace moxel {

/// Says so in the log once in its life. Costs one timer every two seconds while messages come, and nothing
/// while none do. Any thread.
class CallerThreadWatch : public std::enable_shared_from_this<CallerThreadWatch> {
  public:
    /// Arranges for one call after a delay, on any thread; false when it cannot.
    using Later = std::function<bool(RunLoop::Seconds delay, RunLoop::Callback call)>;

    static constexpr RunLoop::Seconds patience{2.0};

    explicit CallerThreadWatch(Later later) : later_(std::move(later)) {}

    /// Before one piece of work is posted to the thread.
    void posted() noexcept;
    /// One piece is not waiting any more: its turn has come, or it was dropped.
    void taken() noexcept { ++taken_; }

  private:
    void lookLater() noexcept;
    void look(uint64_t takenBefore);

    const Later later_;
    std::atomic<uint64_t> posted_{0};
    std::atomic<uint64_t> taken_{0};
    std::atomic<bool> isWatching_{false}; ///< A look is due, or all has been said.
};

} // namespace moxel
