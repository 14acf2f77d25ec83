// The run loop of one thread: waits for timers, descriptors and work posted by other threads, and runs them.
#pragma once

#include "Export.h"
#include "Result.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>

namespace moxel {

/// A source of a run loop; destroying it removes the source. Lives on the loop's thread, destructor included;
/// it may be destroyed inside its own callback. Empty by default.
class MOXEL_EXPORT RunLoopSource {
  public:
    class Implementation;

    RunLoopSource() noexcept;
    /// The platform's own.
    explicit RunLoopSource(std::unique_ptr<Implementation> implementation) noexcept;
    ~RunLoopSource();
    RunLoopSource(RunLoopSource &&) noexcept;
    RunLoopSource &operator=(RunLoopSource &&) noexcept;

    explicit operator bool() const noexcept { return implementation_ != nullptr; }
    void reset() noexcept;

  private:
    friend class LinuxRunLoop;
    std::unique_ptr<Implementation> implementation_;
};

/// One per thread, made when the thread first asks for it and gone when the thread ends. On Linux it is the
/// thread's default sd-event loop, so a thread that already runs that loop gets our sources dispatched in it.
///
/// Members are for the loop's own thread except where they say otherwise.
class MOXEL_EXPORT RunLoop {
  public:
    /// What is run.
    using Callback = std::function<void()>;
    /// A length of time.
    using Seconds = std::chrono::duration<double>;

    /// What a descriptor is watched for.
    enum class Descriptor : uint32_t { readable = 1, writable = 2 };
    /// What has become of a descriptor.
    struct Readiness {
        bool readable = false; ///< Something can be read.
        bool writable = false; ///< Something can be written.
        /// The other end is gone, or the descriptor is in error; what it still holds can be read first.
        bool hangUp = false;
    };
    /// What is run when a descriptor is ready.
    using DescriptorCallback = std::function<void(Readiness)>;

    /// The calling thread's loop, made on first use; an error when the platform refuses (descriptors used
    /// up).
    static Result<std::shared_ptr<RunLoop>> current();

    virtual ~RunLoop() = default;

    /// Runs sources until stop().
    virtual void run() = 0;
    /// Waits at most `limit` for something to do, runs one source and returns true; false when time ran out
    /// or the loop was stopped.
    virtual bool runOneSource(Seconds limit) = 0;
    /// Any thread. Ends the current run() or runOneSource(); when none is under way, the next one returns at
    /// once.
    virtual void stop() noexcept = 0;

    /// Calls back every `interval`, first after `delay`; once only when `interval` is zero.
    [[nodiscard]] virtual Result<RunLoopSource> addTimer(Seconds delay, Seconds interval,
                                                         Callback callback) = 0;
    /// Calls back while the descriptor is ready (level-triggered). The descriptor stays the caller's and must
    /// outlive the source.
    [[nodiscard]] virtual Result<RunLoopSource> watchDescriptor(int descriptor, Descriptor interest,
                                                                DescriptorCallback callback) = 0;
    /// Changes what a source of watchDescriptor() waits for.
    virtual void setInterest(RunLoopSource &source, bool readable, bool writable) = 0;

    /// Keeps run() from returning for want of sources, where the platform's loops would, by a timer of that
    /// interval for the rest of the loop's life. Loops that stay alive by themselves arm nothing and never
    /// wake for it.
    virtual void keepAlive(Seconds interval, Callback callback) = 0;

    /// Runs `callback` once after `delay`; dropped when the thread ends first.
    [[nodiscard]] virtual Result<void> performAfterDelay(Seconds delay, Callback callback) = 0;

    /// A descriptor that polls readable whenever dispatch() has something to do; -1 where the platform has
    /// none.
    [[nodiscard]] virtual int descriptor() const noexcept = 0;
    /// Runs what is due, waiting for it at most `timeoutMilliseconds` (negative: until something is due).
    /// What is due after that time, and 100 ms after it ran the first of it, is left for the next call.
    /// Returns the number of items that ran, or a negative errno: -EBUSY from inside one of the loop's own
    /// callbacks.
    virtual int dispatch(int timeoutMilliseconds) noexcept = 0;
};

} // namespace moxel
