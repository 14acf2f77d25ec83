// What each message of the daemon does to the client and what reaches the application.
#include "Support/CapturedLog.h"
#include "Support/ClientTestAccess.h"
#include "Support/HandlerRecorder.h"
#include "Values/KeyedArchive.h"

#include <gtest/gtest.h>

#include <cstring>
#include <numeric>
#include <vector>

namespace moxel {
namespace {

using Access = MoxelClientTestAccess;
using Recorder = test::HandlerRecorder;
using test::ReceivedCall;
using Bytes = std::vector<uint8_t>;

class Dispatch : public testing::Test {
  protected:
    void SetUp() override {
        Recorder::instance().clear();
        threaded = Access::make(Recorder::message, Recorder::added, Recorder::removed, true);
        forwarded = Access::make(Recorder::message, Recorder::added, Recorder::removed, false);
        threadedWithContext = withContext(true);
        forwardedWithContext = withContext(false);
    }
    static Access::Client withContext(bool threaded) {
        Access::Client client = Access::make(nullptr, nullptr, nullptr, threaded);
        Access::setHandlersWithContext(client, Recorder::messageWithContext, Recorder::addedWithContext,
                                       Recorder::removedWithContext, &context);
        return client;
    }
    static void parse(const Access::Client &client, const Dictionary &message) {
        client->parseDict(message, message["req"].asString());
    }
    /// The only call, which may still have to come through the run loop.
    static ReceivedCall only() {
        EXPECT_TRUE(Recorder::instance().dispatchUntil(1));
        EXPECT_EQ((*RunLoop::current())->dispatch(0), 0);
        const std::vector<ReceivedCall> calls = Recorder::instance().calls();
        EXPECT_EQ(calls.size(), 1U);
        Recorder::instance().clear();
        return calls.empty() ? ReceivedCall{} : calls.front();
    }
    static void expectNothing() {
        while ((*RunLoop::current())->dispatch(0) > 0) {
        }
        EXPECT_EQ(Recorder::instance().count(), 0U);
    }

