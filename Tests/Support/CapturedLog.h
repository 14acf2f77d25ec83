// Collects the log's lines while a test runs.
#pragma once

#include "Platform/Log.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace moxel::test {

/// Any thread may log meanwhile.
class CapturedLog {
  public:
    [[nodiscard]] std::vector<std::string> lines() const {
        const std::lock_guard lock(mutex_);
        return lines_;
    }
    [[nodiscard]] bool has(std::string_view line) const { return count(line) > 0; }
    /// Lines that are exactly this one.
    [[nodiscard]] size_t count(std::string_view line) const {
        const std::lock_guard lock(mutex_);
        return static_cast<size_t>(std::ranges::count(lines_, line));
    }
    /// Lines that begin with this text.
    [[nodiscard]] size_t countStarting(std::string_view start) const {
        const std::lock_guard lock(mutex_);
        return static_cast<size_t>(std::ranges::count_if(
            lines_, [start](const std::string &line) { return line.starts_with(start); }));
    }
    [[nodiscard]] size_t countContaining(std::string_view part) const {
        const std::lock_guard lock(mutex_);
        return static_cast<size_t>(std::ranges::count_if(
            lines_, [part](const std::string &line) { return line.find(part) != std::string::npos; }));
    }
    /// Waits until a line contains this text; false after 10 s.
    [[nodiscard]] bool waitFor(std::string_view part) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(10), [&] {
            return std::ranges::any_of(
                lines_, [part](const std::string &line) { return line.find(part) != std::string::npos; });
        });
    }
    void clear() {
        const std::lock_guard lock(mutex_);
        lines_.clear();
    }

  private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> lines_;
    LogCapture capture_{[this](LogLevel, std::string_view line) {
        const std::lock_guard lock(mutex_);
        lines_.emplace_back(line);
        changed_.notify_all();
    }};
};

} // namespace moxel::test
