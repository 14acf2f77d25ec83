// The client thread: a run loop of its own that hosts the HID manager and receives all reports.
#include "ExportedCall.h"
#include "Helpers/Condition.h"
#include "Helpers/Logging.h"
#include "Platform/HIDManager.h"
#include "Platform/RunLoop.h"
#include "Platform/Thread.h"
#include "Session/ChannelCallbacks.h"
#include "Session/KeepAlive.h"
#include <Moxel/MoxelClientAPI.h>

#include <utility>

namespace moxel {

namespace {

constexpr std::chrono::seconds stopLimit{1};

} // namespace

bool MoxelClientAPI::startClientThread() {
    // The thread keeps the object alive until it has ended, whatever becomes of the session.
    Result<std::shared_ptr<Thread>> started =
        Thread::start("Mxl-Client", [self = shared_from_this()] { self->clientThreadEntry(); });
    if (!started.ok()) {
        logError("Error: %@", started.error().message);
        return false;
    }
    const std::lock_guard lock(threadMutex_);
    clientThread_ = *started;
    return true;
}

void MoxelClientAPI::clientThreadEntry() {
    struct CleanUp {
        MoxelClientAPI &client;
        ~CleanUp() { client.cleanUpAfterClientThread(); }
    };
    const CleanUp cleanUp{*this}; // Also when memory runs out below.
    const Result<std::shared_ptr<RunLoop>> loop = RunLoop::current();
    if (!loop.ok()) {
        logError("Error: %@", loop.error().message);
        return;
    }
    {
        const std::lock_guard lock(threadMutex_);
        threadRunLoop_ = *loop;
        if (stopRequested_) // Asked to stop before it came here.
            (*loop)->stop();
    }
    (*loop)->keepAlive(keepAliveInterval, RunLoopSourceTimerHandler);

    hidManager_ = HIDManager::create();
    hidManager_->setDeviceMatching({{std::string(hidVendorIDKey), HIDProperty(int64_t{kMoxelVendorID})}});
    hidManager_->registerDeviceMatchingCallback(ChannelConnectedEntry, this);
    hidManager_->registerDeviceRemovalCallback(ChannelDisconnectedEntry, this);
    hidManager_->scheduleWithRunLoop(**loop);
    bClientReady_ = true;
    (*loop)->run();
}

void MoxelClientAPI::cleanUpAfterClientThread() {
    bClientReady_ = false;
    {
        const std::shared_ptr<Condition> condition = m_conditionSignal();
        const std::lock_guard lock(*condition);
        setM_refHIDChannelBase(nullptr);
        setM_refHIDChannelDedicated(nullptr);
        setM_bHIDChannelBaseOpen(false);
        setM_bHIDChannelDedicatedOpen(false);
        condition->signal();
    }
    deviceMessageHandler_ = nullptr;
    deviceAddedHandler_ = nullptr;
    deviceRemovedHandler_ = nullptr;
    if (hidManager_) {
        exportedCall("closing the HID manager", [this] { // Runs in a destructor, where nothing may be thrown.
            hidManager_->unscheduleFromRunLoop();
            if (const HIDStatus status = hidManager_->close(); status != HIDStatus::success)
                logError("Error: the HID manager closed with %x", static_cast<uint32_t>(status));
        });
        hidManager_.reset();
    }
    const std::lock_guard lock(threadMutex_);
    threadRunLoop_.reset();
    clientThreadEnded_ = true;
    threadEnded_.notify_all();
}

bool MoxelClientAPI::performOnClientThread(std::chrono::duration<double> delay,
                                           std::function<void()> callback) {
    const auto performHere = [](std::chrono::duration<double> after, std::function<void()> call) {
        const Result<std::shared_ptr<RunLoop>> loop = RunLoop::current();
        return loop.ok() && (*loop)->performAfterDelay(after, std::move(call)).ok();
    };
    std::shared_ptr<Thread> thread;
    {
        const std::lock_guard lock(threadMutex_);
        thread = clientThread_;
    }
    if (!thread || thread->isCurrent()) // The thread may be there before it is known here.
        return performHere(delay, std::move(callback));
    return thread->perform(
        [performHere, delay, callback = std::move(callback)] { (void)performHere(delay, callback); });
}

void MoxelClientAPI::endClientThread() {
    bClientReady_ = false;
    const std::lock_guard lock(threadMutex_);
    stopRequested_ = true;
    if (threadRunLoop_)
        threadRunLoop_->stop();
}

bool MoxelClientAPI::stopClientThread() {
    if (const std::shared_ptr<Thread> ended = takeEndedClientThread())
        ended->join();
    const std::lock_guard lock(threadMutex_);
    return clientThreadEnded_;
}

std::shared_ptr<Thread> MoxelClientAPI::takeEndedClientThread() {
    endClientThread();
    std::unique_lock lock(threadMutex_);
    if (!threadEnded_.wait_for(lock, stopLimit, [this] { return clientThreadEnded_; }))
        return nullptr; // The thread holds the object and lets go of it when it ends.
    return std::move(clientThread_);
}

} // namespace moxel
