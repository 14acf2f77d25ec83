// Classification of input reports, the daemon's requests and responses, and joining of packets.
#include "Helpers/Condition.h"
#include "Platform/RunLoop.h"
#include "Platform/Session.h"
#include "Session/ChannelCallbacks.h"
#include "Session/ClientRegistry.h"
#include "Support/CapturedLog.h"
#include "Support/ClientTestAccess.h"
#include "Support/FakeHIDDevice.h"
#include "Support/HandlerRecorder.h"
#include "Values/KeyedArchive.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace moxel {
namespace {

using Access = MoxelClientTestAccess;
using Recorder = test::HandlerRecorder;
using test::FakeHIDDevice;
using Bytes = std::vector<uint8_t>;

const std::string selector = "-[MoxelClientAPI handleIncomingData:ofLength:withType:andID:fromSender:]";

Bytes padded(Bytes report) {
    report.resize(64);
    return report;
}

Bytes announcement(uint16_t size, uint8_t flag) {
    return padded({0x35, 4, 0, 17, 0, static_cast<uint8_t>(size), static_cast<uint8_t>(size >> 8), flag});
}

Bytes packet(uint16_t dataID, bool last, const Bytes &payload) {
    const auto length = static_cast<uint16_t>(payload.size());
    Bytes bytes(6 + payload.size());
    bytes[0] = static_cast<uint8_t>(dataID);
    bytes[1] = static_cast<uint8_t>(dataID >> 8);
    bytes[2] = static_cast<uint8_t>(length);
    bytes[3] = static_cast<uint8_t>(length >> 8);
    bytes[4] = last;
    bytes[5] = 1;
    std::ranges::copy(payload, bytes.begin() + 6);
    return bytes;
}

Bytes archiveOf(const Dictionary &dictionary) {
    const Result<Data> archive = archivedDataWithRootObject(dictionary);
    EXPECT_TRUE(archive.ok());
    return {archive->bytes().begin(), archive->bytes().end()};
}

class IncomingData : public testing::Test {
  protected:
    void SetUp() override {
        Recorder::instance().clear();
        make(true);
    }
    void make(bool threaded) {
        client = Access::make(Recorder::message, Recorder::added, Recorder::removed, threaded);
        client->setChannelID(0x77);
        client->setM_refHIDChannelDedicated(channel);
        client->setM_uProductID(0xC652);
        channel->registerInputReportCallback(buffer, HandleIncomingDataDedicated, client.get());
    }
    /// Puts a packet into slot 0 and announces it.
    void announce(const Bytes &slot, uint8_t flag = 0) {
        channel->slot = slot;
        channel->receive(announcement(static_cast<uint16_t>(slot.size()), flag));
    }
    static size_t calls() { return Recorder::instance().count(); }
    static Bytes tagged(Bytes payload, size_t size) {
        Bytes report{0x77, 0, 0, 0, 0, 0, 0, 0};
        report.insert(report.end(), payload.begin(), payload.end());
        report.resize(8 + size);
        return report;
    }