    static inline int context = 0;
    Access::Client threaded;
    Access::Client forwarded;
    Access::Client threadedWithContext;
    Access::Client forwardedWithContext;
};

// ------------------------------------------------------------------------------------------ Device identity

TEST_F(Dispatch, UdevStoresTheDevicesIdentityWithoutAnyCallback) {
    parse(threaded, {{"req", "udev"}, {"vid", 0x14D58}, {"pid", 0xC652}});
    EXPECT_EQ(threaded->m_uVendorID(), 0x4D58);
    EXPECT_EQ(threaded->m_uProductID(), 0xC652);
    expectNothing();
}

// ------------------------------------------------------------------------------------------ Devices

TEST_F(Dispatch, DevaddReachesTheAddedHandler) {
    const Dictionary message{{"req", "devadd"}, {"pid", 0x8000C652U}};
    for (const Access::Client &client : {threaded, forwarded, threadedWithContext, forwardedWithContext}) {
        parse(client, message);
        const ReceivedCall call = only();
        EXPECT_EQ(call.handler, ReceivedCall::Handler::added);
        EXPECT_EQ(call.productID, 0x8000C652U);
    }
}

TEST_F(Dispatch, DevrmReachesTheRemovedHandler) {
    const Dictionary message{{"req", "devrm"}, {"pid", 7}};
    for (const Access::Client &client : {threaded, forwarded, threadedWithContext, forwardedWithContext}) {
        parse(client, message);
        const ReceivedCall call = only();
        EXPECT_EQ(call.handler, ReceivedCall::Handler::removed);
        EXPECT_EQ(call.productID, 7U);
        EXPECT_EQ(call.withContext, client == threadedWithContext || client == forwardedWithContext);
    }
}

TEST_F(Dispatch, DevaddAndDevrmWithoutPidReachNoHandler) {
    for (const Access::Client &client : {threaded, forwarded}) {
        parse(client, {{"req", "devadd"}});
        parse(client, {{"req", "devrm"}});
    }
    expectNothing();
}

TEST_F(Dispatch, DevrmWithBothHandlersCallsOneWhenThreadedAndBothWhenForwarded) {
    for (const Access::Client &client : {threaded, forwarded})
        Access::setHandlersWithContext(client, nullptr, nullptr, Recorder::removedWithContext, &context);
    parse(threaded, {{"req", "devrm"}, {"pid", 7}});
    EXPECT_FALSE(only().withContext);
    parse(forwarded, {{"req", "devrm"}, {"pid", 7}});
    EXPECT_TRUE(Recorder::instance().dispatchUntil(2));
}

TEST_F(Dispatch, DeviceMessagesWithoutHandlersAreDropped) {
    const Access::Client client = Access::make(Recorder::message, nullptr, nullptr, false);
    parse(client, {{"req", "devadd"}, {"pid", 7}});
    parse(client, {{"req", "devrm"}, {"pid", 7}});
    expectNothing();
}

// ------------------------------------------------------------------------------------------ Preferences

TEST_F(Dispatch, UprfThreadedHandsOutTheNumberAndKeepsThePreferences) {
    const Data prefs(Bytes(152, 0x5A));
    for (const Access::Client &client : {threaded, threadedWithContext}) {
        parse(client, {{"req", "uprf"}, {"arg", 0xFFFFFFFFU}, {"prefs", prefs}});
        const ReceivedCall call = only();
        EXPECT_EQ(call.message, 0x6D765043U);
        EXPECT_EQ(call.productID, 32767U);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(call.argument), 0xFFFFFFFFU);
        EXPECT_EQ(client->m_dataDevicePrefs(), prefs);
    }
}

TEST_F(Dispatch, UprfForwardedHandsOutNull) {
    for (const Access::Client &client : {forwarded, forwardedWithContext}) {
        parse(client, {{"req", "uprf"}, {"arg", 5}, {"prefs", Data(Bytes(152))}});
        const ReceivedCall call = only();
        EXPECT_EQ(call.message, 0x6D765043U);
        EXPECT_EQ(call.productID, 32767U);
        EXPECT_EQ(call.argument, nullptr);
    }
}

TEST_F(Dispatch, UprfReplacesThePreferences) {
    parse(threaded, {{"req", "uprf"}, {"arg", 1}, {"prefs", Data(Bytes{1})}});
    parse(threaded, {{"req", "uprf"}, {"arg", 1}, {"prefs", Data(Bytes{2})}});
    EXPECT_EQ(threaded->m_dataDevicePrefs(), Data(Bytes{2}));
    parse(threaded, {{"req", "uprf"}, {"arg", 1}, {"prefs", "no data"}});
    EXPECT_FALSE(threaded->m_dataDevicePrefs());
}

// ------------------------------------------------------------------------------------------ Command sync

TEST_F(Dispatch, CmdsyncHandsOutTheFirst506Bytes) {
    Bytes data(600);
    std::iota(data.begin(), data.end(), uint8_t{3});
    const Bytes expected(data.begin(), data.begin() + 506);
    const Dictionary message{{"req", "cmdsync"}, {"pid", 41}, {"data", Data(std::span<const uint8_t>(data))}};
    for (const Access::Client &client : {threaded, forwarded, threadedWithContext, forwardedWithContext}) {
        parse(client, message);
        const ReceivedCall call = only();
        EXPECT_EQ(call.message, 0x6D764353U);
        EXPECT_EQ(call.bytes, expected);
        const bool isThreaded = client == threaded || client == threadedWithContext;
        EXPECT_EQ(call.productID, isThreaded ? 32767U : 41U);
    }
}

TEST_F(Dispatch, ShortOrMissingCmdsyncDataIsFilledWithZeros) {
    Bytes expected(506);
    expected[0] = 9;
    parse(threaded, {{"req", "cmdsync"}, {"pid", 41}, {"data", Data(Bytes{9})}});
    EXPECT_EQ(only().bytes, expected);
    parse(forwarded, {{"req", "cmdsync"}});
    EXPECT_EQ(only().bytes, Bytes(506));
}

// ------------------------------------------------------------------------------------------ Pairing

TEST_F(Dispatch, CabdevThreadedHandsOutADataObject) {
    const Dictionary message{{"req", "cabdev"}, {"serial", "A1"}};
    Data seen;
    Recorder::instance().setOnCall(
        [&seen](const ReceivedCall &call) { seen = *static_cast<const Data *>(call.argument); });
    parse(threaded, message);
    const ReceivedCall call = only();
    EXPECT_EQ(call.message, 0x6D76506FU);
    EXPECT_EQ(call.productID, 32767U);
    ASSERT_GT(seen.size(), 8U);
    uint64_t length;
    std::memcpy(&length, seen.bytes().data(), sizeof length);
    EXPECT_EQ(length, seen.size() - 8);
    const Result<Value> dictionary = unarchiveObjectWithData(seen.bytes().subspan(8));
    ASSERT_TRUE(dictionary.ok());
    EXPECT_EQ(*dictionary, Value(message));
}

TEST_F(Dispatch, DataObjectCanBeReadThroughThePlainFunctions) {
    Recorder::instance().setOnCall([](const ReceivedCall &call) {
        const auto data = static_cast<MoxelDataRef>(call.argument);
        EXPECT_GT(MoxelDataGetLength(data), 8U);
        uint64_t length;
        std::memcpy(&length, MoxelDataGetBytePtr(data), sizeof length);
        EXPECT_EQ(length, MoxelDataGetLength(data) - 8);
    });
    parse(threaded, {{"req", "cabdev"}, {"serial", "A1"}});
    only();
    EXPECT_EQ(MoxelDataGetBytePtr(nullptr), nullptr);
    EXPECT_EQ(MoxelDataGetLength(nullptr), 0U);
}

TEST_F(Dispatch, CabdevForwardedHandsOutAPointerToTheBytes) {
    const Dictionary message{{"req", "cabdev"}, {"serial", "A1"}};
    Value seen;
    Recorder::instance().setOnCall([&seen](const ReceivedCall &call) {
        uint64_t length;
        std::memcpy(&length, call.argument, sizeof length);
        const Result<Value> dictionary =
            unarchiveObjectWithData({static_cast<const uint8_t *>(call.argument) + 8, length});
        ASSERT_TRUE(dictionary.ok());
        seen = *dictionary;
    });
    parse(forwardedWithContext, message);
    EXPECT_EQ(only().message, 0x6D76506FU);
    EXPECT_EQ(seen, Value(message));
}

TEST_F(Dispatch, PairinfoTakesItsNameFromCtrlcmd) {
    Value seen;
    Recorder::instance().setOnCall([&seen](const ReceivedCall &call) {
        const Data block = *static_cast<const Data *>(call.argument);
        seen = *unarchiveObjectWithData(block.bytes().subspan(8));
    });
    const Dictionary message{{"req", "pairinfo"}, {"ctrlcmd", "paired"}, {"slot", 2}};
    parse(threaded, message);
    only();
    EXPECT_EQ(seen, Value(Dictionary{{"req", "paired"}, {"slot", 2}}));
    EXPECT_EQ(message["ctrlcmd"], Value("paired")) << "the message itself stays as it was";
}

TEST_F(Dispatch, PairingWithoutMessageHandlerIsDropped) {
    const Access::Client client = Access::make(nullptr, Recorder::added, Recorder::removed, true);
    parse(client, {{"req", "cabdev"}});
    parse(client, {{"req", "pairinfo"}, {"ctrlcmd", "paired"}});
    expectNothing();
}

// ------------------------------------------------------------------------------------------ Other requests

TEST_F(Dispatch, MoxclientctrlIsOnlyLogged) {
    test::CapturedLog log;
    parse(threaded, {{"req", "moxclientctrl"}, {"message", 1}});
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{
                  "-[MoxelClientAPI parseDict:withRequest:], received MOXCLIENTCTRL!!!!!!!!!!!!!!!!!!!!! "
                  "Why?! This shall never happen!"}));
    expectNothing();
}

