// Makes system calls that may block for long, and waits for them for a limited time.
#pragma once

#include "Platform/Result.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>

namespace moxel {

/// One line of calls: they are made one after the other, each on a thread of its own, where no signal
/// interrupts it. Any thread.
class BlockingCalls {
  public:
    using Clock = std::chrono::steady_clock;

    /// Waits for what is under way, makes the call and waits for it. The error's code is ETIMEDOUT when it
    /// has not returned by `deadline`: it is left to itself then, and so has to own all that it uses.
    Result<void> make(std::function<void()> call, Clock::time_point deadline);

  private:
    class Turn;
    struct Line {
        std::mutex mutex; ///< Guards isBusy.
        std::condition_variable changed;
        bool isBusy = false;
    };

    const std::shared_ptr<Line> line_ = std::make_shared<Line>();
};

} // namespace moxel