    std::shared_ptr<FakeHIDDevice> channel = FakeHIDDevice::channel("dedicated");
    std::array<uint8_t, 64> buffer{};
    Access::Client client;
};

Bytes stateReport() {
    Bytes report{0x35, 3, 0, 0xEE, 0xEE, 0xEE, 0xEE};
    for (uint8_t i = 0; i < 48; ++i)
        report.push_back(static_cast<uint8_t>(0x80 + i));
    return padded(report);
}

// ------------------------------------------------------------------------------------------ Who is heard

TEST_F(IncomingData, StateRecordIsExactlyThe48BytesReceived) {
    channel->receive(stateReport());
    ASSERT_EQ(calls(), 1U);
    const test::ReceivedCall call = Recorder::instance().calls()[0];
    EXPECT_EQ(call.productID, 0xC652U);
    EXPECT_EQ(call.message, 0x6D765352U);
    const Bytes report = stateReport();
    EXPECT_EQ(call.bytes, Bytes(report.begin() + 7, report.begin() + 55));
}

TEST_F(IncomingData, StateRecordHasItsFieldsAtTheirOffsets) {
    Recorder::instance().setOnCall([](const test::ReceivedCall &call) {
        const auto *record = static_cast<const MoxelStateRecord *>(call.argument);
        EXPECT_EQ(record->version, 0x8180);
        EXPECT_EQ(record->client, 0x8382);
        EXPECT_EQ(record->command, 0x8584);
        EXPECT_EQ(record->param, static_cast<int16_t>(0x8786));
        EXPECT_EQ(record->value, static_cast<int32_t>(0x8B8A8988));
        const uint64_t time = record->time;
        EXPECT_EQ(time, 0x939291908F8E8D8C);
        EXPECT_EQ(record->report[0], 0x94);
        EXPECT_EQ(record->report[7], 0x9B);
        EXPECT_EQ(record->buttons8, 0x9D9C);
        EXPECT_EQ(record->appEventPressed, 0x9D9C);
        EXPECT_EQ(record->axis[0], static_cast<int16_t>(0x9F9E));
        EXPECT_EQ(record->axis[5], static_cast<int16_t>(0xA9A8));
        EXPECT_EQ(record->address, 0xABAA);
        EXPECT_EQ(record->buttons, 0xAFAEADACU);
    });
    channel->receive(stateReport());
    EXPECT_EQ(calls(), 1U);
}

TEST_F(IncomingData, ReportFromAnyDeviceButTheDedicatedChannelNeverReachesClassification) {
    test::CapturedLog log;
    const auto other = FakeHIDDevice::channel("other");
    client->setM_refHIDChannelBase(other);
    other->registerInputReportCallback(buffer, HandleIncomingDataDedicated, client.get());
    other->receive(stateReport());
    other->receive(padded({0x44, 0}));
    EXPECT_EQ(calls(), 0U);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(IncomingData, ReportOf5BytesIsIgnored) {
    client->setM_bClientRegistered(true);
    channel->receive({0x35, 4, 0, 0xAF, 0xDE});
    EXPECT_TRUE(channel->reports.empty());
    channel->receive({0x35, 4, 0, 0xAF, 0xDE, 0});
    EXPECT_EQ(channel->reports.size(), 1U) << "six bytes are enough for a stored-data query";
}

TEST_F(IncomingData, ReportOfAnotherTypeThanInputIsIgnored) {
    channel->receive(stateReport(), HIDReportType::output);
    channel->receive(stateReport(), HIDReportType::feature);
    EXPECT_EQ(calls(), 0U);
}

TEST_F(IncomingData, EchoedReportsAreOnlyLogged) {
    test::CapturedLog log;
    for (const uint8_t identifier : Bytes{0x44, 0x45, 0x53, 0x54, 0x55, 0x46, 0x63, 0x73, 0x00}) {
        Bytes report = stateReport();
        report[0] = identifier;
        channel->receive(report);
    }
    const std::string programmed = selector + ", >>>> VData_Repost_SetReport_ProgramReportID0 ....";
    const std::string echoed = selector + ", >>>> VData_Repost_SetReport_HIDReportID0 ....";
    EXPECT_EQ(log.lines(), (std::vector<std::string>{programmed, echoed, echoed, echoed, echoed}));
    EXPECT_EQ(calls(), 0U);
}

TEST_F(IncomingData, UnknownMessagesAreIgnored) {
    test::CapturedLog log;
    for (const uint8_t message : Bytes{0, 1, 2, 6, 255})
        channel->receive(padded({0x35, message, 0}));
    channel->receive(padded({0x35, 3, 1}));
    EXPECT_EQ(calls(), 0U);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(IncomingData, UnknownRequestsAreIgnored) {
    client->setM_bClientRegistered(true);
    for (const uint8_t code : Bytes{0, 1, 255})
        channel->receive(padded({0x35, 4, 0, code, 0x7F}));
    EXPECT_EQ(calls(), 0U);
    EXPECT_EQ(channel->gets, 0);
    EXPECT_TRUE(channel->reports.empty());
    EXPECT_EQ((*RunLoop::current())->dispatch(0), 0) << "something was handed to the caller's thread";
}

TEST_F(IncomingData, IsDroppedSilentlyWhileTheClientIsNotReady) {
    Access::setReady(client, false);
    channel->receive(stateReport());
    EXPECT_EQ(calls(), 0U);
}

TEST_F(IncomingData, IsDroppedSilentlyWhileTheSessionIsOffTheConsole) {
    {
        const SessionOverride away([] { return SessionDescription{false, std::string("root")}; });
        channel->receive(stateReport());
        EXPECT_EQ(calls(), 0U);
    }
    const SessionOverride present([] { return SessionDescription{true, std::string("root")}; });
    channel->receive(stateReport());
    EXPECT_EQ(calls(), 1U);
}

TEST_F(IncomingData, CallbackWithoutContextReportOrLengthDoesNothing) {
    Bytes report = stateReport();
    HandleIncomingDataDedicated(nullptr, HIDStatus::success, channel.get(), HIDReportType::input, 0x35,
                                report.data(), 64);
    HandleIncomingDataDedicated(client.get(), HIDStatus::success, channel.get(), HIDReportType::input, 0x35,
                                nullptr, 64);
    HandleIncomingDataDedicated(client.get(), HIDStatus::success, channel.get(), HIDReportType::input, 0x35,
                                report.data(), 0);
    EXPECT_EQ(calls(), 0U);
}

TEST_F(IncomingData, TruncatedStateRecordIsDropped) {
    Bytes report = stateReport();
    report.resize(54);
    channel->receive(report);
    EXPECT_EQ(calls(), 0U);
    report.resize(55);
    channel->receive(report);
    EXPECT_EQ(calls(), 1U);
}

TEST_F(IncomingData, StateRecordReachesTheContextHandlerWhenItIsTheOnlyOne) {
    int context = 0;
    client = Access::make(nullptr, nullptr, nullptr, true);
    Access::setHandlersWithContext(client, Recorder::messageWithContext, nullptr, nullptr, &context);
    client->setM_refHIDChannelDedicated(channel);
    channel->registerInputReportCallback(buffer, HandleIncomingDataDedicated, client.get());
    channel->receive(stateReport());
    ASSERT_EQ(calls(), 1U);
    EXPECT_EQ(Recorder::instance().calls()[0].context, &context);
}

TEST_F(IncomingData, StateRecordIsForwardedAndCountedUntilItIsHandled) {
    make(false);
    channel->receive(stateReport());
    EXPECT_EQ(client->outstandingStateCallbacks(), 1);
    EXPECT_EQ(calls(), 0U);
    ASSERT_TRUE(Recorder::instance().dispatchUntil(1));
    EXPECT_EQ(client->outstandingStateCallbacks(), 0);
    EXPECT_EQ(Recorder::instance().calls()[0].argument, Access::ringSlot(client, 0));
    const Bytes report = stateReport();
    EXPECT_EQ(Recorder::instance().calls()[0].bytes, Bytes(report.begin() + 7, report.begin() + 55));
    EXPECT_EQ(Recorder::instance().calls()[0].productID, 0xC652U);
}

TEST_F(IncomingData, WithoutHandlerOrCallerThreadAStateRecordIsDropped) {
    make(false);
    Access::setCallerThread(client, nullptr);
    channel->receive(stateReport());
    EXPECT_EQ(client->outstandingStateCallbacks(), 0);
    client = Access::make(nullptr, Recorder::added, nullptr, false);
    client->setM_refHIDChannelDedicated(channel);
    channel->registerInputReportCallback(buffer, HandleIncomingDataDedicated, client.get());
    channel->receive(stateReport());
    EXPECT_EQ(client->outstandingStateCallbacks(), 0);
}

// ------------------------------------------------------------------------------------------ Responses

TEST_F(IncomingData, AcknowledgementSetsItsFlagAndSignals) {
    test::CapturedLog log;
    channel->receive(padded({0x35, 5, 0, 0, 0, 0, 0, 0x34}));
    EXPECT_TRUE(client->m_bPacketACK());
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{
                  selector + ", *** VData_Post_UserClient_HIDReportID0, MessageID_DaemonResponse ",
                  selector + ", *** Got ACK signal."}));
}

TEST_F(IncomingData, RegistrationAnswerStoresBothIdentifiers) {
    channel->receive(padded({0x35, 5, 0, 0, 0, 0, 0, 0x12, 0, 0x34, 0x12, 8, 7, 6, 5, 4, 3, 2, 1}));
    EXPECT_TRUE(client->m_bClientRegistered());
    EXPECT_EQ(client->applicationInfo()->clientid(), Value(0x1234));
    EXPECT_EQ(client->applicationInfo()->channelID(), Value(uint64_t{0x0102030405060708}));
    EXPECT_EQ(client->channelID(), 0x77U) << "the tag of the client's own reports stays";
}

TEST_F(IncomingData, OtherOrTruncatedResponsesAreIgnored) {
    channel->receive(padded({0x35, 5, 0, 0, 0, 0, 0, 0x35}));
    channel->receive({0x35, 5, 0, 0, 0, 0, 0});
    channel->receive({0x35, 5, 0, 0, 0, 0, 0, 0x12, 0, 0x34, 0x12, 8, 7, 6, 5, 4, 3, 2});
    EXPECT_FALSE(client->m_bPacketACK());
    EXPECT_FALSE(client->m_bClientRegistered());
}

// ------------------------------------------------------------------------------------------ Requests

TEST_F(IncomingData, StoredDataQueryIsAnsweredWhenRegistered) {
    test::CapturedLog log;
    channel->receive(padded({0x35, 4, 0, 0xAF, 0xDE}));
    EXPECT_TRUE(channel->reports.empty());
    client->setM_bClientRegistered(true);
    log.clear();
    channel->receive(padded({0x35, 4, 0, 0xAF, 0xDE}));
    ASSERT_EQ(channel->reports.size(), 1U);
    EXPECT_EQ(channel->reports[0].reportID, 0x46);
    EXPECT_EQ(channel->reports[0].bytes, tagged({6, 0, 0xFE, 0x71}, 38));
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{
                  selector + ", *** VData_Post_UserClient_HIDReportID0, MessageID_DaemonRequest ",
                  selector + ", ****> Notifying driver about stored data. Result: Success."}));
    channel->setReportStatus = HIDStatus::error;
    channel->receive(padded({0x35, 4, 0, 0xAF, 0xDE}));
    EXPECT_EQ(log.lines().back(), selector + ", ****> Notifying driver about stored data. Result: FAILED!");
}

