// Waiting for what another thread does.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace moxel::test {

/// How long a test waits for something that has to happen.
inline constexpr std::chrono::seconds patience{30};

/// A value that one thread changes and another waits for.
template <class Value>
class Awaited {
  public:
    Awaited() = default;
    explicit Awaited(Value value) : value_(std::move(value)) {}

    template <class Change>
    void change(Change change) {
        const std::lock_guard lock(mutex_);
        change(value_);
        condition_.notify_all();
    }
    void set(Value value) {
        change([&](Value &current) { current = std::move(value); });
    }
    [[nodiscard]] Value get() const {
        const std::lock_guard lock(mutex_);
        return value_;
    }

    /// False when `condition` has not become true in time.
    template <class Condition>
    [[nodiscard]] bool await(Condition condition) const {
        std::unique_lock lock(mutex_);
        return condition_.wait_for(lock, patience, [&] { return condition(value_); });
    }
    [[nodiscard]] bool awaitValue(const Value &value) const {
        return await([&](const Value &current) { return current == value; });
    }

  private:
    mutable std::mutex mutex_;
    mutable std::condition_variable condition_;
    Value value_{};
};

} // namespace moxel::test
