// A thread as an object: identity, end-of-life notification, and a queue of work that others post to it.
#pragma once

#include "Export.h"
#include "NotificationCenter.h"
#include "Result.h"
#include "WorkItem.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace moxel {

/// Exists once for every thread that asked for it, threads that the library did not start included. When such
/// a thread ends, threadWillExitNotification is posted on it, then its queue closes and its run loop goes.
/// The main thread's object exists from first use and posts the notification only if the main thread ends
/// before the process.
///
/// All members may be called from any thread.
class MOXEL_EXPORT Thread : public NotificationObject, public std::enable_shared_from_this<Thread> {
  public:
    /// What a thread runs.
    using Work = std::function<void()>;

    /// Whether to wait for work that is handed over.
    enum class Wait : bool { no, untilDone };

    /// The calling thread.
    static std::shared_ptr<Thread> current();
    /// The process's first thread.
    static std::shared_ptr<Thread> main();
    /// Starts a thread that runs `entry`. Whoever starts a thread joins it, or detaches it when it must
    /// outlive its starter.
    static Result<std::shared_ptr<Thread>> start(std::string name, Work entry);

    ~Thread() override = default;

    /// Waits until the thread has ended, its exit notification included. Once, for threads made by start(),
    /// and not from the thread itself.
    virtual void join() = 0;
    /// Lets the thread end by itself.
    virtual void detach() noexcept = 0;

    /// Unique in the process, never used again after the thread has ended.
    [[nodiscard]] virtual uint64_t identifier() const noexcept = 0;
    /// The name that it was given.
    [[nodiscard]] virtual std::string name() const = 0;
    /// Renames the thread; the operating system may show a shortened form.
    virtual void setName(const std::string &name) = 0;
    /// Whether this is the process's first thread.
    [[nodiscard]] virtual bool isMain() const noexcept = 0;
    /// Whether this is the calling thread.
    [[nodiscard]] bool isCurrent() const { return current().get() == this; }

    /// Hands an item to the thread's run loop: never blocks and allocates nothing. First posted, first run.
    /// Returns false, after discarding the item, when the thread has ended. The work waits until the thread
    /// runs its loop.
    virtual bool post(WorkItem &item) noexcept = 0;

    /// Posts a function. With Wait::untilDone it returns when the function has run, or has been dropped
    /// because the thread ended; on the calling thread itself the function then runs at once. Returns false
    /// when dropped.
    bool perform(Work work, Wait wait = Wait::no);

    [[nodiscard]] std::string description() const override;
};

} // namespace moxel