TEST_F(IncomingData, ReRegistrationOfAnUnknownClientReturns0AndClearsItsFlag) {
    test::CapturedLog log;
    client->applicationInfo()->setClientid(4321);
    channel->receive(padded({0x35, 4, 0, 0xEF, 0xBE}));
    EXPECT_FALSE(client->m_bReRegistrationRequest()) << "the block waits for the caller thread";
    while (!log.has("blockoperation re-register returned cID=0"))
        ASSERT_GT((*RunLoop::current())->dispatch(10000), 0);
    EXPECT_FALSE(client->m_bReRegistrationRequest());
}

TEST_F(IncomingData, ReRegistrationsForAThreadThatNeverRunsItsLoopAreBounded) {
    test::CapturedLog log;
    client->applicationInfo()->setClientid(4323);
    for (int i = 0; i < 5000; ++i)
        channel->receive(padded({0x35, 4, 0, 0xEF, 0xBE}));
    EXPECT_EQ(log.countStarting("Error: a message is dropped because 4096 others wait"), 904U);
    while (log.count("blockoperation re-register returned cID=0") < 4096)
        ASSERT_GT((*RunLoop::current())->dispatch(10000), 0);
}

TEST_F(IncomingData, NewerStateRecordDoesNotOvertakeAReRegistration) {
    make(false);
    client->applicationInfo()->setClientid(4324);
    test::CapturedLog log;
    size_t registrationsBefore = 0;
    Recorder::instance().setOnCall([&](const test::ReceivedCall &) {
        registrationsBefore = log.count("blockoperation re-register returned cID=0");
    });
    channel->receive(stateReport());
    channel->receive(padded({0x35, 4, 0, 0xEF, 0xBE}));
    channel->receive(stateReport());
    ASSERT_TRUE(Recorder::instance().dispatchUntil(1));
    EXPECT_EQ(registrationsBefore, 1U);
}

