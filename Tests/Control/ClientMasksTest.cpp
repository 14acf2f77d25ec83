// The masks with which a client tells the daemon which events it wants.
#include "Control/ClientMasks.h"
#include "Support/CapturedLog.h"
#include "Support/ControlledClient.h"
#include "Support/HexBytes.h"
#include "Support/LiveDaemon.h"
#include "Support/Python.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <thread>

namespace moxel {
namespace {

using Recorder = test::HandlerRecorder;
using Bytes = std::vector<uint8_t>;
using Clock = std::chrono::steady_clock;

constexpr uint32_t wantsMotion = 1;
constexpr uint32_t wantsButtons = 2;

const std::string function = "void SetMoxelClientMasks(uint16_t, bool, uint32_t, bool, uint32_t)";

// ------------------------------------------------------------------------------------------ Requests

class ClientMasks : public test::ControlledClientTest {};

/// What SetMoxelClientMask(..., 0xFEDCBA98) sends.
const Bytes eventMaskArchive = test::bytesFromHex(
    "62706C6973743030"                                                                 // header
    "D4010203040506070A"                                                               // 0: dictionary of 4
    "582476657273696F6E"                                                               // 1: "$version"
    "59246172636869766572"                                                             // 2: "$archiver"
    "5424746F70"                                                                       // 3: "$top"
    "58246F626A65637473"                                                               // 4: "$objects"
    "12000186A0"                                                                       // 5: 100000
    "5F100F4E534B657965644172636869766572"                                             // 6: "NSKeyedArchiver"
    "D10809"                                                                           // 7: dictionary of 1
    "54726F6F74"                                                                       // 8: "root"
    "8001"                                                                             // 9: UID 1
    "AC0B0C1C1D1E1F202122232425"                                                       // 10: array of 12
    "55246E756C6C"                                                                     // 11: "$null"
    "D30D0E0F10161B"                                                                   // 12: dictionary of 3
    "574E532E6B657973"                                                                 // 13: "NS.keys"
    "5A4E532E6F626A65637473"                                                           // 14: "NS.objects"
    "5624636C617373"                                                                   // 15: "$class"
    "A51112131415"                                                                     // 16: array of 5
    "8002"                                                                             // 17: UID 2
    "8003"                                                                             // 18: UID 3
    "8004"                                                                             // 19: UID 4
    "8005"                                                                             // 20: UID 5
    "8006"                                                                             // 21: UID 6
    "A51718191A1A"                                                                     // 22: array of 5
    "8007"                                                                             // 23: UID 7
    "8008"                                                                             // 24: UID 8
    "8009"                                                                             // 25: UID 9
    "800A"                                                                             // 26: UID 10
    "800B"                                                                             // 27: UID 11
    "53726571"                                                                         // 28: "req"
    "58627365746D61736B"                                                               // 29: "bsetmask"
    "5A636C69656E746D61736B"                                                           // 30: "clientmask"
    "5E62736574627574746F6E6D61736B"                                                   // 31: "bsetbuttonmask"
    "5A627574746F6E6D61736B"                                                           // 32: "buttonmask"
    "5E736574636C69656E746D61736B73"                                                   // 33: "setclientmasks"
    "1001"                                                                             // 34: 1
    "12FEDCBA98"                                                                       // 35: 4275878552
    "1000"                                                                             // 36: 0
    "D226272829"                                                                       // 37: dictionary of 2
    "5A24636C6173736E616D65"                                                           // 38: "$classname"
    "5824636C6173736573"                                                               // 39: "$classes"
    "5C4E5344696374696F6E617279"                                                       // 40: "NSDictionary"
    "A2282A"                                                                           // 41: array of 2
    "584E534F626A656374"                                                               // 42: "NSObject"
    "00080011001A00240029003200370049004C0051005300600066006D007500800087008D008F0091" // offsets
    "009300950097009D009F00A100A300A500A700AB00B400BF00CE00D900E800EA00EF00F100F60101"
    "010A0117011A"
    "0000000000000201000000000000002B00000000000000000000000000000123" // trailer
);

TEST_F(ClientMasks, RequestIsThisArchiveByteForByte) {
    SetMoxelClientMask(clientID, 0xFEDCBA98);
    ASSERT_EQ(blocks().size(), 1U);
    EXPECT_EQ(blocks()[0], eventMaskArchive);
    ASSERT_EQ(announcements().size(), 1U);
    Bytes announcement{6, 0, 49, 0, 0x99, 0x01, 0, 0};
    announcement.resize(38);
    EXPECT_EQ(announcements()[0], announcement);
}

TEST_F(ClientMasks, RequestHasAllFourKeysInTheirKinds) {
    if (!test::hasPython())
        GTEST_SKIP() << "the build found no python3";
    const auto kinds = [this] {
        const Bytes block = blocks().back();
        return test::runPython(R"(
import plistlib, sys
objects = plistlib.loads(sys.stdin.buffer.read())['$objects']
request = objects[1]
print(*(f'{objects[key.data]}={type(objects[value.data]).__name__}:{objects[value.data]}'
        for key, value in zip(request['NS.keys'], request['NS.objects'])))
)",
                               std::string(block.begin(), block.end()))
            .output;
    };
    SetMoxelClientMask(clientID, 0xFFFFFFFF);
    EXPECT_EQ(kinds(), "req=str:setclientmasks bsetmask=int:1 clientmask=int:4294967295 "
                       "bsetbuttonmask=int:0 buttonmask=int:0\n");
    SetMoxelClientButtonMask(clientID, 0x80000001);
    EXPECT_EQ(kinds(), "req=str:setclientmasks bsetmask=int:0 clientmask=int:0 "
                       "bsetbuttonmask=int:1 buttonmask=int:2147483649\n");
    SetMoxelClientMasks(clientID, false, 5, false, 6);
    EXPECT_EQ(kinds(), "req=str:setclientmasks bsetmask=int:0 clientmask=int:5 "
                       "bsetbuttonmask=int:0 buttonmask=int:6\n")
        << "both masks, whatever the flags say";
    SetMoxelClientMasks(clientID, true, 7, true, 8);
    EXPECT_EQ(kinds(), "req=str:setclientmasks bsetmask=int:1 clientmask=int:7 "
                       "bsetbuttonmask=int:1 buttonmask=int:8\n");
}

TEST_F(ClientMasks, CallIsLoggedWithSignedMasks) {
    test::CapturedLog log;
    SetMoxelClientMasks(clientID, true, 0xFFFFFFFF, false, 0x80000000);
    const std::vector<std::string> lines = log.lines();
    ASSERT_GE(lines.size(), 2U);
    EXPECT_EQ(lines[0], function + " clientID 4660 mask -1 buttonMask -2147483648, thread = " + threadKey());
    EXPECT_EQ(lines[1], "*** " + function + ", client=" + clientAddress());
}

TEST_F(ClientMasks, OfAnUnknownClientAreOnlyLogged) {
    test::CapturedLog log;
    SetMoxelClientMask(clientID + 1, 3);
    SetMoxelClientButtonMask(clientID + 1, 4);
    EXPECT_EQ(reportCount(), 0U);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{
                               function + " clientID 4661 mask 3 buttonMask 0, thread = " + threadKey(),
                               function + " clientID 4661 mask 0 buttonMask 4, thread = " + threadKey()}));
}

