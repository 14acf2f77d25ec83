#include "Platform/Linux/ServiceThread.h"

#include "Platform/Linux/SessionMonitor.h"
#include "Platform/Linux/SignalBlock.h"

#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <utility>

namespace moxel {

namespace {

using StartedLoop = Result<std::shared_ptr<RunLoop>>;

/// What the thread tells whoever has started it. Needs no memory, unlike a promise that is not kept.
class Beginning {
  public:
    /// The first announcement counts.
    void announce(std::optional<StartedLoop> loop) noexcept {
        const std::lock_guard lock(mutex_);
        if (std::exchange(isAnnounced_, true))
            return;
        loop_ = std::move(loop);
        announced_.notify_all();
    }
    /// Without a value when the thread had no memory to begin.
    std::optional<StartedLoop> await() {
        std::unique_lock lock(mutex_);
        announced_.wait(lock, [this] { return isAnnounced_; });
        return std::move(loop_);
    }

  private:
    std::mutex mutex_;
    std::condition_variable announced_;
    bool isAnnounced_ = false;
    std::optional<StartedLoop> loop_;
};

void serve(Beginning &beginning) {
    struct Announcement { // Whatever becomes of the thread: start() waits for it.
        Beginning &beginning;
        ~Announcement() { beginning.announce(std::nullopt); }
    } const announcement{beginning};
    const StartedLoop runLoop = RunLoop::current();
    beginning.announce(runLoop);
    if (!runLoop.ok())
        return;
    // Where it fails, whoever asks for the session's state looks for changes himself.
    const Result<std::unique_ptr<SessionWatch>> sessionWatch = SessionWatch::start(*runLoop.value());
    runLoop.value()->run();
}

} // namespace

Result<std::shared_ptr<ServiceThread>> ServiceThread::lease() {
    struct Running {
        std::mutex mutex;
        std::weak_ptr<ServiceThread> thread;
    };
    static auto &running = *new Running; // Never destroyed: leases may be dropped while the process exits.

    const std::lock_guard lock(running.mutex);
    if (auto thread = running.thread.lock())
        return thread;
    Result<std::shared_ptr<ServiceThread>> started = start();
    if (started.ok())
        running.thread = *started;
    return started;
}

Result<std::shared_ptr<ServiceThread>> ServiceThread::start() {
    const std::shared_ptr<ServiceThread> service(new ServiceThread); // Before the thread that it has to stop.
    const auto beginning = std::make_shared<Beginning>();
    Result<std::shared_ptr<Thread>> thread = [&beginning] {
        const SignalBlock block;
        return Thread::start("moxel-services", [beginning] { serve(*beginning); });
    }();
    if (!thread.ok())
        return thread.error();
    service->thread_ = *std::move(thread);
    const std::optional<StartedLoop> runLoop = beginning->await();
    if (!runLoop)
        return systemError("The service thread did not begin", ENOMEM);
    if (!runLoop->ok())
        return runLoop->error();
    service->runLoop_ = **runLoop;
    return service;
}

ServiceThread::~ServiceThread() {
    if (runLoop_)
        runLoop_->stop();
    if (!thread_)
        return;
    if (thread_->isCurrent()) {
        thread_->detach();
    } else {
        thread_->join();
    }
}

} // namespace moxel
