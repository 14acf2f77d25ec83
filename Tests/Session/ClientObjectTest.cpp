// The client object: its fields when made, and the delivery of messages on the caller thread.
#include "Helpers/Condition.h"
#include "Platform/Session.h"
#include "Support/CapturedLog.h"
#include "Support/ClientTestAccess.h"
#include "Support/FakeHIDDevice.h"
#include "Support/HandlerRecorder.h"
#include <Moxel/CFileObserver.h>

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <thread>
#include <unistd.h>

namespace moxel {
namespace {

using Access = MoxelClientTestAccess;
using Recorder = test::HandlerRecorder;
using test::ReceivedCall;

class ClientObject : public testing::Test {
  protected:
    void SetUp() override { Recorder::instance().clear(); }

    static Access::Client plainClient() {
        return Access::make(Recorder::message, Recorder::added, Recorder::removed, false);
    }
    static Access::Client contextClient() {
        Access::Client client = Access::make(nullptr, nullptr, nullptr, false);
        Access::setHandlersWithContext(client, Recorder::messageWithContext, Recorder::addedWithContext,
                                       Recorder::removedWithContext, &context);
        return client;
    }
    static Access::Client clientWithAllHandlers() {
        Access::Client client = plainClient();
        Access::setHandlersWithContext(client, Recorder::messageWithContext, Recorder::addedWithContext,
                                       Recorder::removedWithContext, &context);
        return client;
    }
    static Data stateData(uint16_t command, int32_t value = 0) {
        MoxelStateRecord record{};
        record.command = command;
        record.value = value;
        const auto *bytes = reinterpret_cast<const uint8_t *>(&record);
        return Data(std::span(bytes, sizeof record));
    }
    static Dictionary stateMessage(uint16_t command, int32_t value = 0) {
        return {{"handler", 0}, {"pid", 50770U}, {"data", stateData(command, value)}};
    }
    static const std::vector<ReceivedCall> calls() { return Recorder::instance().calls(); }

    static inline int context = 0;
};

// ------------------------------------------------------------------------------------------ Construction

TEST_F(ClientObject, IsMadeWithItsInitialFields) {
    const auto before = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::system_clock::now().time_since_epoch());
    const Access::Client client = plainClient();
    const auto after = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::system_clock::now().time_since_epoch());
    EXPECT_GE(client->channelID(), static_cast<uint64_t>(before.count()));
    EXPECT_LE(client->channelID(), static_cast<uint64_t>(after.count()));
    EXPECT_FALSE(client->m_bClientRegistered());
    EXPECT_FALSE(client->m_bReRegistrationRequest());
    EXPECT_FALSE(client->m_bPacketACK());
    EXPECT_FALSE(client->stringSyncedResourcesPath());
    EXPECT_FALSE(client->m_dataDevicePrefs());
    EXPECT_TRUE(client->applicationInfo());
    EXPECT_TRUE(client->applicationInfo()->channelID().isNull());
    EXPECT_TRUE(client->m_conditionSignal());
    EXPECT_EQ(client->observerSettingsFile()->notificationString(), String("MxlFileChange"));
    EXPECT_EQ(client->m_uVendorID(), 0);
    EXPECT_EQ(client->m_uProductID(), 0);
    EXPECT_EQ(client->m_refHIDChannelBase(), nullptr);
    EXPECT_EQ(client->m_refHIDChannelDedicated(), nullptr);
    EXPECT_EQ(Access::callerThread(client), Thread::current());
    EXPECT_EQ(Access::ringIndex(client), 0);
}

TEST_F(ClientObject, ClientsOfOneProcessNeverShareAChannelIdentifier) {
    std::set<uint64_t> identifiers;
    for (int i = 0; i < 20; ++i)
        identifiers.insert(plainClient()->channelID());
    EXPECT_EQ(identifiers.size(), 20U);
}

TEST_F(ClientObject, BaseChannelNameEndsInTheUserIdentifierInEightDigits) {
    const SessionOverride session([] { return SessionDescription{true, std::string("root")}; });
    EXPECT_EQ(plainClient()->m_strBaseChannelName(), String("MxlVirtualHIDData_Base00000000"));
}

