// Requests to the daemon, as a client makes them.
#include "Daemon/TestClient.h"
#include "Support/CapturedLog.h"

#include <gtest/gtest.h>

#include <chrono>
#include <unistd.h>

namespace moxel::daemon {
namespace {

TEST_F(DaemonDaemon, RequestsAreAcknowledgedAndKept) {
    start();
    TestClient client(*daemon, 5);
    client.registerClient();
    test::CapturedLog log;
    const Dictionary control{{"req", "moxclientctrl"}, {"message", 0x6D76424C}, {"ctrlparm", 0xFFFFFFFD}};
    client.send(control);
    EXPECT_EQ(client.input(), acknowledgementInput);
    EXPECT_TRUE(client.isQuiet());
    const auto request =
        daemon->waitForRequest([](const auto &other) { return other.name == "moxclientctrl"; }, patience);
    ASSERT_TRUE(request);
    EXPECT_EQ(request->dictionary, control);
    EXPECT_EQ(request->clientID, client.clientID);
    EXPECT_TRUE(request->acknowledged);
    EXPECT_TRUE(log.waitFor(", code 0x6D76424C, parameter -3"));
}

TEST_F(DaemonDaemon, RawDataIsAcknowledgedBySlices) {
    Options options;
    options.sliceTimeout = patience;
    start(options);
    TestClient client(*daemon, 5);
    client.registerClient();
    client.send(bytesOf("hello"));
    EXPECT_TRUE(client.isQuiet());
    client.send(Bytes(2042, 'a'));
    EXPECT_EQ(client.input(), acknowledgementInput);
    client.send(Bytes{'b'});
    EXPECT_EQ(client.input(), acknowledgementInput);
    client.send(bytesOf("hello"));
    EXPECT_TRUE(client.isQuiet());
    EXPECT_EQ(daemon->observe().requests.back().bytes, bytesOf("hello"));
}

TEST_F(DaemonDaemon, SlicesAreKeptAsOneMessage) {
    Options options;
    options.sliceTimeout = patience;
    start(options);
    TestClient client(*daemon, 5);
    client.registerClient();
    client.send(bytesOf("hello"));
    client.send(Bytes(2042, 'a'));
    EXPECT_EQ(client.input(), acknowledgementInput);
    client.send(Bytes{'b'});
    EXPECT_EQ(client.input(), acknowledgementInput);
    const auto message = daemon->waitForMessage(
        patience, [](const ReceivedMessage &received) { return received.slices == 2; });
    ASSERT_TRUE(message);
    EXPECT_EQ(message->bytes, Bytes(2042, 'a') + Bytes{'b'});
    EXPECT_EQ(message->clientID, client.clientID);
    EXPECT_EQ(message->channelID, 5U);
    EXPECT_EQ(daemon->observe().messages.front().bytes, bytesOf("hello"));
}

TEST_F(DaemonDaemon, MessageWithoutAnEndIsKeptWhenItsChannelGoes) {
    Options options;
    options.sliceTimeout = 10 * patience;
    start(options);
    TestClient client(*daemon, 5);
    client.registerClient();
    client.send(Bytes(2042, 'a'));
    EXPECT_EQ(client.input(), acknowledgementInput);
    client.terminate();
    const auto message = daemon->waitForMessage(patience);
    ASSERT_TRUE(message);
    EXPECT_EQ(message->bytes, Bytes(2042, 'a'));
}

TEST_F(DaemonDaemon, FullBlocksAreWholeMessagesWhenToldSo) {
    Options options;
    options.fullBlock = FullBlock::isMessage;
    start(options);
    TestClient client(*daemon, 5);
    client.registerClient();
    client.send(Bytes(2042, 'a'));
    EXPECT_TRUE(client.isQuiet());
}

TEST_F(DaemonDaemon, AnnouncementsWithoutDataAreIgnored) {
    test::CapturedLog log;
    start();
    TestClient client(*daemon, 5);
    client.announce(10);
    EXPECT_TRUE(log.waitFor("announced but not placed"));
    client.place(Bytes{1, 2, 3});
    client.announce(4);
    client.announce(0);
    EXPECT_TRUE(client.isQuiet());
    EXPECT_EQ(daemon->observe().requestCount, 0U);
    client.announce(3);
    EXPECT_TRUE(client.isQuiet());
    EXPECT_EQ(daemon->observe().requestCount, 1U);
}

TEST_F(DaemonDaemon, ControlPacketsThatMakeNoSenseAreIgnored) {
    test::CapturedLog log;
    start();
    TestClient client(*daemon, 5);
    client.registerClient();
    Bytes wrongCode = packetAcknowledgement;
    wrongCode[6] = 0x33;
    Bytes wrongLength = packetAcknowledgement;
    wrongLength[2] = 17;
    Bytes wrongID = requestAnnouncement(1);
    wrongID[0] = 5;
    for (const Bytes &bad :
         {Bytes{1}, Bytes(17), Bytes(18), wrongCode, wrongLength, Bytes(38), wrongID, Bytes(39)}) {
        log.clear();
        EXPECT_EQ(client.dedicated->setReport(0x46, 5, bad), 0U);
        EXPECT_TRUE(log.waitFor("makes no sense is ignored"));
    }
    EXPECT_EQ(daemon->client(client.clientID)->acknowledgements, 0);
}

TEST_F(DaemonDaemon, ReportsOfOtherChannelsAreLoggedButNotServed) {
    test::CapturedLog log;
    start();
    TestClient client(*daemon, 5);
    EXPECT_EQ(client.dedicated->setReport(0x63, 0xDEADBEEF, {1}), 0U);
    EXPECT_EQ(client.dedicated->setReport(0x46, 0xDEADBEEF, requestAnnouncement(1)), 0U);
    EXPECT_TRUE(log.waitFor("of another channel's is ignored"));
    EXPECT_EQ(client.base.setReport(0x46, 5, channelMessage(0xBEEF, 6)), 0U);
    EXPECT_EQ(daemon->observe().requestCount, 0U);
    EXPECT_EQ(daemon->clients().size(), 1U);
    const auto report = daemon->waitForReport(
        [](const ReceivedReport &other) { return other.tag == 0xDEADBEEF && other.reportID == 0x46; },
        patience);
    ASSERT_TRUE(report);
    EXPECT_EQ(report->bytes, requestAnnouncement(1));
}

TEST_F(DaemonDaemon, EveryReportIsLogged) {
    start();
    TestClient client(*daemon, 5);
    const auto create = daemon->waitForReport(0, patience);
    ASSERT_TRUE(create);
    EXPECT_EQ(create->channelName, testBaseName);
    EXPECT_EQ(create->channelID, 0U);
    EXPECT_EQ(create->processID, ::getpid());
    EXPECT_FALSE(create->isRead);
    EXPECT_EQ(create->type, HIDReportType::output);
    EXPECT_EQ(create->reportID, 0x46);
    EXPECT_EQ(create->tag, 0U);
    EXPECT_EQ(create->bytes, channelMessage(0xBEEF, 5));
    EXPECT_EQ(create->status, HIDStatus::success);
    (void)client.dedicated->getReport(0x54, 10);
    const auto read = daemon->waitForReport(1, patience);
    ASSERT_TRUE(read);
    EXPECT_TRUE(read->isRead);
    EXPECT_EQ(read->reportID, 0x54);
    EXPECT_EQ(read->channelID, 5U);
    EXPECT_EQ(read->status, HIDStatus::error);
    EXPECT_EQ(daemon->waitForReport(2, std::chrono::milliseconds(0)), std::nullopt);
}

TEST_F(DaemonDaemon, LogOfReportsIsBounded) {
    Options options;
    options.logEntries = 10;
    options.logBytes = 6000;
    start(options);
    TestClient client(*daemon, 5);
    for (uint8_t index = 0; index < 20; ++index)
        client.place(Bytes{index});
    Observation seen = daemon->observe();
    EXPECT_EQ(seen.reportCount, 21U);
    ASSERT_EQ(seen.reports.size(), 10U);
    EXPECT_EQ(seen.reports.front().sequence, 11U);
    EXPECT_EQ(seen.reports.back().bytes, Bytes{19});
    for (int index = 0; index < 3; ++index)
        client.place(Bytes(3000, 'x'));
    seen = daemon->observe();
    EXPECT_EQ(seen.reports.size(), 2U);
}

} // namespace
} // namespace moxel::daemon