TEST_F(IncomingData, ReRegistrationRunsTheRegistrationWithTheExistingRecord) {
    test::CapturedLog log;
    const auto base = FakeHIDDevice::channel("base");
    client->setM_refHIDChannelBase(base);
    client->setM_bHIDChannelBaseOpen(true);
    client->setM_bHIDChannelDedicatedOpen(true);
    client->setM_bPacketACK(true); // The daemon's acknowledgement, ahead of time.
    client->applicationInfo()->setClientid(4322);
    client->applicationInfo()->setChannelID(uint64_t{0x77});
    client->applicationInfo()->setName("Viewer");
    client->applicationInfo()->setMode(3);
    gClients().set(4322, client, currentThreadKey());
    channel->receive(padded({0x35, 4, 0, 0xEF, 0xBE}));
    while (!log.has("blockoperation re-register returned cID=4322"))
        ASSERT_GT((*RunLoop::current())->dispatch(10000), 0);
    EXPECT_FALSE(client->m_bReRegistrationRequest());
    EXPECT_TRUE(client->m_bClientRegistered());
    EXPECT_TRUE(base->reports.empty()) << "no new channel is asked for";
    ASSERT_EQ(channel->reports.size(), 3U) << "request, announcement, application information";
    const Bytes archive(channel->reports[0].bytes.begin() + 8, channel->reports[0].bytes.end());
    const Result<Value> request = unarchiveObjectWithData(archive);
    ASSERT_TRUE(request.ok());
    EXPECT_EQ(request->asDictionary()["req"], Value("regclient"));
    EXPECT_EQ(request->asDictionary()["type"], Value(true));
    EXPECT_EQ(request->asDictionary()["app"].asObject<MxlApplication>()->name(), Value("Viewer"));
    EXPECT_EQ(channel->reports[2].reportID, 0x73);
    gClients().removeClient(client);
}