TEST_F(ClientObject, BaseChannelNameIsUpperCaseHexadecimal) {
    const std::optional<uint32_t> nobody = userIdentifierForName("nobody");
    ASSERT_TRUE(nobody);
    const SessionOverride session([] { return SessionDescription{true, std::string("nobody")}; });
    char expected[64];
    std::snprintf(expected, sizeof expected, "MxlVirtualHIDData_Base%08X", *nobody);
    EXPECT_EQ(plainClient()->m_strBaseChannelName(), String(expected));
}

TEST_F(ClientObject, AccessorsStoreWhatTheyAreGiven) {
    const Access::Client client = plainClient();
    client->setM_bPacketACK(true);
    client->setM_bClientRegistered(true);
    client->setM_bReRegistrationRequest(true);
    client->setM_bHIDChannelBaseOpen(true);
    client->setM_bHIDChannelDedicatedOpen(true);
    client->setM_uVendorID(1);
    client->setM_uProductID(2);
    client->setChannelID(3);
    client->setM_ptrClient(&context);
    client->setM_strBaseChannelName("name");
    client->setStringSyncedResourcesPath("path");
    client->setM_dataDevicePrefs(stateData(1));
    const auto condition = std::make_shared<Condition>();
    client->setM_conditionSignal(condition);
    const auto record = makeRef<MxlApplication>();
    client->setApplicationInfo(record);
    client->setObserverSettingsFile(nullptr);
    EXPECT_TRUE(client->m_bPacketACK() && client->m_bClientRegistered() &&
                client->m_bReRegistrationRequest());
    EXPECT_TRUE(client->m_bHIDChannelBaseOpen() && client->m_bHIDChannelDedicatedOpen());
    EXPECT_EQ(client->m_uVendorID(), 1);
    EXPECT_EQ(client->m_uProductID(), 2);
    EXPECT_EQ(client->channelID(), 3U);
    EXPECT_EQ(client->m_ptrClient(), &context);
    EXPECT_EQ(client->m_strBaseChannelName(), String("name"));
    EXPECT_EQ(client->stringSyncedResourcesPath(), String("path"));
    EXPECT_EQ(client->m_dataDevicePrefs(), stateData(1));
    EXPECT_EQ(client->m_conditionSignal(), condition);
    EXPECT_EQ(client->applicationInfo(), record);
    EXPECT_EQ(client->observerSettingsFile(), nullptr);
}

// ------------------------------------------------------------------------------------------ State records

TEST_F(ClientObject, StateRecordReachesThePlainHandlerByteForByteFromTheRing) {
    const Access::Client client = plainClient();
    std::vector<uint8_t> bytes(48);
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<uint8_t>(0xF0 - i * 5);
    client->callerThreadProxy(
        {{"handler", 0}, {"pid", 50770U}, {"data", Data(std::span<const uint8_t>(bytes))}});
    ASSERT_EQ(calls().size(), 1U);
    EXPECT_EQ(calls()[0].productID, 50770U);
    EXPECT_EQ(calls()[0].message, 0x6D765352U);
    EXPECT_EQ(calls()[0].bytes, bytes);
    EXPECT_EQ(calls()[0].argument, Access::ringSlot(client, 0));
}

TEST_F(ClientObject, The101stDeliveredRecordIsStoredInSlot0Again) {
    const Access::Client client = plainClient();
    for (int i = 0; i < 101; ++i)
        client->callerThreadProxy(stateMessage(3, i));
    ASSERT_EQ(calls().size(), 101U);
    EXPECT_EQ(calls()[0].argument, Access::ringSlot(client, 0));
    EXPECT_EQ(calls()[99].argument, Access::ringSlot(client, 99));
    EXPECT_EQ(calls()[100].argument, Access::ringSlot(client, 0));
    EXPECT_EQ(Access::ringSlot(client, 0)->value, 100);
    EXPECT_EQ(Access::ringSlot(client, 1)->value, 1);
}

TEST_F(ClientObject, ARecordStaysValidForTheNext99Deliveries) {
    const Access::Client client = plainClient();
    client->callerThreadProxy(stateMessage(3, 12345));
    const auto *first = static_cast<const MoxelStateRecord *>(calls()[0].argument);
    for (int i = 0; i < 99; ++i)
        client->callerThreadProxy(stateMessage(3, i));
    EXPECT_EQ(first->value, 12345);
}

