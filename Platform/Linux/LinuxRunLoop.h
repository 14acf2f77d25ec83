// The run loop of a thread over its default sd-event loop.
#pragma once

#include "Platform/Linux/WorkQueue.h"
#include "Platform/RunLoop.h"

#include <atomic>
#include <list>
#include <memory>
#include <optional>
#include <systemd/sd-event.h>

namespace moxel {

/// Lives on its thread, except stop(). May be referenced longer than the thread lives; it is then inert.
class LinuxRunLoop final : public RunLoop {
  public:
    /// On the thread that the loop is for.
    static Result<std::shared_ptr<LinuxRunLoop>> create(std::shared_ptr<WorkQueue> queue);

    explicit LinuxRunLoop(std::shared_ptr<WorkQueue> queue);
    ~LinuxRunLoop() override;

    /// Takes the sources of the loop itself out of sd-event; when the thread ends.
    void detach() noexcept;

    void run() override;
    bool runOneSource(Seconds limit) override;
    void stop() noexcept override;
    Result<RunLoopSource> addTimer(Seconds delay, Seconds interval, Callback callback) override;
    Result<RunLoopSource> watchDescriptor(int descriptor, Descriptor interest,
                                          DescriptorCallback callback) override;
    void setInterest(RunLoopSource &source, bool readable, bool writable) override;
    void keepAlive(Seconds, Callback) override {}
    Result<void> performAfterDelay(Seconds delay, Callback callback) override;
    int descriptor() const noexcept override;
    int dispatch(int timeoutMilliseconds) noexcept override;

  private:
    using Clock = WorkQueue::Clock;

    static int postedWorkIsReady(sd_event_source *source, int descriptor, uint32_t events,
                                 void *context) noexcept;
    bool takeStop() noexcept { return stopped_.exchange(false); }
    /// One round of sd-event; negative errno, 0 when nothing was due, else 1.
    int runOnce(uint64_t timeoutMicroseconds) noexcept;
    /// Until when something that is due may be begun.
    Clock::time_point beginsUntil() noexcept;
    /// Returns as dispatch() does.
    int runWhatIsDue(int timeoutMilliseconds) noexcept;

    std::shared_ptr<WorkQueue> queue_;
    sd_event *event_ = nullptr;
    sd_event_source *postedWork_ = nullptr;
    std::list<RunLoopSource> delayed_;
    std::atomic<bool> stopped_{false};
    /// Callbacks of ours that have run; shared with the sources, which may outlive the loop.
    std::shared_ptr<int> ran_ = std::make_shared<int>(0);
    /// Of the dispatch() that is under way. Its time begins with the first thing that runs.
    struct Dispatch {
        Clock::time_point deadline;
        std::optional<Clock::time_point> beginsUntil;
    };
    std::optional<Dispatch> dispatch_;
    bool turnIsOurs_ = false; ///< The last turn woke for posted work, of which there may have been none.
};

} // namespace moxel
