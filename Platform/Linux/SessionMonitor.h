// Keeps the answer to "is the session on the console?" in memory, and tells when it changes.
#pragma once

#include "Platform/Linux/LoginMonitor.h"
#include "Platform/Result.h"
#include "Platform/RunLoop.h"

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

namespace moxel {

/// One per process. While a SessionWatch lives, its run loop keeps the answer fresh; otherwise every question
/// polls the monitor's descriptor first. Where logind does not run, a question looks for it at most once a
/// second. When the last watch ends, the monitor's descriptors are closed. Any thread.
///
/// A change from true to false posts sessionDidResignActiveNotification, from false to true
/// sessionDidBecomeActiveNotification, on the thread that noticed it and in the order of the changes.
class SessionMonitor {
  public:
    static SessionMonitor &instance();

    /// Absent when the process has no session.
    [[nodiscard]] std::optional<bool> onConsole();

  private:
    friend class SessionWatch;
    SessionMonitor() = default;

    /// For the watches, on their loops' threads.
    Result<RunLoopSource> attach(RunLoop &runLoop);
    void detach();

    /// True when the answer can be given without a look at the monitor.
    [[nodiscard]] bool isFresh() const;
    /// Reads logind's files and posts what has changed.
    void refresh(std::unique_lock<std::mutex> lock);
    void postChanges(std::unique_lock<std::mutex> &lock);

    enum class Answer : uint8_t { none, no, yes };

    std::atomic<Answer> answer_ = Answer::none;
    std::atomic<bool> monitored_ = false;
    std::atomic<int64_t> nextAttempt_ = INT64_MIN; // steady-clock nanoseconds; while not monitored
    std::atomic<int> watches_ = 0;

    std::mutex mutex_; // guards what follows; not held while notifications are posted
    LoginMonitor monitor_;
    std::optional<bool> lastKnown_;
    std::deque<bool> changes_; // yet to be posted
    bool posting_ = false;
};

/// Keeps the session monitor fresh on a run loop while it lives. Lives on the loop's thread.
class SessionWatch {
  public:
    /// Reads the session's state at once.
    static Result<std::unique_ptr<SessionWatch>> start(RunLoop &runLoop);
    ~SessionWatch();
    SessionWatch(const SessionWatch &) = delete;
    SessionWatch &operator=(const SessionWatch &) = delete;

  private:
    explicit SessionWatch(RunLoopSource source) : source_(std::move(source)) {}

    RunLoopSource source_;
};

} // namespace moxel