TEST_F(ClientMasks, Client0IsThatOfTheCallingThread) {
    SetMoxelClientMask(0, 1);
    EXPECT_EQ(blocks().size(), 1U);
    std::thread([] { SetMoxelClientMask(0, 1); }).join();
    EXPECT_EQ(blocks().size(), 1U) << "another thread has no client";
    std::thread([] { SetMoxelClientMask(clientID, 1); }).join();
    EXPECT_EQ(blocks().size(), 2U);
}

TEST_F(ClientMasks, FailuresOfTheChannelAreSwallowed) {
    dedicated->setReportStatus = HIDStatus::error;
    SetMoxelClientMask(clientID, 1);
    EXPECT_EQ(reportCount(), 1U) << "written, refused, not announced";
    client->setM_refHIDChannelDedicated(nullptr);
    SetMoxelClientMask(clientID, 1);
    EXPECT_EQ(reportCount(), 1U);
}

TEST_F(ClientMasks, HoldTheClassLockUntilTheyAreSent) {
    EXPECT_EQ(locksDuring([] { SetMoxelClientMask(clientID, 1); }), (std::vector<bool>{true, true, false}));
}

TEST_F(ClientMasks, WaitForTheAcknowledgement) {
    test::CapturedLog log;
    acknowledges = false;
    const auto start = Clock::now();
    SetMoxelClientButtonMask(clientID, 1);
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(2000));
    EXPECT_EQ(log.countContaining("Failed to receive ACK packet in time...!"), 1U);
}

