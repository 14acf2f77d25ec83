// Keeps what can be seen of the daemon, for other threads to look at and to wait for.
#pragma once

#include "Moxel Daemon/Observation.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>

namespace moxel::daemon {

/// Any thread.
class Journal {
  public:
    using Predicate = std::function<bool(const Observation &)>;

    /// `entryLimit` and `byteLimit` bound what is kept of reports, requests and messages, each.
    Journal(size_t entryLimit, size_t byteLimit) : entryLimit_(entryLimit), byteLimit_(byteLimit) {}

    /// Changes what can be seen and wakes those who wait.
    template <class Change>
    void update(Change &&change) {
        const std::lock_guard lock(mutex_);
        change(observation_);
        changed_.notify_all();
    }
    void add(ReceivedReport report);
    void add(ReceivedRequest request);
    void add(ReceivedMessage message);

    /// `look` is called with the observation locked.
    template <class Look>
    [[nodiscard]] auto read(Look &&look) const {
        const std::lock_guard lock(mutex_);
        return look(observation_);
    }

    /// Waits until the predicate, which is called with the observation locked, holds; false when the time is
    /// up first.
    [[nodiscard]] bool waitUntil(const Predicate &predicate, std::chrono::milliseconds timeout) const;

  private:
    const size_t entryLimit_;
    const size_t byteLimit_;
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    Observation observation_;
    size_t reportBytes_ = 0;
    size_t requestBytes_ = 0;
    size_t messageBytes_ = 0;
};

} // namespace moxel::daemon
