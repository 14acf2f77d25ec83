// The queue of work that other threads hand to one thread; lock-free on the posting side.
#pragma once

#include "Platform/WorkItem.h"

#include <atomic>
#include <chrono>

namespace moxel {

/// Posters push onto a list with one compare-and-swap and wake the owner only when the list was empty. The
/// owner takes the whole list at once, so no item is ever freed under a poster's eyes.
class WorkQueue {
  public:
    using Clock = std::chrono::steady_clock;

    WorkQueue() = default;
    ~WorkQueue();
    WorkQueue(const WorkQueue &) = delete;
    WorkQueue &operator=(const WorkQueue &) = delete;

    /// Any thread; never blocks. False, and the item discarded, once the queue is closed.
    bool post(WorkItem &item) noexcept;
    /// Any thread; makes the wake descriptor readable.
    void wake() noexcept;

    /// Owner only. The descriptor that polls readable while there is something to take; made on first use,
    /// closed with the queue. -1 when the system has no descriptor left.
    int wakeDescriptor() noexcept;
    /// Owner only. Clears the wake descriptor and runs the items posted so far, oldest first; those posted
    /// meanwhile, and those that are left when the time has come, wait for the next call. Runs one item at
    /// least. Returns their number.
    int runPosted(Clock::time_point until) noexcept;
    /// Owner only. Discards what is queued and everything that comes later.
    void close() noexcept;

  private:
    static WorkItem *closedMark() noexcept;
    static WorkItem *oldestFirst(WorkItem *newest) noexcept;
    static void discard(WorkItem *oldest) noexcept;

    /// Owner only. What the time does not suffice for is left over.
    int run(WorkItem *oldest, Clock::time_point until, bool isFirstDue) noexcept;

    std::atomic<WorkItem *> newest_{nullptr};
    WorkItem *leftOver_ = nullptr; ///< Owner only. Oldest first.
    std::atomic<int> wakeDescriptor_{-1};
};

} // namespace moxel
