// One session of an application with the driver: the object behind every exported call.
#pragma once

#include "MoxelClient.h"
#include "MxlApplication.h"
#include "Platform/HIDDevice.h"
#include "Values/Value.h"

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <vector>

namespace moxel {

class CFileObserver;
class CallerThreadWatch;
class Condition;
class HIDManager;
class NotificationSubscription;
class RunLoop;
class RunLoopSource;
class StateForwarder;
class Thread;
struct Notification;

namespace wire {
struct mxVDataPacket;
}

/// Four kinds of thread enter a client: the caller thread, which created it, makes every exported call and
/// by default receives the messages; the client thread, private to the object, which hosts the HID manager
/// and receives all reports; the main thread, which receives the messages once the caller thread has ended;
/// and the threads of file observers, which tell of changes of the settings file.
///
/// The accessors may be called from any thread. `m_conditionSignal` guards the channel references and open
/// flags, `m_bClientRegistered`, `m_bReRegistrationRequest` and `m_bPacketACK`: who changes one signals, who
/// waits for one waits on it with a deadline.
class MOXEL_EXPORT MoxelClientAPI : public std::enable_shared_from_this<MoxelClientAPI> {
  public:
    // -------------------------------------------------------------- Construction (caller thread)

    /// -[MoxelClientAPI initWithMessageHandler:addedHandler:removedHandler:threaded:]
    /// Null when the client thread cannot be started. The client thread runs when this returns.
    [[nodiscard]] static std::shared_ptr<MoxelClientAPI>
    initWithMessageHandler(MoxelMessageHandlerProc messageHandler, MoxelAddedHandlerProc addedHandler,
                           MoxelRemovedHandlerProc removedHandler, bool threaded);
    /// -[MoxelClientAPI _initWithMessageHandler:addedHandler:removedHandler:context:threaded:]
    [[nodiscard]] static std::shared_ptr<MoxelClientAPI>
    _initWithMessageHandler(_MoxelMessageHandlerProc messageHandler, _MoxelAddedHandlerProc addedHandler,
                            _MoxelRemovedHandlerProc removedHandler, void *context, bool threaded);
    ~MoxelClientAPI();
    MoxelClientAPI(const MoxelClientAPI &) = delete;
    MoxelClientAPI &operator=(const MoxelClientAPI &) = delete;

    /// -[MoxelClientAPI clientInit]
    /// Enters the client in the registry and waits up to 2.0 s for the base channel; true when it is open.
    bool clientInit();
    /// -[MoxelClientAPI stopClientThread]
    /// Waits about 1 s at most; true when the client thread has ended.
    bool stopClientThread();
    /// The same without waiting: the thread ends once it has finished what it is doing, and lets go of the
    /// object.
    MOXEL_HIDDEN void endClientThread();
    /// Waits as stopClientThread() does and leaves the thread to the caller to join; null when it goes on,
    /// and when it has been taken already.
    MOXEL_HIDDEN std::shared_ptr<Thread> takeEndedClientThread();

    // -------------------------------------------------------------- Registration (caller thread)

    /// -[MoxelClientAPI registerMoxelClient:name:mode:andMask:]
    /// The client identifier, or 0 on failure.
    uint16_t registerMoxelClient(uint32_t signature, const uint8_t *name, uint16_t mode, uint32_t andMask);
    /// -[MoxelClientAPI unregisterConnection]
    bool unregisterConnection();
    /// -[MoxelClientAPI setAppInfoRecordExitState:]
    bool setAppInfoRecordExitState(uint16_t state);
    /// -[MoxelClientAPI closeBaseChannel]
    void closeBaseChannel();

    // -------------------------------------------------------------- Requests (any thread)

    /// -[MoxelClientAPI sendUserRequestData:onChannel:requestID:andCommand:requireACK:]
    /// Sends at most 2,048 bytes; with `requireACK` it waits up to 2.0 s and must not run on the client
    /// thread.
    bool sendUserRequestData(const Data &data, const HIDDeviceReference &onChannel, uint16_t requestID,
                             uint16_t andCommand, bool requireACK);
    /// -[MoxelClientAPI sendPacketACKToDaemon]
    bool sendPacketACKToDaemon();

    // -------------------------------------------------------------- Channels (client thread)

    /// -[MoxelClientAPI baseChannelConnected:fromSender:]
    void baseChannelConnected(const HIDDeviceReference &device, HIDManager *fromSender);
    /// -[MoxelClientAPI channelConnected:fromSender:]
    void channelConnected(const HIDDeviceReference &device, HIDManager *fromSender);
    /// -[MoxelClientAPI channelDisconnected:fromSender:]
    void channelDisconnected(const HIDDeviceReference &device, HIDManager *fromSender);

