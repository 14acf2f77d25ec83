// A registered session with a live daemon: every kind of event reaches the application's handlers.
#include "Moxel Daemon/Motion/TraceParser.h"
#include "Support/CapturedLog.h"
#include "Support/LiveDaemon.h"
#include "Values/KeyedArchive.h"
#include <Moxel/MoxelRunLoop.h>

#include <gtest/gtest.h>

#include <cstring>
#include <numeric>
#include <poll.h>
#include <thread>
#include <unistd.h>

namespace moxel {
namespace {

using Recorder = test::HandlerRecorder;
using test::ReceivedCall;
using Bytes = std::vector<uint8_t>;

/// Both ways of delivery.
class LiveSession : public test::LiveDaemonTest, public ::testing::WithParamInterface<bool> {
  protected:
    [[nodiscard]] static bool threaded() { return GetParam(); }
    [[nodiscard]] static bool waitForCalls(size_t count) {
        return threaded() ? Recorder::instance().waitFor(count) : Recorder::instance().dispatchUntil(count);
    }
    static ReceivedCall call(size_t index) { return Recorder::instance().calls().at(index); }
    /// Where the handlers of this session have to run.
    static void expectThread(const ReceivedCall &call) {
        EXPECT_EQ(call.thread == Thread::current()->identifier(), !threaded());
    }
    static MoxelStateRecord record(uint16_t command, int32_t value) {
        MoxelStateRecord record{};
        record.version = 1;
        record.command = command;
        record.value = value;
        for (int16_t i = 0; i < 6; ++i)
            record.axis[i] = static_cast<int16_t>(value - 100 * i);
        record.buttons = 0x80000001;
        return record;
    }
};

std::string deliveryName(const ::testing::TestParamInfo<bool> &parameter) {
    return parameter.param ? "Threaded" : "OnTheCallerThread";
}

INSTANTIATE_TEST_SUITE_P(Delivery, LiveSession, ::testing::Bool(), deliveryName);

TEST_P(LiveSession, StateRecordsReachTheMessageHandler) {
    startDaemon();
    const uint16_t clientID = beginSession(threaded());
    MoxelStateRecord sent = record(10, -5);
    ASSERT_EQ(moxeld->sendState(clientID, sent), 1U);
    ASSERT_TRUE(waitForCalls(1));
    EXPECT_EQ(call(0).message, 0x6D765352U);
    EXPECT_EQ(call(0).productID, 0U);
    sent.client = clientID;
    EXPECT_EQ(call(0).bytes,
              Bytes(reinterpret_cast<uint8_t *>(&sent), reinterpret_cast<uint8_t *>(&sent + 1)));
    expectThread(call(0));
}

TEST_P(LiveSession, NumberedRecordsArriveCompleteAndInOrder) {
    startDaemon();
    const uint16_t clientID = beginSession(threaded());
    constexpr int count = 2000;
    for (int i = 0; i < count; ++i) {
        ASSERT_EQ(moxeld->sendState(clientID, record(10, i)), 1U);
        if (!threaded() && i % 50 == 0)
            (*RunLoop::current())->dispatch(0);
    }
    ASSERT_TRUE(waitForCalls(count));
    const std::vector<ReceivedCall> calls = Recorder::instance().calls();
    for (int i = 0; i < count; ++i) {
        int32_t value;
        std::memcpy(&value, calls[static_cast<size_t>(i)].bytes.data() + 8, sizeof value);
        ASSERT_EQ(value, i);
    }
}

TEST_P(LiveSession, DeviceArrivalAndRemovalReachTheirHandlers) {
    startDaemon();
    const uint16_t clientID = beginSession(threaded());
    ASSERT_TRUE(moxeld->sendDictionary(clientID, {{"req", "devadd"}, {"pid", 50770}}).ok());
    ASSERT_TRUE(moxeld->sendDictionary(clientID, {{"req", "devrm"}, {"pid", 50771}}).ok());
    ASSERT_TRUE(waitForCalls(2));
    EXPECT_EQ(call(0).handler, ReceivedCall::Handler::added);
    EXPECT_EQ(call(0).productID, 50770U);
    EXPECT_EQ(call(1).handler, ReceivedCall::Handler::removed);
    EXPECT_EQ(call(1).productID, 50771U);
    expectThread(call(0));
    expectThread(call(1));
}

TEST_P(LiveSession, PreferenceUpdatesReachTheMessageHandlerAndAreKept) {
    startDaemon();
    const uint16_t clientID = beginSession(threaded());
    daemon::Data prefs(152);
    std::iota(prefs.begin(), prefs.end(), uint8_t{0});
    ASSERT_TRUE(moxeld->sendDictionary(clientID, {{"req", "uprf"}, {"arg", 77}, {"prefs", prefs}}).ok());
    ASSERT_TRUE(waitForCalls(1));
    EXPECT_EQ(call(0).message, 0x6D765043U);
    EXPECT_EQ(call(0).productID, 32767U);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(call(0).argument), threaded() ? 77U : 0U);
    EXPECT_EQ(CurrentClientViaClientID(clientID)->m_dataDevicePrefs(), Data(std::span<const uint8_t>(prefs)));
}

TEST_P(LiveSession, CommandSynchronisationReachesTheMessageHandler) {
    startDaemon();
    const uint16_t clientID = beginSession(threaded());
    daemon::Data block(506, 0xC5);
    ASSERT_TRUE(moxeld->sendDictionary(clientID, {{"req", "cmdsync"}, {"pid", 12}, {"data", block}}).ok());
    ASSERT_TRUE(waitForCalls(1));
    EXPECT_EQ(call(0).message, 0x6D764353U);
    EXPECT_EQ(call(0).productID, threaded() ? 32767U : 12U);
    EXPECT_EQ(call(0).bytes, block);
}

TEST_P(LiveSession, PairingInformationReachesTheMessageHandler) {
    startDaemon();
    const uint16_t clientID = beginSession(threaded());
    Value seen;
    Recorder::instance().setOnCall([&seen](const ReceivedCall &received) {
        const auto *bytes = static_cast<const uint8_t *>(received.argument);
        if (threaded())
            bytes = MoxelDataGetBytePtr(static_cast<MoxelDataRef>(received.argument));
        uint64_t length;
        std::memcpy(&length, bytes, sizeof length);
        seen = *unarchiveObjectWithData({bytes + sizeof length, length});
    });
    ASSERT_TRUE(
        moxeld->sendDictionary(clientID, {{"req", "pairinfo"}, {"ctrlcmd", "paired"}, {"slot", 2}}).ok());
    ASSERT_TRUE(waitForCalls(1));
    EXPECT_EQ(call(0).message, 0x6D76506FU);
    EXPECT_EQ(seen, Value(Dictionary{{"req", "paired"}, {"slot", 2}}));
}

TEST_P(LiveSession, TheDevicesIdentityComesWithLaterStateRecords) {
    startDaemon();
    const uint16_t clientID = beginSession(threaded());
    ASSERT_TRUE(moxeld->sendDictionary(clientID, {{"req", "udev"}, {"vid", 0x4D58}, {"pid", 0xC652}}).ok());
    ASSERT_TRUE(moxeld->waitUntil(
        [](const daemon::Observation &seen) { return seen.clients.at(0).acknowledgements == 1; }, patience));
    // The acknowledgement goes out before the packet is looked at; a second message settles that it was.
    ASSERT_TRUE(moxeld->sendDictionary(clientID, {{"req", "devadd"}, {"pid", 1}}).ok());
    ASSERT_TRUE(waitForCalls(1));
    ASSERT_EQ(moxeld->sendState(clientID, record(10, 1)), 1U);
    ASSERT_TRUE(waitForCalls(2));
    EXPECT_EQ(call(1).productID, 0xC652U);
}

TEST_P(LiveSession, LongMessagesTravelInSeveralPackets) {
    for (const bool acknowledged : {true, false}) {
        Recorder::instance().clear();
        startDaemon();
        const uint16_t clientID = beginSession(threaded());
        Value seen;
        Recorder::instance().setOnCall([&seen](const ReceivedCall &received) {
            const auto *bytes = static_cast<const uint8_t *>(received.argument);
            if (threaded())
                bytes = MoxelDataGetBytePtr(static_cast<MoxelDataRef>(received.argument));
            uint64_t length;
            std::memcpy(&length, bytes, sizeof length);
            seen = *unarchiveObjectWithData({bytes + sizeof length, length});
        });
        const std::string text(100000, 't');
        ASSERT_TRUE(
            moxeld
                ->sendDictionary(clientID, {{"req", "cabdev"}, {"text", text}}, {.wantsAnswer = acknowledged})
                .ok());
        ASSERT_TRUE(waitForCalls(1));
        EXPECT_EQ(seen.asDictionary()["text"], Value(text));
        const auto packetsRead = moxeld->client(clientID)->packetsRead;
        EXPECT_GE(packetsRead, 49);
        // The daemon counts an acknowledgement only after it has answered it.
        const auto acknowledgements = acknowledged ? packetsRead : 0;
        EXPECT_TRUE(moxeld->waitUntil(
            [=](const daemon::Observation &now) {
                return now.clients.size() == 1 && now.clients[0].acknowledgements == acknowledgements;
            },
            patience));
        endSession();
        moxeld.reset();
    }
}

TEST_P(LiveSession, MessagesOfAllKindsArriveInTheirOrder) {
    startDaemon();
    const uint16_t clientID = beginSession(threaded());
    for (int i = 0; i < 20; ++i)
        ASSERT_TRUE(moxeld->sendDictionary(clientID, {{"req", i % 2 ? "devadd" : "devrm"}, {"pid", i}}).ok());
    ASSERT_TRUE(waitForCalls(20));
    for (uint32_t i = 0; i < 20; ++i)
        EXPECT_EQ(call(i).productID, i);
}

TEST_P(LiveSession, TheLossOfTheDedicatedChannelIsNoticed) {
    test::CapturedLog log;
    startDaemon();
    const uint16_t clientID = beginSession(threaded());
    const ClientRegistry::Client client = CurrentClientViaClientID(clientID);
    ASSERT_TRUE(moxeld->removeChannel(client->channelID()));
    ASSERT_TRUE(log.waitFor("*** void ChannelDisconnectedEntry"));
    while (client->m_refHIDChannelDedicated())
        std::this_thread::yield(); // The line comes just before the change.
    {
        const std::lock_guard lock(*client->m_conditionSignal()); // Until both have changed.
        EXPECT_FALSE(client->m_bHIDChannelDedicatedOpen());
        EXPECT_TRUE(client->m_bHIDChannelBaseOpen());
    }
    UnregisterMoxelClient(clientID);
    EXPECT_TRUE(CurrentPendingClient());
}

TEST_P(LiveSession, ADaemonThatComesBackIsFoundByANewSession) {
    startDaemon();
    beginSession(threaded());
    moxeld.reset();
    endSession();
    startDaemon();
    const uint16_t clientID = beginSession(threaded());
    ASSERT_EQ(moxeld->sendState(clientID, record(10, 1)), 1U);
    EXPECT_TRUE(waitForCalls(1));
}

TEST_P(LiveSession, UnregisteringInsideAHandlerIsSafe) {
    startDaemon();
    const uint16_t clientID = beginSession(threaded());
    const ClientRegistry::Client client = CurrentClientViaClientID(clientID);
    Recorder::instance().setOnCall([clientID](const ReceivedCall &) { UnregisterMoxelClient(clientID); });
    ASSERT_EQ(moxeld->sendState(clientID, record(10, 1)), 1U);
    ASSERT_TRUE(waitForCalls(1));
    EXPECT_TRUE(
        moxeld->waitUntil([](const daemon::Observation &seen) { return seen.clients.empty(); }, patience));
    EXPECT_TRUE(client->stopClientThread()) << "it waits for the cleanup of the thread that unregistered it";
}

TEST_P(LiveSession, SeveralSessionsOfOneProcessGetTheirOwnEvents) {
    startDaemon();
    constexpr size_t sessions = 8;
    std::array<std::atomic<int>, sessions> heard{};
    std::array<uint16_t, sessions> clientIDs{};
    std::atomic<size_t> ready{0};
    std::atomic<bool> done{false};
    std::vector<std::thread> threads;
    const auto handler = [](uint32_t, uint32_t, void *argument, void *context) {
        auto *mine = static_cast<std::pair<std::atomic<int> *, uint16_t *> *>(context);
        EXPECT_EQ(static_cast<MoxelStateRecord *>(argument)->client, *mine->second);
        ++*mine->first;
    };
    for (size_t i = 0; i < sessions; ++i)
        threads.emplace_back([&, i] {
            std::pair<std::atomic<int> *, uint16_t *> mine(&heard[i], &clientIDs[i]);
            EXPECT_EQ(_SetMoxelHandlers(handler, nullptr, nullptr, &mine, threaded()), 0);
            clientIDs[i] = registerAs("Session " + std::to_string(i));
            ++ready;
            while (!done)
                (*RunLoop::current())->dispatch(20);
            endSession();
        });
    while (ready < sessions)
        std::this_thread::yield();
    for (size_t i = 0; i < sessions; ++i) {
        ASSERT_NE(clientIDs[i], 0);
        for (size_t n = 0; n <= i; ++n)
            ASSERT_EQ(moxeld->sendState(clientIDs[i], record(10, 0)), 1U);
    }
    const auto allHeard = [&] {
        for (size_t i = 0; i < sessions; ++i) {
            if (heard[i] != static_cast<int>(i) + 1)
                return false;
        }
        return true;
    };
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!allHeard() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    EXPECT_TRUE(allHeard());
    done = true;
    for (std::thread &thread : threads)
        thread.join();
}

// ------------------------------------------------------------------------------------------ Faults

class FaultySession : public test::LiveDaemonTest {};

/// Faults of one message, after which the session has to go on.
struct MessageFault {
    const char *name;
    std::function<void(daemon::Faults &)> set;
};

class FaultyMessage : public test::LiveDaemonTest, public ::testing::WithParamInterface<MessageFault> {};

std::string faultName(const ::testing::TestParamInfo<MessageFault> &parameter) {
    return parameter.param.name;
}

INSTANTIATE_TEST_SUITE_P(
    Faults, FaultyMessage,
    ::testing::Values(
        MessageFault{"AnnouncedSize0", [](daemon::Faults &faults) { faults.announcedSize = 0; }},
        MessageFault{"AnnouncedSize2049", [](daemon::Faults &faults) { faults.announcedSize = 2049; }},
        MessageFault{"AnnouncedTooShort", [](daemon::Faults &faults) { faults.announcedSize = 40; }},
        MessageFault{"PayloadTooLong", [](daemon::Faults &faults) { faults.payloadLength = 60000; }},
        MessageFault{"PayloadTooShort", [](daemon::Faults &faults) { faults.payloadLength = 10; }},
        MessageFault{"WrongDataID", [](daemon::Faults &faults) { faults.dataID = 3; }},
        MessageFault{"MalformedArchive", [](daemon::Faults &faults) { faults.malformedArchive = true; }},
        MessageFault{"UnreadableSlot",
                     [](daemon::Faults &faults) { faults.refusedGetReports[0x54] = HIDStatus::error; }}),
    faultName);

TEST_P(FaultyMessage, IsDroppedAndTheSessionGoesOn) {
    daemon::Faults faults;
    GetParam().set(faults);
    daemon::Options options;
    options.packetTimeout = std::chrono::milliseconds(500); // Also what the good message has.
    startDaemon(options);
    const uint16_t clientID = beginSession(true);
    moxeld->setFaults(faults);
    ASSERT_TRUE(moxeld->sendDictionary(clientID, {{"req", "devadd"}, {"pid", 666}}).ok());
    MoxelStateRecord record{};
    record.command = 10;
    ASSERT_EQ(moxeld->sendState(clientID, record), 1U); // Comes after the announcement.
    ASSERT_TRUE(Recorder::instance().waitFor(1));
    moxeld->setFaults({});
    // Comes through once the daemon no longer waits for an answer to the first message.
    ASSERT_TRUE(moxeld->sendDictionary(clientID, {{"req", "devadd"}, {"pid", 1}}).ok());
    ASSERT_TRUE(Recorder::instance().waitFor(2));
    EXPECT_EQ(Recorder::instance().calls()[1].productID, 1U);
    for (const ReceivedCall &call : Recorder::instance().calls())
        EXPECT_NE(call.productID, 666U);
}

TEST_F(FaultySession, MalformedReportsAreDroppedAndTheSessionGoesOn) {
    if (test::usesKernel())
        GTEST_SKIP() << "the kernel delivers no short reports";
    startDaemon();
    const uint16_t clientID = beginSession(true);
    for (const Bytes &report : std::vector<Bytes>{{0x35},
                                                  {0x35, 3, 0},
                                                  {0x35, 3, 0, 1, 2, 3},
                                                  {0x35, 4, 0, 17, 0},
                                                  {0x35, 5, 0, 0, 0, 0, 0},
                                                  {0x00, 1},
                                                  Bytes(64, 0xFF)})
        EXPECT_EQ(moxeld->sendInputReport(CurrentClientViaClientID(clientID)->channelID(), report), 1U);
    EXPECT_TRUE(moxeld->sendDictionary(clientID, {{"req", "devadd"}, {"pid", 1}}).ok());
    ASSERT_TRUE(Recorder::instance().waitFor(1));
    EXPECT_EQ(Recorder::instance().calls()[0].productID, 1U);
}

TEST_F(FaultySession, ADaemonThatDiesIsNoticedByEveryCall) {
    startDaemon();
    const uint16_t clientID = beginSession(false);
    const ClientRegistry::Client client = CurrentClientViaClientID(clientID);
    moxeld.reset();
    EXPECT_FALSE(client->setAppInfoRecordExitState(0));
    UnregisterMoxelClient(clientID);
    CleanupMoxelHandlers();
    EXPECT_EQ(CurrentPendingClient(), nullptr);
}

// ------------------------------------------------------------------------------------------ Foreign loops

class ForeignLoop : public test::LiveDaemonTest {};

TEST_F(ForeignLoop, APolledDescriptorBesideOneOfTheApplicationDeliversItsEventsOnItsThread) {
    startDaemon();
    const uint16_t clientID = beginSession(false);
    int own[2];
    ASSERT_EQ(::pipe(own), 0);
    std::thread sender([&] {
        MoxelStateRecord record{};
        record.command = 10;
        for (int i = 0; i < 10; ++i) {
            EXPECT_EQ(moxeld->sendState(clientID, record), 1U);
            EXPECT_EQ(::write(own[1], "x", 1), 1);
        }
    });
    pollfd descriptors[] = {{MoxelRunLoopGetFD(), POLLIN, 0}, {own[0], POLLIN, 0}};
    ASSERT_GE(descriptors[0].fd, 0);
    int ownBytes = 0;
    while (Recorder::instance().count() < 10 || ownBytes < 10) {
        ASSERT_GT(::poll(descriptors, 2, 10000), 0);
        if (descriptors[0].revents) {
            EXPECT_GE(MoxelRunLoopDispatch(0), 0);
        }
        char byte;
        if (descriptors[1].revents && ::read(own[0], &byte, 1) == 1)
            ++ownBytes;
    }
    for (const ReceivedCall &call : Recorder::instance().calls())
        EXPECT_EQ(call.thread, Thread::current()->identifier());
    sender.join();
    ::close(own[0]);
    ::close(own[1]);
}

TEST_F(ForeignLoop, ATraceOfTheDaemonReachesTheHandlers) {
    startDaemon();
    beginSession(true);
    const Result<daemon::TraceBlock> trace = daemon::parseTrace("0 motion 1 2 3 4 5 6\n0 buttons 0x1\n");
    ASSERT_TRUE(trace.ok()) << trace.error().message;
    ASSERT_TRUE(moxeld->playTrace(*trace).ok());
    ASSERT_TRUE(Recorder::instance().waitFor(2));
    const auto calls = Recorder::instance().calls();
    MoxelStateRecord motion;
    std::memcpy(&motion, calls[0].bytes.data(), sizeof motion);
    EXPECT_EQ(motion.axis[0], 1);
    EXPECT_EQ(motion.axis[5], 6);
    MoxelStateRecord buttons;
    std::memcpy(&buttons, calls[1].bytes.data(), sizeof buttons);
    EXPECT_EQ(buttons.buttons, 1U);
}

using NeglectedRunLoop = test::LiveDaemonTest;

TEST_F(NeglectedRunLoop, IsToldInTheLogAndDeliversWhenItRunsAgain) {
    test::CapturedLog log;
    startDaemon();
    const uint16_t clientID = beginSession();
    MoxelStateRecord record{};
    record.command = 10;
    ASSERT_EQ(moxeld->sendState(clientID, record), 1U);
    EXPECT_TRUE(
        log.waitFor("messages have waited for more than 2 s for a thread that does not run its run loop"));
    EXPECT_TRUE(Recorder::instance().calls().empty());
    EXPECT_TRUE(Recorder::instance().dispatchUntil(1));
}

} // namespace
} // namespace moxel
