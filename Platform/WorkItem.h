// One piece of work on its way to a thread, linked into that thread's queue without an allocation.
#pragma once

#include "Export.h"
namespace moxel {

/// Derived classes own what the work needs. A queue owns an item from post() until it calls run() or
/// discard(), exactly one of them, exactly once; the item then decides what becomes of its own memory (freed,
/// or returned to the poster's pool).
class MOXEL_EXPORT WorkItem {
  public:
    WorkItem() = default;
    WorkItem(const WorkItem &) = delete;
    WorkItem &operator=(const WorkItem &) = delete;

    /// Does the work, on the target thread.
    virtual void run() = 0;
    /// Gives the work up undone because the target thread has ended; on the posting or the ending thread.
    virtual void discard() noexcept = 0;

  protected:
    virtual ~WorkItem() = default;

  private:
    friend class WorkQueue;
    WorkItem *next_ = nullptr;
};

} // namespace moxel
