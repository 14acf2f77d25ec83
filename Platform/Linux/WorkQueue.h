// The queue of work that other threads hand to one thread; lock-free on the posting side.
#pragma once

#include "Platform/WorkItem.h"

#include <atomic>

namespace moxel {

/// Posters push onto a list with one compare-and-swap and wake the owner only when the list was empty. The
/// owner takes the whole list at once, so no item is ever freed under a poster's eyes.
class WorkQueue {
  public:
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
    /// meanwhile wait for the next call. Returns their number.
    int runPosted() noexcept;
    /// Owner only. Discards what is queued and everything that comes later.
    void close() noexcept;

  private:
    static WorkItem *closedMark() noexcept;
    static WorkItem *oldestFirst(WorkItem *newest) noexcept;

    std::atomic<WorkItem *> newest_{nullptr};
    std::atomic<int> wakeDescriptor_{-1};
};

} // namespace moxel