TEST_F(ClientObject, UnderABacklogACommand1IsDroppedAndTheNextRecordReusesItsSlot) {
    const Access::Client client = plainClient();
    Access::setOutstanding(client, 2);
    client->callerThreadProxy(stateMessage(1, 1));
    EXPECT_EQ(calls().size(), 0U);
    EXPECT_EQ(client->outstandingStateCallbacks(), 1);
    EXPECT_EQ(Access::ringIndex(client), 0);
    client->callerThreadProxy(stateMessage(1, 2));
    ASSERT_EQ(calls().size(), 1U);
    EXPECT_EQ(calls()[0].argument, Access::ringSlot(client, 0));
    EXPECT_EQ(Access::ringSlot(client, 0)->value, 2);
    EXPECT_EQ(client->outstandingStateCallbacks(), 0);
}

TEST_F(ClientObject, UnderABacklogACommand10IsDelivered) {
    const Access::Client client = plainClient();
    Access::setOutstanding(client, 2);
    client->callerThreadProxy(stateMessage(10));
    EXPECT_EQ(calls().size(), 1U);
}

TEST_F(ClientObject, UnderABacklogOnlyCommands2And10And11AreDelivered) {
    for (const bool withContext : {false, true}) {
        Recorder::instance().clear();
        const Access::Client client = withContext ? contextClient() : plainClient();
        for (uint16_t command = 0; command < 20; ++command) {
            Access::setOutstanding(client, 5);
            client->callerThreadProxy(stateMessage(command));
            EXPECT_EQ(client->outstandingStateCallbacks(), 4);
        }
        std::vector<uint16_t> delivered;
        for (const ReceivedCall &call : calls()) {
            uint16_t command;
            std::memcpy(&command, call.bytes.data() + 4, sizeof command);
            delivered.push_back(command);
        }
        EXPECT_EQ(delivered, (std::vector<uint16_t>{2, 10, 11}));
    }
}

TEST_F(ClientObject, WithABacklogOfOneNothingIsDropped) {
    const Access::Client client = plainClient();
    Access::setOutstanding(client, 1);
    client->callerThreadProxy(stateMessage(3));
    EXPECT_EQ(calls().size(), 1U);
}

TEST_F(ClientObject, StateRecordReachesTheContextHandlerWithoutTheRing) {
    const Access::Client client = contextClient();
    client->callerThreadProxy(stateMessage(3, 77));
    ASSERT_EQ(calls().size(), 1U);
    EXPECT_TRUE(calls()[0].withContext);
    EXPECT_EQ(calls()[0].context, &context);
    EXPECT_EQ(calls()[0].productID, 50770U);
    EXPECT_EQ(Access::ringIndex(client), 0);
    EXPECT_EQ(Access::ringSlot(client, 0)->value, 0);
}

TEST_F(ClientObject, WithoutMessageHandlerOrDataTheCountStays) {
    const Access::Client none = Access::make(nullptr, Recorder::added, nullptr, false);
    Access::setOutstanding(none, 1);
    none->callerThreadProxy(stateMessage(3));
    EXPECT_EQ(none->outstandingStateCallbacks(), 1);
    const Access::Client client = plainClient();
    Access::setOutstanding(client, 1);
    client->callerThreadProxy({{"handler", 0}, {"pid", 1U}});
    EXPECT_EQ(client->outstandingStateCallbacks(), 1);
    EXPECT_EQ(calls().size(), 0U);
}

TEST_F(ClientObject, EmptyDataOnlyLowersTheCount) {
    const Access::Client client = plainClient();
    Access::setOutstanding(client, 1);
    client->callerThreadProxy({{"handler", 0}, {"pid", 1U}, {"data", Data(std::vector<uint8_t>{})}});
    EXPECT_EQ(client->outstandingStateCallbacks(), 0);
    EXPECT_EQ(calls().size(), 0U);
}

TEST_F(ClientObject, ShortDataIsFilledWithZeros) {
    const Access::Client client = plainClient();
    client->callerThreadProxy(
        {{"handler", 0}, {"pid", 1U}, {"data", Data(std::vector<uint8_t>{0x34, 0x12})}});
    ASSERT_EQ(calls().size(), 1U);
    EXPECT_EQ(static_cast<const MoxelStateRecord *>(calls()[0].argument)->version, 0x1234);
    EXPECT_EQ(static_cast<const MoxelStateRecord *>(calls()[0].argument)->buttons, 0U);
}

// ------------------------------------------------------------------------------------------ Other kinds