    // ---------------------------------------------------------------------------------- Incoming data

    /// -[MoxelClientAPI handleIncomingData:ofLength:withType:andID:fromSender:]
    /// On the client thread.
    void handleIncomingData(const uint8_t *data, size_t ofLength, HIDReportType withType, uint32_t andID,
                            HIDDevice *fromSender);
    /// -[MoxelClientAPI parseDict:withRequest:]
    /// On the client thread.
    void parseDict(const Dictionary &dictionary, const String &withRequest);
    /// -[MoxelClientAPI callerThreadProxy:]
    /// Delivers a forwarded message. On the caller thread.
    void callerThreadProxy(const Dictionary &message);
    /// -[MoxelClientAPI fileChangeNotification:]
    /// On the thread of the observer that posts it.
    void fileChangeNotification(const Notification &notification);

    // ---------------------------------------------------------------------------------- Notifications

    /// -[MoxelClientAPI callerThreadExited:]
    void callerThreadExited(const Notification &notification);
    /// -[MoxelClientAPI handleDeactivate:]
    void handleDeactivate(const Notification &notification);
    /// -[MoxelClientAPI handleOtherAppTerminate:]
    void handleOtherAppTerminate(const Notification &notification);

    // ---------------------------------------------------------------------------------- Fields

    /// What guards the channels and is signalled when an answer comes.
    [[nodiscard]] std::shared_ptr<Condition> m_conditionSignal() const;
    void setM_conditionSignal(std::shared_ptr<Condition> condition);
    /// The base channel; null while there is none.
    [[nodiscard]] HIDDeviceReference m_refHIDChannelBase() const;
    void setM_refHIDChannelBase(HIDDeviceReference device);
    /// The dedicated channel; null while there is none.
    [[nodiscard]] HIDDeviceReference m_refHIDChannelDedicated() const;
    void setM_refHIDChannelDedicated(HIDDeviceReference device);
    /// Whether the base channel is open.
    [[nodiscard]] bool m_bHIDChannelBaseOpen() const noexcept { return m_bHIDChannelBaseOpen_.load(); }
    void setM_bHIDChannelBaseOpen(bool open) noexcept { m_bHIDChannelBaseOpen_.store(open); }
    /// Whether the dedicated channel is open.
    [[nodiscard]] bool m_bHIDChannelDedicatedOpen() const noexcept {
        return m_bHIDChannelDedicatedOpen_.load();
    }
    void setM_bHIDChannelDedicatedOpen(bool open) noexcept { m_bHIDChannelDedicatedOpen_.store(open); }
    /// Whether the driver has answered the registration.
    [[nodiscard]] bool m_bClientRegistered() const noexcept { return m_bClientRegistered_.load(); }
    void setM_bClientRegistered(bool registered) noexcept { m_bClientRegistered_.store(registered); }
    /// Whether the driver asked for another registration, which is under way.
    [[nodiscard]] bool m_bReRegistrationRequest() const noexcept { return m_bReRegistrationRequest_.load(); }
    void setM_bReRegistrationRequest(bool requested) noexcept { m_bReRegistrationRequest_.store(requested); }
    /// Whether the acknowledgement that is waited for has come.
    [[nodiscard]] bool m_bPacketACK() const noexcept { return m_bPacketACK_.load(); }
    void setM_bPacketACK(bool acknowledged) noexcept { m_bPacketACK_.store(acknowledged); }
    /// Vendor identifier of the current device; 0 until the driver names one.
    [[nodiscard]] uint16_t m_uVendorID() const noexcept { return uint16_t(m_uDeviceID() >> 16); }
    void setM_uVendorID(uint16_t vendorID) noexcept { setDeviceIDBits(0xFFFF0000, uint32_t{vendorID} << 16); }
    /// Product identifier of the current device; 0 until the driver names one.
    [[nodiscard]] uint16_t m_uProductID() const noexcept { return uint16_t(m_uDeviceID()); }
    void setM_uProductID(uint16_t productID) noexcept { setDeviceIDBits(0xFFFF, productID); }
    /// Both identifiers as one read or written at once, so that they belong together: vendor in the upper
    /// half.
    [[nodiscard]] uint32_t m_uDeviceID() const noexcept { return m_uDeviceID_.load(); }
    void setM_uDeviceID(uint32_t deviceID) noexcept { m_uDeviceID_.store(deviceID); }
    /// What the driver is told of the application.
    [[nodiscard]] Ref<MxlApplication> applicationInfo() const;
    void setApplicationInfo(Ref<MxlApplication> record);
    /// Watches the settings file, once one is exported.
    [[nodiscard]] std::shared_ptr<CFileObserver> observerSettingsFile() const;
    void setObserverSettingsFile(std::shared_ptr<CFileObserver> observer);
    /// The last preferences record that the driver sent, or null.
    [[nodiscard]] Data m_dataDevicePrefs() const;
    void setM_dataDevicePrefs(Data preferences);
    /// Milliseconds since 1 January 1970 at the object's creation.
    [[nodiscard]] uint64_t channelID() const noexcept { return channelID_.load(); }
    void setChannelID(uint64_t identifier) noexcept { channelID_.store(identifier); }
    /// Name that the base channel is recognised by.
    [[nodiscard]] String m_strBaseChannelName() const;
    void setM_strBaseChannelName(String name);
    /// Folder that the application exports to; null before it has one.
    [[nodiscard]] String stringSyncedResourcesPath() const;
    void setStringSyncedResourcesPath(String path);
    /// The application's context for its context-taking handlers.
    [[nodiscard]] void *m_ptrClient() const noexcept { return m_ptrClient_.load(); }
    void setM_ptrClient(void *context) noexcept { m_ptrClient_.store(context); }
    /// True exactly while the client thread's run loop runs.
    [[nodiscard]] bool bClientReady() const noexcept { return bClientReady_.load(); }
    /// State records forwarded to the caller thread and not yet handled.
    [[nodiscard]] int32_t outstandingStateCallbacks() const noexcept {
        return outstandingStateCallbacks_.load();
    }

