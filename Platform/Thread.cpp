#include "Thread.h"

#include <condition_variable>
#include <mutex>
#include <utility>

namespace moxel {

namespace {

/// Work that nobody waits for; frees itself.
class FunctionItem final : public WorkItem {
  public:
    explicit FunctionItem(Thread::Work work) : work_(std::move(work)) {}
    void run() override {
        const std::unique_ptr<FunctionItem> self(this);
        work_();
    }
    void discard() noexcept override { delete this; }

  private:
    Thread::Work work_;
};

/// Work on the waiting caller's stack.
class AwaitedItem final : public WorkItem {
  public:
    explicit AwaitedItem(Thread::Work work) : work_(std::move(work)) {}

    void run() override {
        struct Finisher {
            AwaitedItem &item;
            ~Finisher() { item.finish(true); }
        } const finisher{*this};
        work_();
    }
    void discard() noexcept override { finish(false); }

    /// True when the work has run, false when it was dropped.
    bool wait() {
        std::unique_lock lock(mutex_);
        condition_.wait(lock, [this] { return finished_; });
        return ran_;
    }

  private:
    void finish(bool ran) noexcept {
        const std::lock_guard lock(mutex_);
        ran_ = ran;
        finished_ = true;
        condition_.notify_one(); // Under the lock: the waiter frees the item as soon as it can take it.
    }

    Thread::Work work_;
    std::mutex mutex_;
    std::condition_variable condition_;
    bool finished_ = false;
    bool ran_ = false;
};

} // namespace

bool Thread::perform(Work work, Wait wait) {
    if (wait == Wait::no)
        return post(*new FunctionItem(std::move(work)));
    if (isCurrent()) {
        work();
        return true;
    }
    AwaitedItem item(std::move(work));
    post(item);
    return item.wait();
}

std::string Thread::description() const {
    return "<Thread " + std::to_string(identifier()) + (name().empty() ? "" : " " + name()) + ">";
}

} // namespace moxel