TEST_F(ClientObject, Kind1WithoutPrefsCallsTheMessageHandlerWithNull) {
    const Access::Client client = plainClient();
    client->callerThreadProxy({{"handler", 1}, {"pid", 32767U}, {"arg", 5U}});
    ASSERT_EQ(calls().size(), 1U);
    EXPECT_EQ(calls()[0].message, 0x6D765043U);
    EXPECT_EQ(calls()[0].productID, 32767U);
    EXPECT_EQ(calls()[0].argument, nullptr);
}

TEST_F(ClientObject, Kind1HandsOutThePrefsBytes) {
    const Access::Client client = contextClient();
    const Data prefs(std::vector<uint8_t>{1, 2, 3});
    client->callerThreadProxy({{"handler", 1}, {"pid", 32767U}, {"prefs", prefs}});
    ASSERT_EQ(calls().size(), 1U);
    EXPECT_EQ(calls()[0].argument, prefs.bytes().data());
    EXPECT_EQ(calls()[0].context, &context);
}

TEST_F(ClientObject, Kind2WithBothAddedHandlersCallsOnlyThePlainOne) {
    clientWithAllHandlers()->callerThreadProxy({{"handler", 2}, {"pid", 9U}});
    ASSERT_EQ(calls().size(), 1U);
    EXPECT_EQ(calls()[0].handler, ReceivedCall::Handler::added);
    EXPECT_FALSE(calls()[0].withContext);
    EXPECT_EQ(calls()[0].productID, 9U);
}

TEST_F(ClientObject, Kind3WithBothRemovedHandlersCallsBoth) {
    clientWithAllHandlers()->callerThreadProxy({{"handler", 3}, {"pid", 9U}});
    ASSERT_EQ(calls().size(), 2U);
    EXPECT_FALSE(calls()[0].withContext);
    EXPECT_TRUE(calls()[1].withContext);
    EXPECT_EQ(calls()[1].context, &context);
    EXPECT_EQ(calls()[1].productID, 9U);
}

TEST_F(ClientObject, Kinds2And3CallTheContextHandlersAlone) {
    const Access::Client client = contextClient();
    client->callerThreadProxy({{"handler", 2}, {"pid", 9U}});
    client->callerThreadProxy({{"handler", 3}, {"pid", 9U}});
    ASSERT_EQ(calls().size(), 2U);
    EXPECT_EQ(calls()[0].handler, ReceivedCall::Handler::added);
    EXPECT_EQ(calls()[1].handler, ReceivedCall::Handler::removed);
    EXPECT_EQ(calls()[0].context, &context);
}

TEST_F(ClientObject, Kind4AndUnknownKindsDoNothing) {
    const Access::Client client = clientWithAllHandlers();
    for (const int kind : {4, 8, 9, 100, -1})
        client->callerThreadProxy(
            {{"handler", kind}, {"pid", 9U}, {"data", stateData(1)}, {"arg", stateData(1)}});
    EXPECT_EQ(calls().size(), 0U);
}

TEST_F(ClientObject, Kind5NeedsData) {
    const Access::Client client = plainClient();
    client->callerThreadProxy({{"handler", 5}, {"pid", 4U}});
    client->callerThreadProxy({{"handler", 5}, {"pid", 4U}, {"data", Data(std::vector<uint8_t>{})}});
    EXPECT_EQ(calls().size(), 0U);
    std::vector<uint8_t> block(506, 0xC5);
    client->callerThreadProxy({{"handler", 5}, {"pid", 4U}, {"data", Data(std::span<const uint8_t>(block))}});
    ASSERT_EQ(calls().size(), 1U);
    EXPECT_EQ(calls()[0].message, 0x6D764353U);
    EXPECT_EQ(calls()[0].productID, 4U);
    EXPECT_EQ(calls()[0].bytes, block);
}

TEST_F(ClientObject, Kinds6And7HandOutTheBytesOfArg) {
    const Access::Client client = plainClient();
    const Data settings(std::vector<uint8_t>(sizeof(MoxelSettingsChange), 6));
    const Data pairing(std::vector<uint8_t>{7, 7});
    client->callerThreadProxy({{"handler", 6}, {"pid", 32767U}, {"arg", settings}});
    client->callerThreadProxy({{"handler", 7}, {"pid", 32767U}, {"arg", pairing}});
    ASSERT_EQ(calls().size(), 2U);
    EXPECT_EQ(calls()[0].message, 0x6D764E43U);
    EXPECT_EQ(calls()[0].argument, settings.bytes().data());
    EXPECT_EQ(calls()[1].message, 0x6D76506FU);
    EXPECT_EQ(calls()[1].argument, pairing.bytes().data());
}