    /// The monitor that serialises installation, registration, cleanup and every control and export call of
    /// the process, their waits included. Taken before a registry's own monitor.
    [[nodiscard]] static std::recursive_mutex &classLock();

  private:
    friend class StateForwarder;
    friend struct MoxelClientTestAccess;
    struct Subscriptions;

    MoxelClientAPI();

    static std::shared_ptr<MoxelClientAPI> create(MoxelMessageHandlerProc messageHandler,
                                                  MoxelAddedHandlerProc addedHandler,
                                                  MoxelRemovedHandlerProc removedHandler, bool threaded);
    /// Listens to notifications and starts the client thread.
    bool begin();
    void subscribe();
    bool startClientThread();
    void clientThreadEntry();
    void cleanUpAfterClientThread();

    bool sendChannelControl(uint16_t code);
    void fillApplicationInfo(uint32_t signature, const uint8_t *name, uint16_t mode, uint32_t mask);
    void requestChannelCreation(const char *selector);
    bool waitForDedicatedChannel();
    bool sendRegistrationData(bool isReRegistration);
    bool waitForRegistrationAnswer();

    [[nodiscard]] uint64_t channelTagFor(const HIDDeviceReference &channel) const;
    bool waitForAcknowledgement();

    // On the client thread.
    void handleDaemonMessage(std::span<const uint8_t> report);
    void handleDeviceState(MoxelStateRecord &record);
    void handleDaemonResponse(std::span<const uint8_t> report);
    void handleDaemonRequest(std::span<const uint8_t> report);
    void replyToStoredDataQuery();
    void registerAgain();
    void readDataPacket(uint16_t size, bool wantsAnswer);
    void appendPacket(const wire::mxVDataPacket &header, std::span<const uint8_t> payload);
    void deliverCommandSync(const Dictionary &message);
    void deliverPreferences(const Dictionary &message);
    void deliverPairingInformation(const Dictionary &message);
    void deliverDeviceAdded(const Dictionary &message);
    void deliverDeviceRemoved(const Dictionary &message);

    // On a file observer's thread.
    void postUserInterfaceRequest(const String &path);

    // On the caller thread.
    void registerAgainOnCallerThread();
    /// A record from a dictionary, for callers of callerThreadProxy() outside the library.
    void deliverStateData(uint32_t productID, const Data &data);
    /// A record from the StateForwarder, by which the library's own ones come.
    void deliverForwardedState(uint32_t productID, MoxelStateRecord &record);
    void deliverStateRecord(uint32_t productID, MoxelStateRecord &record);

