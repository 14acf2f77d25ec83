// Movement made up: all six axes in smooth waves of different lengths.
#pragma once

#include "Moxel Daemon/Motion/EventSink.h"
#include "Platform/Result.h"
#include "Platform/RunLoop.h"

#include <array>
#include <chrono>
#include <cstdint>

namespace moxel::daemon {

/// The axes' values some seconds after the start; all 0 at the start.
[[nodiscard]] std::array<int16_t, 6> movementAt(double seconds);

/// Lives on the run loop's thread.
class Movement {
  public:
    static constexpr double defaultRate = 60;
    static constexpr double highestRate = 1000;

    Movement(RunLoop &runLoop, EventSink &sink) : runLoop_(runLoop), sink_(sink) {}

    /// Sends a motion event `rate` times a second until destroyed.
    [[nodiscard]] Result<void> start(double rate);

  private:
    void move();

    RunLoop &runLoop_;
    EventSink &sink_;
    std::chrono::steady_clock::time_point start_;
    RunLoopSource timer_;
};

} // namespace moxel::daemon
