// Keeps what others do wrong from filling the log.
#pragma once

#include "Platform/Log.h"

#include <chrono>
#include <cstddef>
#include <string>

namespace moxel::daemon {

/// Lets some error lines through in a period, and says when it leaves out more. One thread.
class LogQuota {
  public:
    using Clock = std::chrono::steady_clock;

    static constexpr size_t linesInAPeriod = 20;
    static constexpr std::chrono::seconds period{10};

    void log(const std::string &line, Clock::time_point now = Clock::now()) {
        if (now >= periodEnds_) {
            periodEnds_ = now + period;
            lines_ = 0;
        }
        if (lines_ > linesInAPeriod)
            return;
        if (lines_++ < linesInAPeriod)
            logLine(LogLevel::error, line);
        else
            logLine(LogLevel::error, line + " (more such lines are left out for a while)");
    }

  private:
    Clock::time_point periodEnds_{};
    size_t lines_ = 0;
};

} // namespace moxel::daemon
