// Control codes: those that the library answers itself and those that go to the daemon.
#include "Support/CapturedLog.h"
#include "Support/ControlledClient.h"
#include "Support/HexBytes.h"
#include "Support/LiveDaemon.h"
#include "Support/Python.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <thread>

namespace moxel {
namespace {

using Bytes = std::vector<uint8_t>;
using Clock = std::chrono::steady_clock;

constexpr uint32_t ignoredCode = 0x6D766568;  // 'mveh'
constexpr uint32_t deviceIDCode = 0x6D766964; // 'mvid'
constexpr uint32_t otherCode = 0x6D76424C;    // 'mvBL'
constexpr int32_t untouched = 0x5A5A5A5A;

const std::string function = "int16_t MoxelClientControl(uint16_t, uint32_t, int32_t, int32_t *)";

/// The lines with which a call begins.
std::vector<std::string> entryLines(const std::string &threadKey, const std::string &call) {
    char number[32];
    std::snprintf(number, sizeof number, "%lu", std::stoul(threadKey, nullptr, 16));
    return {"Entry: MoxelClientControl, thread = " + threadKey, "1 MoxelClientControl " + call + "\n",
            "2 MoxelClientControl: currThr=" + Thread::current()->description() + ", nval=" + number};
}

// ------------------------------------------------------------------------------------------ Codes

TEST(ControlWithoutAClient, IgnoredCodeReturns0AndDoesNothing) {
    test::CapturedLog log;
    int32_t result = untouched;
    EXPECT_EQ(MoxelControl(ignoredCode, 1, &result), 0);
    EXPECT_EQ(MoxelControl(ignoredCode, 1, nullptr), 0);
    EXPECT_EQ(result, untouched);
    EXPECT_TRUE(log.lines().empty());
}

TEST(ControlWithoutAClient, EveryOtherCodeFails) {
    int32_t result = untouched;
    EXPECT_EQ(MoxelControl(deviceIDCode, 0, &result), -1);
    EXPECT_EQ(MoxelControl(otherCode, 0, &result), -1);
    EXPECT_EQ(MoxelClientControl(1, ignoredCode, 0, &result), -1);
    EXPECT_EQ(result, untouched);
}

class ClientControl : public test::ControlledClientTest {
  protected:
    /// The members of the last request, each with its type, as an independent reader sees them.
    [[nodiscard]] std::string lastRequest() const {
        const Bytes block = blocks().back();
        return test::runPython(R"(
import plistlib, sys
objects = plistlib.loads(sys.stdin.buffer.read())['$objects']
request = objects[1]
print(*(f'{objects[key.data]}={type(objects[value.data]).__name__}:{objects[value.data]}'
        for key, value in zip(request['NS.keys'], request['NS.objects'])), end='')
)",
                               std::string(block.begin(), block.end()))
            .output;
    }
};

TEST_F(ClientControl, OfAnUnknownClientFailsAndSendsNothing) {
    test::CapturedLog log;
    int32_t result = untouched;
    EXPECT_EQ(MoxelClientControl(clientID + 1, otherCode, -1, &result), -1);
    EXPECT_EQ(reportCount(), 0U);
    EXPECT_EQ(result, untouched);
    EXPECT_EQ(log.lines(), entryLines(threadKey(), "id=4661, message=mvBL, param=ffffffff"));
}

TEST_F(ClientControl, DeviceIDIsTheDefaultWhileNoDeviceIsKnown) {
    int32_t result = untouched;
    EXPECT_EQ(MoxelClientControl(clientID, deviceIDCode, 0, &result), 0);
    EXPECT_EQ(result, kMoxelDefaultDeviceID);
    EXPECT_EQ(result, 0x4D580001) << "vendor identifier, product identifier";
    EXPECT_EQ(reportCount(), 0U);
}

TEST_F(ClientControl, DeviceIDIsVendorAndProduct) {
    int32_t result = 0;
    client->setM_uVendorID(0xFEDC);
    client->setM_uProductID(0xBA98);
    EXPECT_EQ(MoxelClientControl(clientID, deviceIDCode, 0, &result), 0);
    EXPECT_EQ(static_cast<uint32_t>(result), 0xFEDCBA98);
    client->setM_uVendorID(0);
    EXPECT_EQ(MoxelClientControl(clientID, deviceIDCode, 0, &result), 0);
    EXPECT_EQ(result, 0xBA98) << "not the default: one of them is known";
    client->setM_uVendorID(0x4D58);
    client->setM_uProductID(0);
    EXPECT_EQ(MoxelControl(deviceIDCode, 0, &result), 0);
    EXPECT_EQ(result, 0x4D580000);
    EXPECT_EQ(reportCount(), 0U);
}

TEST_F(ClientControl, DeviceIDNeedsAPlaceForTheResult) {
    EXPECT_EQ(MoxelClientControl(clientID, deviceIDCode, 0, nullptr), -1);
}

TEST_F(ClientControl, DeviceIDIsLoggedWithoutAnExit) {
    test::CapturedLog log;
    int32_t result = 0;
    EXPECT_EQ(MoxelClientControl(clientID, deviceIDCode, 0, &result), 0);
    std::vector<std::string> expected = entryLines(threadKey(), "id=4660, message=mvid, param=0");
    expected.push_back("*** " + function + ", client=" + clientAddress());
    EXPECT_EQ(log.lines(), expected);
}

TEST_F(ClientControl, OtherCodesGoToTheDaemonWithTheirParameter) {
    if (!test::hasPython())
        GTEST_SKIP() << "the build found no python3";
    EXPECT_EQ(MoxelClientControl(clientID, otherCode, 7, nullptr), 0);
    EXPECT_EQ(lastRequest(), "req=str:moxclientctrl message=int:1836466764 ctrlparm=int:7");
    EXPECT_EQ(MoxelClientControl(clientID, 0xFFFFFFFF, -2, nullptr), 0);
    EXPECT_EQ(lastRequest(), "req=str:moxclientctrl message=int:4294967295 ctrlparm=int:4294967294");
    EXPECT_EQ(MoxelClientControl(clientID, ignoredCode, 0, nullptr), 0);
    EXPECT_EQ(lastRequest(), "req=str:moxclientctrl message=int:1836475752 ctrlparm=int:0")
        << "only MoxelControl ignores it";
    EXPECT_EQ(MoxelControl(otherCode, 8, nullptr), 0);
    EXPECT_EQ(lastRequest(), "req=str:moxclientctrl message=int:1836466764 ctrlparm=int:8");
}

TEST_F(ClientControl, RequestIsThisArchiveByteForByte) {
    EXPECT_EQ(MoxelClientControl(clientID, otherCode, 7, nullptr), 0);
    ASSERT_EQ(blocks().size(), 1U);
    EXPECT_EQ(
        blocks()[0],
        test::bytesFromHex(
            "62706c6973743030d4010203040506070a582476657273696f6e592461726368697665725424746f7058246f626a6563"
            "74"
            "7312000186a05f100f4e534b657965644172636869766572d1080954726f6f748001a90b0c191a1b1c1d1e1f55246e75"
            "6c"
            "6cd30d0e0f101418574e532e6b6579735a4e532e6f626a656374735624636c617373a3111213800280038004a3151617"
            "80"
            "05800680078008"
            "53726571576d657373616765586374726c7061726d5d6d6f78636c69656e746374726c126d76424c1007d220212223"
            "5a24636c6173736e616d655824636c61737365735c4e5344696374696f6e617279a22224584e534f626a65637408111a"
            "24"
            "293237494c51535d636a727d84888a8c8e929496989a9ea6afbdc2c4c9d4ddeaed000000000000010100000000000000"
            "25"
            "000000000000000000000000000000f6"));
}

TEST_F(ClientControl, RequestIsAnnouncedOnTheDedicatedChannel) {
    EXPECT_EQ(MoxelClientControl(clientID, otherCode, 7, nullptr), 0);
    ASSERT_EQ(dedicated->reports.size(), 2U);
    const Bytes tag{0x88, 0x77, 0x66, 0x55, 0x44, 0x33, 0x22, 0x11};
    for (const test::SentReport &report : dedicated->reports)
        EXPECT_TRUE(std::equal(tag.begin(), tag.end(), report.bytes.begin()));
    const size_t length = blocks()[0].size();
    Bytes announcement{6, 0, 49, 0, static_cast<uint8_t>(length & 0xFF), static_cast<uint8_t>(length >> 8),
                       0, 0};
    announcement.resize(38);
    EXPECT_EQ(announcements()[0], announcement);
}

TEST_F(ClientControl, ResultIsNotWrittenForCodesOfTheDaemon) {
    int32_t result = untouched;
    EXPECT_EQ(MoxelClientControl(clientID, otherCode, 7, &result), 0);
    EXPECT_EQ(result, untouched);
}

TEST_F(ClientControl, IsLoggedFromEntryToExit) {
    test::CapturedLog log;
    EXPECT_EQ(MoxelClientControl(clientID, otherCode, -2, nullptr), 0);
    const std::vector<std::string> lines = log.lines();
    std::vector<std::string> expected = entryLines(threadKey(), "id=4660, message=mvBL, param=fffffffe");
    expected.push_back("*** " + function + ", client=" + clientAddress());
    ASSERT_GT(lines.size(), expected.size());
    EXPECT_EQ(std::vector<std::string>(lines.begin(), lines.begin() + 4), expected);
    EXPECT_EQ(lines.back(), "Exit: MoxelClientControl message 6d76424c param -2 error 0");
}

TEST_F(ClientControl, HoldsTheClassLockUntilItIsSent) {
    EXPECT_EQ(locksDuring([] { EXPECT_EQ(MoxelClientControl(clientID, otherCode, 1, nullptr), 0); }),
              (std::vector<bool>{true, true, false}));
}

TEST_F(ClientControl, ThatCannotBeSentFails) {
    test::CapturedLog log;
    dedicated->setReportStatus = HIDStatus::error;
    EXPECT_EQ(MoxelClientControl(clientID, otherCode, 3, nullptr), -1);
    EXPECT_EQ(log.lines().back(), "Exit: MoxelClientControl message 6d76424c param 3 error -1");
    client->setM_refHIDChannelDedicated(nullptr);
    EXPECT_EQ(MoxelClientControl(clientID, otherCode, 3, nullptr), -1);
}

TEST_F(ClientControl, LetsNoExceptionOut) {
    dedicated->onSetReport = [](const test::SentReport &) { throw std::runtime_error("from the platform"); };
    EXPECT_EQ(MoxelClientControl(clientID, otherCode, 3, nullptr), -1);
}

TEST_F(ClientControl, Client0IsThatOfTheCallingThread) {
    int32_t result = untouched;
    EXPECT_EQ(MoxelClientControl(0, deviceIDCode, 0, &result), 0);
    std::thread([&] {
        EXPECT_EQ(MoxelControl(deviceIDCode, 0, &result), -1);
        EXPECT_EQ(MoxelClientControl(clientID, deviceIDCode, 0, &result), 0);
    }).join();
}

// ------------------------------------------------------------------------------------------ Live

class LiveClientControl : public test::LiveDaemonTest {
  protected:
    /// The control request with that parameter, once the daemon has it.
    [[nodiscard]] std::optional<daemon::ReceivedRequest> requestWith(int32_t parameter) const {
        return moxeld->waitForRequest(
            [parameter](const daemon::ReceivedRequest &request) {
                const auto control = daemon::controlRequest(request.dictionary);
                return control && control->parameter == parameter;
            },
            patience);
    }
};

TEST_F(LiveClientControl, CodeAndParameterReachTheDaemon) {
    startDaemon();
    const uint16_t clientID = beginSession();
    EXPECT_EQ(MoxelClientControl(clientID, otherCode, -3, nullptr), 0);
    const auto request = requestWith(-3);
    ASSERT_TRUE(request);
    EXPECT_EQ(daemon::controlRequest(request->dictionary), (daemon::ControlRequest{otherCode, -3}));
    EXPECT_EQ(
        request->dictionary,
        (daemon::Dictionary{{"req", "moxclientctrl"}, {"message", otherCode}, {"ctrlparm", 0xFFFFFFFDU}}));
    EXPECT_EQ(request->requestID, 49);
    EXPECT_EQ(request->command, 0);
    EXPECT_EQ(request->clientID, clientID);
    EXPECT_TRUE(request->problem.empty());
}

TEST_F(LiveClientControl, IdentityOfTheDriverIsTheDeviceIDWithoutACallback) {
    startDaemon();
    const uint16_t clientID = beginSession();
    int32_t result = 0;
    EXPECT_EQ(MoxelControl(deviceIDCode, 0, &result), 0);
    EXPECT_EQ(result, kMoxelDefaultDeviceID);
    ASSERT_TRUE(moxeld->sendDictionary(clientID, {{"req", "udev"}, {"vid", 0x4D58}, {"pid", 0xC62B}}).ok());
    // The next message has been handled after the identity.
    ASSERT_TRUE(moxeld->sendDictionary(clientID, {{"req", "devadd"}, {"pid", 1}}).ok());
    ASSERT_TRUE(test::HandlerRecorder::instance().dispatchUntil(1));
    EXPECT_EQ(test::HandlerRecorder::instance().count(), 1U);
    EXPECT_EQ(MoxelControl(deviceIDCode, 0, &result), 0);
    EXPECT_EQ(result, 0x4D58C62B);
}

TEST_F(LiveClientControl, ThatIsNeverAcknowledgedFailsAfter2SecondsWhileOtherThreadsQueueAndThenRun) {
    startDaemon();
    const uint16_t clientID = beginSession();
    daemon::Faults faults;
    faults.noAcknowledgement = true;
    moxeld->setFaults(faults);
    test::CapturedLog log;
    int16_t waitingResult = 0;
    Clock::duration waited{};
    std::thread waiting([&] {
        const auto start = Clock::now();
        waitingResult = MoxelClientControl(clientID, otherCode, 100, nullptr);
        waited = Clock::now() - start;
    });
    // The first call holds the lock now; from here on the daemon acknowledges again.
    const auto unanswered = requestWith(100);
    EXPECT_TRUE(unanswered);
    moxeld->setFaults({});
    int32_t deviceID = 0;
    std::thread local([&] { EXPECT_EQ(MoxelClientControl(clientID, deviceIDCode, 1, &deviceID), 0); });
    std::thread remote([&] { EXPECT_EQ(MoxelClientControl(clientID, otherCode, 101, nullptr), 0); });
    std::thread masks([&] { SetMoxelClientMask(clientID, 5); });
    std::thread message([&] { EXPECT_EQ(MoxelClientSendMessage(clientID, 0, "hello", 5), 0); });
    EXPECT_TRUE(log.waitFor("message=mvid, param=1\n"));
    EXPECT_TRUE(log.waitFor("message=mvBL, param=65\n"));
    EXPECT_TRUE(log.waitFor("mask 5 buttonMask 0"));
    for (std::thread *thread : {&waiting, &local, &remote, &masks, &message})
        thread->join();

    EXPECT_EQ(waitingResult, -1);
    EXPECT_GE(waited, std::chrono::milliseconds(2000));
    EXPECT_LT(waited, std::chrono::milliseconds(4000));
    EXPECT_EQ(deviceID, kMoxelDefaultDeviceID);
    EXPECT_EQ(moxeld->client(clientID)->eventMask, 5U);
    EXPECT_TRUE(requestWith(101));
    EXPECT_TRUE(moxeld->waitForMessage(patience));

    const std::vector<std::string> lines = log.lines();
    const auto lineStarting = [&lines](std::string_view start) {
        return std::ranges::find_if(lines, [start](const auto &line) { return line.starts_with(start); });
    };
    const auto timeout =
        std::ranges::find(lines, "-[MoxelClientAPI sendUserRequestData:onChannel:requestID:andCommand:"
                                 "requireACK:], Error: Timeout - Failed to receive ACK packet in time...!");
    const auto exit = lineStarting("Exit: MoxelClientControl message 6d76424c param 100 error -1");
    ASSERT_NE(timeout, lines.end());
    ASSERT_NE(exit, lines.end());
    EXPECT_LT(timeout, exit);
    EXPECT_EQ(std::count_if(lines.begin(), timeout,
                            [](const std::string &line) { return line.starts_with("*** "); }),
              1)
        << "another call got past the lock while the first one waited";
    EXPECT_EQ(
        std::count_if(timeout, lines.end(), [](const std::string &line) { return line.starts_with("*** "); }),
        3);
    EXPECT_GT(lineStarting("Exit: MoxelClientControl message 6d76424c param 101 error 0"), exit);
}

TEST_F(LiveClientControl, OnTheThreadOfTheHandlersFailsAndLeavesTheSessionAlone) {
    daemon::Options options;
    options.packetTimeout = patience; // The handler keeps the client from reading for 2 s.
    startDaemon(std::move(options));
    const uint16_t clientID = beginSession(true);
    int16_t result = 0;
    test::HandlerRecorder::instance().setOnCall([&](const test::ReceivedCall &call) {
        if (call.productID == 1)
            result = MoxelClientControl(clientID, otherCode, 1, nullptr);
    });
    for (const uint32_t device : {1U, 2U})
        ASSERT_TRUE(moxeld->sendDictionary(clientID, {{"req", "devadd"}, {"pid", device}}).ok());
    ASSERT_TRUE(test::HandlerRecorder::instance().waitFor(2));
    EXPECT_EQ(result, -1) << "the acknowledgement cannot arrive while the handler waits for it";
}

TEST_F(LiveClientControl, AfterTheSessionEndedFails) {
    startDaemon();
    const uint16_t clientID = beginSession();
    EXPECT_EQ(MoxelClientControl(clientID, otherCode, 1, nullptr), 0);
    endSession();
    EXPECT_EQ(MoxelClientControl(clientID, otherCode, 2, nullptr), -1);
    EXPECT_EQ(MoxelControl(otherCode, 2, nullptr), -1);
}

} // namespace
} // namespace moxel