// ------------------------------------------------------------------------------------------ Live

class LiveClientMasks : public test::LiveDaemonTest {
  protected:
    static MoxelStateRecord record(uint16_t command, uint32_t buttons) {
        MoxelStateRecord record{};
        record.command = command;
        record.buttons = buttons;
        return record;
    }
    /// The commands of the state records that reached the handler.
    static std::vector<uint16_t> commands() {
        std::vector<uint16_t> commands;
        for (const test::ReceivedCall &call : Recorder::instance().calls())
            commands.push_back(recordIn(call).command);
        return commands;
    }
    static MoxelStateRecord recordIn(const test::ReceivedCall &call) {
        MoxelStateRecord record;
        EXPECT_EQ(call.bytes.size(), sizeof record);
        std::memcpy(&record, call.bytes.data(), sizeof record);
        return record;
    }
};

TEST_F(LiveClientMasks, RequestReachesTheDaemonAndIsAcknowledged) {
    startDaemon();
    const uint16_t clientID = beginSession();
    test::CapturedLog log;
    SetMoxelClientMask(clientID, 0xFFFFFFFE);
    EXPECT_EQ(moxeld->client(clientID)->eventMask, 0xFFFFFFFEU);
    SetMoxelClientButtonMask(clientID, 0x80000001);
    EXPECT_EQ(moxeld->client(clientID)->eventMask, 0xFFFFFFFEU) << "only the mask whose flag is set";
    EXPECT_EQ(moxeld->client(clientID)->buttonMask, 0x80000001U);
    EXPECT_EQ(log.countContaining("Error"), 0U);
    const auto request = moxeld->waitForRequest(
        [](const daemon::ReceivedRequest &received) {
            return received.name == "setclientmasks" && *received.dictionary.find("bsetbuttonmask") == 1;
        },
        patience);
    ASSERT_TRUE(request);
    EXPECT_EQ(request->clientID, clientID);
    EXPECT_EQ(request->requestID, 49);
    EXPECT_EQ(request->command, 0);
    EXPECT_TRUE(request->problem.empty());
    EXPECT_EQ(request->dictionary, (daemon::Dictionary{{"req", "setclientmasks"},
                                                       {"bsetmask", 0},
                                                       {"clientmask", 0},
                                                       {"bsetbuttonmask", 1},
                                                       {"buttonmask", 0x80000001}}));
}

TEST_F(LiveClientMasks, ClientThatMasksMotionOutGetsNone) {
    startDaemon();
    const uint16_t clientID = beginSession();
    SetMoxelClientMask(clientID, wantsButtons);
    EXPECT_EQ(moxeld->sendState(clientID, record(3, 0)), 0U);
    EXPECT_EQ(moxeld->sendState(clientID, record(2, 1)), 1U);
    ASSERT_TRUE(Recorder::instance().dispatchUntil(1));
    EXPECT_EQ(commands(), (std::vector<uint16_t>{2}));
    SetMoxelClientMask(clientID, wantsMotion);
    EXPECT_EQ(moxeld->sendState(clientID, record(2, 0)), 0U);
    EXPECT_EQ(moxeld->sendState(clientID, record(3, 0)), 1U);
    ASSERT_TRUE(Recorder::instance().dispatchUntil(2));
    EXPECT_EQ(commands(), (std::vector<uint16_t>{2, 3}));
}

TEST_F(LiveClientMasks, ButtonsThatAreMaskedOutAreNotSeen) {
    startDaemon();
    const uint16_t clientID = beginSession();
    SetMoxelClientButtonMask(clientID, 0x80000001);
    EXPECT_EQ(moxeld->sendState(clientID, record(2, 0x00000002)), 0U) << "no wanted button changed";
    EXPECT_EQ(moxeld->sendState(clientID, record(2, 0x80000003)), 1U);
    ASSERT_TRUE(Recorder::instance().dispatchUntil(1));
    EXPECT_EQ(+recordIn(Recorder::instance().calls()[0]).buttons, 0x80000001U);
    SetMoxelClientButtonMask(clientID, 0xFFFFFFFF);
    EXPECT_EQ(moxeld->sendState(clientID, record(2, 0x80000002)), 1U);
    ASSERT_TRUE(Recorder::instance().dispatchUntil(2));
    EXPECT_EQ(+recordIn(Recorder::instance().calls()[1]).buttons, 0x80000002U);
}

} // namespace
} // namespace moxel
