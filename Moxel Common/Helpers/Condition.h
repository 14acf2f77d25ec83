// A mutex and a condition variable in one object, waited on with absolute deadlines.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace moxel {

/// Any thread. Lockable, so that std::lock_guard works on it.
class Condition {
  public:
    using Clock = std::chrono::steady_clock;

    void lock() { mutex_.lock(); }
    void unlock() { mutex_.unlock(); }
    /// Wakes every waiter; with the lock held, after a change of what the condition guards.
    void signal() { changed_.notify_all(); }
    /// With the lock held: waits for a signal. False when the deadline passed first.
    [[nodiscard]] bool waitUntil(Clock::time_point deadline) {
        std::unique_lock lock(mutex_, std::adopt_lock);
        const bool signalled = changed_.wait_until(lock, deadline) == std::cv_status::no_timeout;
        lock.release();
        return signalled;
    }
    /// With the lock held: waits until something holds. Whether it does in the end.
    template <class Predicate>
    [[nodiscard]] bool waitUntil(Clock::time_point deadline, Predicate &&holds) {
        while (!holds()) {
            if (!waitUntil(deadline))
                return holds();
        }
        return true;
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
};

} // namespace moxel