TEST_F(ClientObject, MessagesAfterTheClientThreadEndedAreDropped) {
    const Access::Client client = clientWithAllHandlers();
    Access::setReady(client, false);
    for (int kind = 0; kind < 8; ++kind)
        client->callerThreadProxy(
            {{"handler", kind}, {"pid", 9U}, {"data", stateData(2)}, {"arg", stateData(2)}});
    EXPECT_EQ(calls().size(), 0U);
}

// ------------------------------------------------------------------------------------------ Notifications

TEST_F(ClientObject, AfterTheCreatingThreadExitedForwardedMessagesAreHandledOnTheMainThread) {
    Access::Client client;
    std::thread([&client] {
        client = plainClient();
        Access::subscribe(client);
    }).join();
    const auto dedicated = test::FakeHIDDevice::channel("dedicated");
    client->setM_refHIDChannelDedicated(dedicated);
    std::vector<uint8_t> report{0x35, 3, 0, 0, 0, 0, 0};
    report.resize(64, 0x0A);
    client->handleIncomingData(report.data(), report.size(), HIDReportType::input, 0x35, dedicated.get());
    client->parseDict({{"req", "devadd"}, {"pid", 7U}}, "devadd");
    EXPECT_EQ(calls().size(), 0U) << "both wait for the main thread";
    ASSERT_TRUE(Thread::current()->isMain());
    ASSERT_TRUE(Recorder::instance().dispatchUntil(2));
    for (const ReceivedCall &call : calls())
        EXPECT_EQ(call.thread, Thread::main()->identifier());
    EXPECT_EQ(client->outstandingStateCallbacks(), 0);
}

TEST_F(ClientObject, AfterTheCreatingThreadExitedMessagesGoToTheMainThread) {
    Access::Client client;
    std::thread([&client] {
        client = plainClient();
        Access::subscribe(client);
        EXPECT_EQ(Access::callerThread(client), Thread::current());
    }).join();
    EXPECT_EQ(Access::callerThread(client), Thread::main());
}

TEST_F(ClientObject, ExitOfAnotherThreadChangesNothing) {
    const Access::Client client = plainClient();
    Access::subscribe(client);
    std::thread([] { Thread::current(); }).join();
    EXPECT_EQ(Access::callerThread(client), Thread::current());
}

TEST_F(ClientObject, SessionAndApplicationNotificationsAreOnlyLogged) {
    test::CapturedLog log;
    const Access::Client client = plainClient();
    Access::subscribe(client);
    NotificationCenter::defaultCenter().post({sessionDidResignActiveNotification, nullptr});
    NotificationCenter::defaultCenter().post({didTerminateApplicationNotification, nullptr});
    EXPECT_EQ(log.count("-[MoxelClientAPI handleDeactivate:] --> NSConcreteNotification {name = "
                        "NSWorkspaceSessionDidResignActiveNotification}"),
              1U);
    EXPECT_EQ(log.count("-[MoxelClientAPI handleOtherAppTerminate:] --> NSConcreteNotification {name = "
                        "NSWorkspaceDidTerminateApplicationNotification}"),
              1U);
    EXPECT_TRUE(client->bClientReady());
}

TEST_F(ClientObject, CallerThreadExitEndsTheSessionSubscriptionAndStopsTheObserver) {
    test::CapturedLog log;
    char folder[] = "/tmp/moxel-observed-XXXXXX";
    ASSERT_TRUE(mkdtemp(folder));
    Access::Client client;
    std::thread([&] {
        client = plainClient();
        Access::subscribe(client);
        EXPECT_TRUE(client->observerSettingsFile()->observeFolder(folder));
    }).join();
    NotificationCenter::defaultCenter().post({sessionDidResignActiveNotification, nullptr});
    EXPECT_EQ(log.countStarting("-[MoxelClientAPI handleDeactivate:]"), 0U);
    EXPECT_TRUE(client->observerSettingsFile()->isObserving());
    client.reset(); // Joins the observation thread, which must have been stopped.
    ::rmdir(folder);
}

} // namespace
} // namespace moxel
