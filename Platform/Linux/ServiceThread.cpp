#include "Platform/Linux/ServiceThread.h"

#include "Platform/Linux/SessionMonitor.h"
#include "Platform/Linux/SignalBlock.h"

#include <future>
#include <mutex>
#include <utility>

namespace moxel {

namespace {

using StartedLoop = Result<std::shared_ptr<RunLoop>>;

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
    auto promise = std::make_shared<std::promise<StartedLoop>>();
    std::future<StartedLoop> started = promise->get_future();
    auto entry = [promise = std::move(promise)]() mutable {
        const StartedLoop runLoop = RunLoop::current();
        std::exchange(promise, nullptr)->set_value(runLoop);
        if (!runLoop.ok())
            return;
        // Where it fails, whoever asks for the session's state looks for changes himself.
        const Result<std::unique_ptr<SessionWatch>> sessionWatch = SessionWatch::start(*runLoop.value());
        runLoop.value()->run();
    };
    Result<std::shared_ptr<Thread>> thread = [&entry] {
        const SignalBlock block;
        return Thread::start("moxel-services", std::move(entry));
    }();
    if (!thread.ok())
        return thread.error();
    StartedLoop runLoop = started.get();
    if (!runLoop.ok()) {
        thread.value()->join();
        return runLoop.error();
    }
    return std::shared_ptr<ServiceThread>(new ServiceThread(*std::move(thread), *std::move(runLoop)));
}

ServiceThread::ServiceThread(std::shared_ptr<Thread> thread, std::shared_ptr<RunLoop> runLoop)
    : thread_(std::move(thread)), runLoop_(std::move(runLoop)) {}

ServiceThread::~ServiceThread() {
    runLoop_->stop();
    if (thread_->isCurrent()) {
        thread_->detach();
    } else {
        thread_->join();
    }
}

} // namespace moxel
