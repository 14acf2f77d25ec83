// The client object: construction, notifications, and the fields that several threads share.
#include <Moxel/MoxelClientAPI.h>

#include "CheckUserActive.h"
#include "Helpers/Condition.h"
#include "Helpers/Logging.h"
#include "Platform/HIDManager.h"
#include "Platform/NotificationCenter.h"
#include "Platform/RunLoop.h"
#include "Platform/Thread.h"
#include "Protocol/CallerThreadWatch.h"
#include "Protocol/StateForwarder.h"
#include "Session/ClientRegistry.h"
#include "Session/ClientSubscriptions.h"
#include "Session/KeepAlive.h"
#include <Moxel/CFileObserver.h>

#include <thread>
#include <utility>

namespace moxel {

namespace {

uint64_t millisecondsSince1970() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

/// The present millisecond, after a pause when the process's last client was made in it: two clients of one
/// identifier would share one channel.
uint64_t makeChannelIdentifier() {
    static std::atomic<uint64_t> last{0};
    for (int attempt = 0; attempt < 100; ++attempt) { // A clock that stands still is no reason to hang.
        const uint64_t now = millisecondsSince1970();
        if (last.exchange(now) != now)
            return now;
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    return last.load();
}

} // namespace

// ------------------------------------------------------------------------------------------ Construction

MoxelClientAPI::MoxelClientAPI()
    : subscriptions_(std::make_unique<Subscriptions>()),
      stateForwarder_(std::make_unique<StateForwarder>(*this)) {}

std::shared_ptr<MoxelClientAPI> MoxelClientAPI::create(MoxelMessageHandlerProc messageHandler,
                                                       MoxelAddedHandlerProc addedHandler,
                                                       MoxelRemovedHandlerProc removedHandler,
                                                       bool threaded) {
    std::shared_ptr<MoxelClientAPI> client(new MoxelClientAPI());
    client->callerThreadWatch_ = std::make_shared<CallerThreadWatch>(
        [self = std::weak_ptr(client)](RunLoop::Seconds delay, RunLoop::Callback call) {
            const std::shared_ptr<MoxelClientAPI> watched = self.lock();
            return watched && watched->performOnClientThread(delay, std::move(call));
        });
    client->observerSettingsFile_ = CFileObserver::init();
    client->channelID_ = makeChannelIdentifier();
    client->m_uUserID_ = MoxelGetSessionUserID();
    client->m_strBaseChannelName_ = format("%s%08X", "MxlVirtualHIDData_Base", client->m_uUserID_);
    client->applicationInfo_ = makeRef<MxlApplication>();
    client->deviceMessageHandler_ = messageHandler;
    client->deviceAddedHandler_ = addedHandler;
    client->deviceRemovedHandler_ = removedHandler;
    client->allowThreadedCallback_ = threaded;
    client->callerThread_ = Thread::current();
    client->m_conditionSignal_ = std::make_shared<Condition>();
    return client;
}

std::shared_ptr<MoxelClientAPI> MoxelClientAPI::initWithMessageHandler(MoxelMessageHandlerProc messageHandler,
                                                                       MoxelAddedHandlerProc addedHandler,
                                                                       MoxelRemovedHandlerProc removedHandler,
                                                                       bool threaded) {
    std::shared_ptr<MoxelClientAPI> client = create(messageHandler, addedHandler, removedHandler, threaded);
    return client->begin() ? client : nullptr;
}

std::shared_ptr<MoxelClientAPI> MoxelClientAPI::_initWithMessageHandler(
    _MoxelMessageHandlerProc messageHandler, _MoxelAddedHandlerProc addedHandler,
    _MoxelRemovedHandlerProc removedHandler, void *context, bool threaded) {
    std::shared_ptr<MoxelClientAPI> client = create(nullptr, nullptr, nullptr, threaded);
    // Before the client thread starts, so that no early message misses them.
    client->m_ptrClient_ = context;
    client->deviceMessageHandler2_ = messageHandler;
    client->deviceAddedHandler2_ = addedHandler;
    client->deviceRemovedHandler2_ = removedHandler;
    return client->begin() ? client : nullptr;
}

bool MoxelClientAPI::begin() {
    subscribe();
    // Before the thread is there, from when on nothing may be thrown.
    const std::string caller = callerThread()->description();
    if (!startClientThread())
        return false;
    logInfo("%s, Init done. Self=%p, callerthread=%@",
            "-[MoxelClientAPI initWithMessageHandler:addedHandler:removedHandler:threaded:]",
            static_cast<const void *>(this), caller);
    return true;
}

MoxelClientAPI::~MoxelClientAPI() {
    if (observerSettingsFile_ && observerSettingsFile_->isObserving())
        observerSettingsFile_->stopObservation();
    if (!clientThread_)
        return;
    if (clientThread_->isCurrent()) // The thread outlived the session and held the last reference.
        clientThread_->detach();
    else
        clientThread_->join();
}

bool MoxelClientAPI::clientInit() {
    gPendingClients().set(currentThreadKey(), shared_from_this(), currentThreadKey());
    // Messages are delivered through the caller's run loop, so it has to exist before the first one.
    const Result<std::shared_ptr<RunLoop>> callerLoop = RunLoop::current();
    if (!callerLoop.ok())
        logError("Error: %@", callerLoop.error().message);
    else
        (*callerLoop)->keepAlive(keepAliveInterval, RunLoopSourceTimerHandler);

    const auto deadline = Condition::Clock::now() + std::chrono::seconds(2);
    const std::shared_ptr<Condition> condition = m_conditionSignal();
    const std::lock_guard lock(*condition);
    return condition->waitUntil(deadline,
                                [this] { return m_refHIDChannelBase() && m_bHIDChannelBaseOpen(); });
}

// ------------------------------------------------------------------------------------------ Notifications

void MoxelClientAPI::subscribe() {
    NotificationCenter &center = NotificationCenter::defaultCenter();
    const auto toMethod = [self = weak_from_this()](void (MoxelClientAPI::*method)(const Notification &)) {
        return [self, method](const Notification &notification) {
            if (const std::shared_ptr<MoxelClientAPI> client = self.lock())
                ((*client).*method)(notification);
        };
    };
    if (observerSettingsFile_)
        subscriptions_->fileChange =
            center.subscribe(observerSettingsFile_->notificationString().view(), nullptr,
                             toMethod(&MoxelClientAPI::fileChangeNotification));
    subscriptions_->callerThreadExit = center.subscribe(threadWillExitNotification, callerThread_.get(),
                                                        toMethod(&MoxelClientAPI::callerThreadExited));
    subscriptions_->sessionResignedActive = center.subscribe(sessionDidResignActiveNotification, nullptr,
                                                             toMethod(&MoxelClientAPI::handleDeactivate));
    subscriptions_->applicationTerminated = center.subscribe(
        didTerminateApplicationNotification, nullptr, toMethod(&MoxelClientAPI::handleOtherAppTerminate));
}

void MoxelClientAPI::callerThreadExited(const Notification &notification) {
    if (notification.object != callerThread().get())
        return;
    {
        const std::lock_guard lock(fieldMutex_);
        subscriptions_->callerThreadExit.reset();
        subscriptions_->sessionResignedActive.reset();
    }
    if (const std::shared_ptr<CFileObserver> observer = observerSettingsFile();
        observer && observer->isObserving())
        observer->stopObservation();
    const std::lock_guard lock(fieldMutex_);
    callerThread_ = Thread::main();
}

void MoxelClientAPI::handleDeactivate(const Notification &notification) {
    logInfo("%s --> %@", "-[MoxelClientAPI handleDeactivate:]", notification.description());
}

void MoxelClientAPI::handleOtherAppTerminate(const Notification &notification) {
    logInfo("%s --> %@", "-[MoxelClientAPI handleOtherAppTerminate:]", notification.description());
}

// ------------------------------------------------------------------------------------------ Fields

template <class T>
T MoxelClientAPI::field(const T &field) const {
    const std::lock_guard lock(fieldMutex_);
    return field;
}

template <class T>
void MoxelClientAPI::setField(T &field, T value) {
    const std::lock_guard lock(fieldMutex_);
    std::swap(field, value); // The old value is released after the lock.
}

void MoxelClientAPI::setDeviceIDBits(uint32_t mask, uint32_t bits) noexcept {
    uint32_t current = m_uDeviceID_.load();
    while (!m_uDeviceID_.compare_exchange_weak(current, (current & ~mask) | bits))
        ;
}

std::recursive_mutex &MoxelClientAPI::classLock() {
    static std::recursive_mutex &lock = *new std::recursive_mutex;
    return lock;
}

std::shared_ptr<Thread> MoxelClientAPI::callerThread() const { return field(callerThread_); }
std::shared_ptr<Condition> MoxelClientAPI::m_conditionSignal() const { return field(m_conditionSignal_); }
void MoxelClientAPI::setM_conditionSignal(std::shared_ptr<Condition> condition) {
    setField(m_conditionSignal_, std::move(condition));
}
HIDDeviceReference MoxelClientAPI::m_refHIDChannelBase() const { return field(m_refHIDChannelBase_); }
void MoxelClientAPI::setM_refHIDChannelBase(HIDDeviceReference device) {
    setField(m_refHIDChannelBase_, std::move(device));
}
HIDDeviceReference MoxelClientAPI::m_refHIDChannelDedicated() const {
    return field(m_refHIDChannelDedicated_);
}
void MoxelClientAPI::setM_refHIDChannelDedicated(HIDDeviceReference device) {
    setField(m_refHIDChannelDedicated_, std::move(device));
}
Ref<MxlApplication> MoxelClientAPI::applicationInfo() const { return field(applicationInfo_); }
void MoxelClientAPI::setApplicationInfo(Ref<MxlApplication> record) {
    setField(applicationInfo_, std::move(record));
}
std::shared_ptr<CFileObserver> MoxelClientAPI::observerSettingsFile() const {
    return field(observerSettingsFile_);
}
void MoxelClientAPI::setObserverSettingsFile(std::shared_ptr<CFileObserver> observer) {
    setField(observerSettingsFile_, std::move(observer));
}
Data MoxelClientAPI::m_dataDevicePrefs() const { return field(m_dataDevicePrefs_); }
void MoxelClientAPI::setM_dataDevicePrefs(Data preferences) {
    setField(m_dataDevicePrefs_, std::move(preferences));
}
String MoxelClientAPI::m_strBaseChannelName() const { return field(m_strBaseChannelName_); }
void MoxelClientAPI::setM_strBaseChannelName(String name) {
    setField(m_strBaseChannelName_, std::move(name));
}
String MoxelClientAPI::stringSyncedResourcesPath() const { return field(stringSyncedResourcesPath_); }
void MoxelClientAPI::setStringSyncedResourcesPath(String path) {
    setField(stringSyncedResourcesPath_, std::move(path));
}

} // namespace moxel