// ------------------------------------------------------------------------------------------ Packets

TEST_F(IncomingData, OnePacketIsUnarchivedAndDispatched) {
    test::CapturedLog log;
    announce(packet(2, true, archiveOf({{"req", "devadd"}, {"pid", 50770}})));
    ASSERT_EQ(calls(), 1U);
    EXPECT_EQ(Recorder::instance().calls()[0].handler, test::ReceivedCall::Handler::added);
    EXPECT_EQ(Recorder::instance().calls()[0].productID, 50770U);
    EXPECT_EQ(channel->lastGetID, 0x54);
    EXPECT_TRUE(channel->reports.empty()) << "no acknowledgement was asked for";
    const std::string size = std::to_string(channel->slot.size());
    const std::string payload = std::to_string(channel->slot.size() - 6);
    EXPECT_EQ(
        log.lines(),
        (std::vector<std::string>{
            selector + ", *** VData_Post_UserClient_HIDReportID0, MessageID_DaemonRequest ",
            selector + ", **** DataSize Ok.DataSize to read=" + size + " \n",
            "bool GetReport(IOHIDDeviceRef, uint8_t, void *, uint16_t *), IOHIDDeviceGetReport(reportID=54) "
            "returns with Success(0)",
            selector + ", ******** GetStorageDataSlot0 Ok. \n",
            selector +
                ", ******** GetStorageDataSlot0 ..packetbig... mxVDataPacket->header.m_DataID=2, "
                "payloadloen=" +
                payload + ", numpack=1\n",
            selector +
                ", ******** GetStorageDataSlot0 ..packetbig - COMPlete packet, id=2. Forwarding devadd "
                "to app\n",
        }));
}

TEST_F(IncomingData, TwoPacketsAreDispatchedOnceAsTheirConcatenation) {
    test::CapturedLog log;
    const Bytes archive = archiveOf({{"req", "devrm"}, {"pid", 50770}});
    const auto middle = archive.begin() + static_cast<ptrdiff_t>(archive.size() / 2);
    announce(packet(2, false, {archive.begin(), middle}));
    EXPECT_EQ(calls(), 0U);
    EXPECT_EQ(log.count(selector +
                        ", ******** GetStorageDataSlot0 ..packetbig - INcomplete packet, waiting for "
                        "others, id=2\n"),
              1U);
    announce(packet(2, true, {middle, archive.end()}));
    ASSERT_EQ(calls(), 1U);
    EXPECT_EQ(Recorder::instance().calls()[0].handler, test::ReceivedCall::Handler::removed);
    EXPECT_EQ(Access::bytesBeingJoined(client), 0U);
}

TEST_F(IncomingData, AcknowledgesAPacketWhenAsked) {
    test::CapturedLog log;
    client->setM_bClientRegistered(true);
    announce(packet(2, true, archiveOf({{"req", "devadd"}, {"pid", 1}})), 1);
    ASSERT_EQ(channel->reports.size(), 1U);
    EXPECT_EQ(channel->reports[0].bytes, tagged({7, 0, 0x12, 0, 1, 0, 0x32}, 18));
    EXPECT_TRUE(log.has(
        selector + ", ******** GetStorageDataSlot0 ..packetbig - ACK expected, sent->Result=ACK sent\n"));
    EXPECT_EQ(calls(), 1U);
}

TEST_F(IncomingData, ReportsAnAcknowledgementThatCouldNotBeSent) {
    test::CapturedLog log;
    announce(packet(2, true, archiveOf({{"req", "devadd"}, {"pid", 1}})), 0x80);
    EXPECT_TRUE(log.has(selector + ", ******** GetStorageDataSlot0 ..packetbig - ACK expected, "
                                   "sent->Result=error sending ACK!\n"));
    EXPECT_EQ(calls(), 1U);
}