TEST_F(Dispatch, UnknownNamesAreIgnoredAndNamesCompareExactly) {
    for (const char *name : {"Devadd", "devadd ", "", "setclientmasks"})
        parse(threaded, {{"req", name}, {"pid", 1}});
    threaded->parseDict(nullptr, nullptr);
    expectNothing();
}

TEST_F(Dispatch, WithoutMessageHandlerMessagesAreDropped) {
    for (const bool isThreaded : {true, false}) {
        const Access::Client client = Access::make(nullptr, Recorder::added, Recorder::removed, isThreaded);
        parse(client, {{"req", "uprf"}, {"arg", 1}, {"prefs", Data(Bytes{1})}});
        parse(client, {{"req", "cmdsync"}, {"pid", 1}, {"data", Data(Bytes{1})}});
        EXPECT_EQ(client->m_dataDevicePrefs(), Data(Bytes{1})) << "the preferences are kept all the same";
    }
    expectNothing();
}

TEST_F(Dispatch, WithoutCallerThreadForwardedMessagesAreDropped) {
    Access::setCallerThread(forwarded, nullptr);
    parse(forwarded, {{"req", "devadd"}, {"pid", 1}});
    expectNothing();
}

TEST_F(Dispatch, ForwardedMessagesArriveInTheirOrder) {
    for (uint32_t i = 0; i < 50; ++i)
        parse(forwarded, {{"req", i % 2 ? "devadd" : "devrm"}, {"pid", i}});
    ASSERT_TRUE(Recorder::instance().dispatchUntil(50));
    const std::vector<ReceivedCall> calls = Recorder::instance().calls();
    for (uint32_t i = 0; i < 50; ++i)
        EXPECT_EQ(calls[i].productID, i);
}