    // On the client thread or the caller thread, as the application asked at installation.
    /// Calls the message handler at once, or forwards what `forwarded` makes.
    template <class MakeForwarded>
    void deliverMessage(uint32_t message, void *argument, MakeForwarded &&forwarded);
    void deliverSettingsChange(MoxelSettingsChange &change);
    void forwardToCallerThread(const Dictionary &message);
    /// Counts one piece of work, and its bytes, as waiting for the caller thread until the result is gone;
    /// null when too much waits already.
    [[nodiscard]] std::shared_ptr<void> placeInCallerQueue(size_t bytes);
    [[nodiscard]] bool hasMessageHandler() const noexcept;
    /// The plain handler if set, else the context-taking one.
    void callMessageHandler(uint32_t productID, uint32_t message, void *argument);
    void callAddedHandler(uint32_t deviceID);
    /// Both handlers.
    void callRemovedHandlers(uint32_t deviceID);

    [[nodiscard]] std::shared_ptr<Thread> callerThread() const;
    /// Calls back on the client thread; false when that cannot be arranged. Any thread.
    [[nodiscard]] bool performOnClientThread(std::chrono::duration<double> delay,
                                             std::function<void()> callback);
    template <class T>
    [[nodiscard]] MOXEL_HIDDEN T field(const T &field) const;
    template <class T>
    MOXEL_HIDDEN void setField(T &field, T value);
    MOXEL_HIDDEN void setDeviceIDBits(uint32_t mask, uint32_t bits) noexcept;

    std::unique_ptr<HIDManager> hidManager_; ///< Client thread only.
    std::atomic<MoxelAddedHandlerProc> deviceAddedHandler_{nullptr};
    std::atomic<MoxelRemovedHandlerProc> deviceRemovedHandler_{nullptr};
    std::atomic<MoxelMessageHandlerProc> deviceMessageHandler_{nullptr};
    std::atomic<_MoxelAddedHandlerProc> deviceAddedHandler2_{nullptr};
    std::atomic<_MoxelRemovedHandlerProc> deviceRemovedHandler2_{nullptr};
    std::atomic<_MoxelMessageHandlerProc> deviceMessageHandler2_{nullptr};
    std::shared_ptr<RunLoop> threadRunLoop_; ///< Set while the client thread lives; guarded by threadMutex_.
    std::shared_ptr<Thread> callerThread_;
    bool allowThreadedCallback_ = false;
    std::atomic<int32_t> outstandingStateCallbacks_{0};
    [[maybe_unused]] uint32_t lastButtons_ = 0;         ///< Reserved.
    std::unique_ptr<RunLoopSource> timerCheckResponse_; ///< Reserved.
    std::atomic<bool> m_bClientRegistered_{false};
    std::atomic<bool> m_bPacketACK_{false};
    std::atomic<uint32_t> m_uDeviceID_{0};
    Data m_dataDevicePrefs_;
    String stringSyncedResourcesPath_;
    uint32_t m_uUserID_ = 0;
    std::array<MoxelStateRecord, 100> stateRing_{}; ///< Caller thread only.
    uint8_t stateRingIndex_ = 0;                    ///< Caller thread only.
    std::atomic<bool> m_bReRegistrationRequest_{false};
    std::shared_ptr<CFileObserver> observerSettingsFile_;
    std::array<uint8_t, 64> m_bReportBuffer_{}; ///< Client thread only.
    std::atomic<uint64_t> channelID_{0};
    std::atomic<void *> m_ptrClient_{nullptr};
    String m_strBaseChannelName_;
    Ref<MxlApplication> applicationInfo_;
    std::atomic<bool> bClientReady_{false};
    HIDDeviceReference m_refHIDChannelDedicated_;
    std::atomic<bool> m_bHIDChannelDedicatedOpen_{false};
    HIDDeviceReference m_refHIDChannelBase_;
    std::atomic<bool> m_bHIDChannelBaseOpen_{false};
    std::vector<uint8_t> m_DataReceived_; ///< Client thread only.
    std::shared_ptr<Condition> m_conditionSignal_;

    mutable std::mutex fieldMutex_; ///< Guards the references above that several threads use; a leaf.
    std::mutex threadMutex_;        ///< Guards threadRunLoop_ and the four members below.
    std::condition_variable threadEnded_;
    std::shared_ptr<Thread> clientThread_; ///< Until it is joined.
    bool stopRequested_ = false;
    bool clientThreadEnded_ = false;
    std::unique_ptr<Subscriptions> subscriptions_;         ///< Guarded by fieldMutex_.
    std::unique_ptr<StateForwarder> stateForwarder_;       ///< Client thread posts, caller thread delivers.
    std::shared_ptr<CallerThreadWatch> callerThreadWatch_; ///< Of what is forwarded.
    std::atomic<int32_t> forwardedMessages_{0}; ///< Waiting for the caller thread, state records aside.
    std::atomic<size_t> forwardedBytes_{0};     ///< What they carry.
};

} // namespace moxel