TEST_F(IncomingData, PacketWithDataID3IsAcknowledgedButNotAppended) {
    client->setM_bClientRegistered(true);
    announce(packet(3, true, archiveOf({{"req", "devadd"}, {"pid", 1}})), 1);
    EXPECT_EQ(channel->reports.size(), 1U);
    EXPECT_EQ(calls(), 0U);
    EXPECT_EQ(Access::bytesBeingJoined(client), 0U);
}

TEST_F(IncomingData, AnnouncementOfSize0Or2049IsIgnoredAndNotAcknowledged) {
    client->setM_bClientRegistered(true);
    for (const uint16_t size : std::vector<uint16_t>{0, 2049, 65535})
        channel->receive(announcement(size, 1));
    channel->receive({0x35, 4, 0, 17, 0, 8}); // Ends before its size.
    EXPECT_EQ(channel->gets, 0);
    EXPECT_TRUE(channel->reports.empty());
}

TEST_F(IncomingData, AnnouncementsOfSize1And2048AreRead) {
    channel->slot = Bytes(2048);
    channel->receive(announcement(1, 0));
    channel->receive(announcement(2048, 0));
    EXPECT_EQ(channel->gets, 2);
}

TEST_F(IncomingData, SlotThatCannotBeReadIsNotAcknowledged) {
    client->setM_bClientRegistered(true);
    channel->getReportStatus = HIDStatus::timedOut;
    announce(packet(2, true, archiveOf({{"req", "devadd"}, {"pid", 1}})), 1);
    EXPECT_TRUE(channel->reports.empty());
    EXPECT_EQ(calls(), 0U);
}

TEST_F(IncomingData, PacketThatClaimsMoreThanWasAnnouncedIsDropped) {
    test::CapturedLog log;
    Bytes lying = packet(2, true, Bytes(10));
    lying[2] = 11;
    announce(lying);
    EXPECT_EQ(Access::bytesBeingJoined(client), 0U);
    EXPECT_EQ(log.countContaining("claims 11 bytes of payload and is dropped"), 1U);
    announce({2, 0, 0, 0, 1}); // Too short for a header.
    EXPECT_EQ(log.countContaining("is dropped"), 2U);
    EXPECT_EQ(calls(), 0U);
}

TEST_F(IncomingData, MessageWhoseLastPacketNeverComesIsPrefixedToTheNext) {
    announce(packet(2, false, {1, 2, 3}));
    announce(packet(2, true, archiveOf({{"req", "devadd"}, {"pid", 1}})));
    EXPECT_EQ(calls(), 0U) << "the joined bytes are no archive";
    EXPECT_EQ(Access::bytesBeingJoined(client), 0U);
    announce(packet(2, true, archiveOf({{"req", "devadd"}, {"pid", 1}})));
    EXPECT_EQ(calls(), 1U);
}

TEST_F(IncomingData, LastPacketFlagOtherThan1MeansMoreToCome) {
    Bytes two = packet(2, true, {1});
    two[4] = 2;
    announce(two);
    EXPECT_EQ(Access::bytesBeingJoined(client), 1U);
}

TEST_F(IncomingData, MalformedArchiveIsDroppedWithAnErrorLine) {
    test::CapturedLog log;
    announce(packet(2, true, {'b', 'p', 'l', 'i', 's', 't', '0', '0', 0, 0}));
    EXPECT_EQ(log.countStarting(selector + ", Error: a message is dropped: "), 1U);
    EXPECT_TRUE(log.has(selector +
                        ", ******** GetStorageDataSlot0 ..packetbig - COMPlete packet, id=2. Forwarding "
                        "(null) to app\n"));
    EXPECT_EQ(calls(), 0U);
}

TEST_F(IncomingData, ArchiveThatIsNoDictionaryIsIgnored) {
    const Result<Data> archive = archivedDataWithRootObject(Array{"req", "devadd"});
    ASSERT_TRUE(archive.ok());
    announce(packet(2, true, {archive->bytes().begin(), archive->bytes().end()}));
    EXPECT_EQ(calls(), 0U);
}

TEST_F(IncomingData, MessageWithoutEndIsGivenUpBeforeItFillsTheMemory) {
    test::CapturedLog log;
    const Bytes slot = packet(2, false, Bytes(2042, 0xAB));
    size_t highest = 0;
    for (int i = 0; i < 9000; ++i) {
        announce(slot);
        highest = std::max(highest, Access::bytesBeingJoined(client));
    }
    EXPECT_LE(highest, size_t{16} << 20);
    EXPECT_EQ(log.countContaining("Error: a message without end is dropped"), 1U);
}

} // namespace
} // namespace moxel