TEST_F(Dispatch, BytesForAThreadThatNeverRunsItsLoopAreBounded) {
    test::CapturedLog log;
    const Dictionary message{{"req", "cabdev"}, {"blob", Data(Bytes(size_t{8} << 20))}};
    for (int i = 0; i < 12; ++i)
        parse(forwarded, message);
    EXPECT_EQ(log.countStarting("Error: a message is dropped because"), 4U);
    ASSERT_TRUE(Recorder::instance().dispatchUntil(8));
    parse(forwarded, message);
    ASSERT_TRUE(Recorder::instance().dispatchUntil(9));
}

TEST_F(Dispatch, PairingMessageThatCannotBeArchivedIsDroppedWithAnErrorLine) {
    test::CapturedLog log;
    parse(threaded, {{"req", "cabdev"}, {"slot", UID{1}}});
    EXPECT_EQ(log.countStarting("Error: a pairing message is dropped: "), 1U);
    expectNothing();
}

TEST_F(Dispatch, MessagesForAThreadThatNeverRunsItsLoopAreBounded) {
    test::CapturedLog log;
    for (int i = 0; i < 5000; ++i)
        parse(forwarded, {{"req", "devadd"}, {"pid", i}});
    EXPECT_EQ(log.countStarting("Error: a message is dropped because 4096 others wait"), 904U);
    ASSERT_TRUE(Recorder::instance().dispatchUntil(4096));
    parse(forwarded, {{"req", "devadd"}, {"pid", 1}});
    ASSERT_TRUE(Recorder::instance().dispatchUntil(4097));
}

} // namespace
} // namespace moxel
