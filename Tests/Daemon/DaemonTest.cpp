// The daemon as a client meets it: channels, registration, requests, messages and states.
#include "Daemon/TestClient.h"
#include "Moxel Daemon/Bus/BusFolder.h"
#include "Moxel Daemon/Protocol/DaemonMessages.h"
#include "Moxel Daemon/Protocol/EventFilter.h"
#include "Platform/Session.h"
#include "Support/CapturedLog.h"
#include "Support/ChildProcess.h"
#include "Support/EnvironmentVariable.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <pwd.h>
#include <set>

namespace moxel::daemon {
namespace {

using ::testing::HasSubstr;

constexpr uint32_t error = 0xE00002BC;
constexpr uint32_t badArgument = 0xE00002C2;

class DaemonDaemon : public DaemonFixture {};

MoxelStateRecord motionRecord(int16_t x) {
    MoxelStateRecord record{};
    record.command = capMoved;
    record.axis[0] = x;
    return record;
}

// ------------------------------------------------------------------------------------------ Channels

TEST_F(DaemonDaemon, BaseChannelIsNamedAfterItsUser) {
    start();
    EXPECT_EQ(daemon->baseChannelName(), testBaseName);
    EXPECT_EQ(daemon->busFolder(), folder.path("bus"));
    const RawClient base(folder.path("bus"), testBaseName);
    const Bytes expected = Bytes{1, 0, 0, 0, 0, 0, 0, 0, 0x58, 0x4D, 1, 0, 0x00, 0xFF, 1, 0, 30} +
                           bytesOf(testBaseName) + Bytes{5} + bytesOf("Moxel") + Bytes{24} +
                           bytesOf("Moxel Virtual HID Device") + Bytes{0};
    EXPECT_EQ(base.properties, expected);
}

TEST_F(DaemonDaemon, UserIsTheOneOnTheConsole) {
    const std::string name = ::getpwuid(::geteuid())->pw_name;
    char expected[64];
    std::snprintf(expected, sizeof expected, "MxlVirtualHIDData_Base%08X", ::geteuid());
    Options options;
    options.busFolder = folder.path("bus");
    const auto nameWith = [&](std::optional<SessionDescription> session) {
        const SessionOverride override([session] { return session; });
        return (*Daemon::start(options))->baseChannelName();
    };
    EXPECT_EQ(nameWith(SessionDescription{true, name}), expected);
    EXPECT_EQ(nameWith(SessionDescription{false, name}), "MxlVirtualHIDData_Base00000000");
    EXPECT_EQ(nameWith(SessionDescription{std::nullopt, name}), "MxlVirtualHIDData_Base00000000");
    EXPECT_EQ(nameWith(SessionDescription{true, std::nullopt}), "MxlVirtualHIDData_Base00000000");
    EXPECT_EQ(nameWith(SessionDescription{true, "nobody of that name"}), "MxlVirtualHIDData_Base00000000");
    EXPECT_EQ(nameWith(std::nullopt), "MxlVirtualHIDData_Base00000000");
}

TEST_F(DaemonDaemon, FolderIsTheDefaultOneUnlessOneIsGiven) {
    const test::EnvironmentVariable bus("MOXEL_HID_BUS", folder.path("elsewhere"));
    Options options;
    options.user = testUser;
    const auto started = Daemon::start(options);
    ASSERT_TRUE(started.ok());
    EXPECT_EQ((*started)->busFolder(), folder.path("elsewhere"));
    EXPECT_TRUE(std::filesystem::exists(folder.path("elsewhere/" + testBaseName + ".hid")));
}

TEST_F(DaemonDaemon, SecondDaemonOfTheSameUserIsRefused) {
    start();
    Options options;
    options.busFolder = folder.path("bus");
    options.user = testUser;
    const auto second = Daemon::start(options);
    ASSERT_FALSE(second.ok());
    EXPECT_EQ(second.error().code, BusFolder::alreadyPublished);
    options.user = testUser + 1;
    EXPECT_TRUE(Daemon::start(options).ok()) << "another user's may run beside it";
}

TEST_F(DaemonDaemon, FolderThatOthersMayWriteIsRefused) {
    std::filesystem::create_directory(folder.path("bus"));
    std::filesystem::permissions(folder.path("bus"), std::filesystem::perms::all);
    Options options;
    options.busFolder = folder.path("bus");
    const auto started = Daemon::start(options);
    ASSERT_FALSE(started.ok());
    EXPECT_THAT(started.error().message, HasSubstr("may be written"));
}

TEST_F(DaemonDaemon, NothingIsLeftOfItsSockets) {
    start();
    TestClient client(*daemon, 0x1234);
    daemon.reset();
    EXPECT_TRUE(std::filesystem::is_empty(folder.path("bus")));
    EXPECT_TRUE(client.dedicated->awaitHangUp());
    EXPECT_TRUE(client.base.awaitHangUp());
}

TEST_F(DaemonDaemon, TwoDaemonsLiveInOneProcess) {
    start();
    Options options;
    options.busFolder = folder.path("other");
    options.user = testUser;
    auto other = Daemon::start(options);
    ASSERT_TRUE(other.ok());
    TestClient here(*daemon, 7);
    TestClient there(**other, 7);
    here.registerClient();
    there.registerClient();
    EXPECT_EQ((*other)->sendState(there.clientID, motionRecord(5)), 1U);
    EXPECT_EQ(there.input().size(), 55U);
    EXPECT_TRUE(here.isQuiet());
}

TEST_F(DaemonDaemon, DedicatedChannelAppearsOnRequestAndGoesOnRequest) {
    start();
    TestClient client(*daemon, 0x18F0ABCDEF);
    EXPECT_TRUE(std::filesystem::exists(folder.path("bus/MxlVirtualHIDData_ID18F0ABCDEF.hid")));
    const Bytes expected = Bytes{1, 0, 0, 0, 0, 0, 0, 0, 0x58, 0x4D, 2, 0, 0x00, 0xFF, 1, 0, 30} +
                           bytesOf("MxlVirtualHIDData_ID18F0ABCDEF") + Bytes{5} + bytesOf("Moxel");
    EXPECT_EQ((Bytes{client.dedicated->properties.begin(),
                     client.dedicated->properties.begin() + static_cast<ptrdiff_t>(expected.size())}),
              expected);
    const ClientDescription description = daemon->clients().at(0);
    EXPECT_EQ(description.channelID, 0x18F0ABCDEFU);
    EXPECT_EQ(description.channelName, "MxlVirtualHIDData_ID18F0ABCDEF");
    EXPECT_EQ(description.processID, ::getpid());
    EXPECT_EQ(description.clientID, 0);
    EXPECT_FALSE(description.registered);
    EXPECT_TRUE(daemon->waitForClient(patience, [](const auto &other) { return other.openCount == 1; }));

    client.terminate();
    EXPECT_TRUE(client.dedicated->awaitHangUp());
    EXPECT_TRUE(daemon->waitUntil([](const Observation &seen) { return seen.clients.empty(); }, patience));
    EXPECT_EQ(daemon->observe().departed.at(0).channelID, 0x18F0ABCDEFU);
    EXPECT_FALSE(std::filesystem::exists(folder.path("bus/MxlVirtualHIDData_ID18F0ABCDEF.hid")));
}

TEST_F(DaemonDaemon, ChannelIdentifiersHaveNoPadding) {
    start();
    TestClient shortest(*daemon, 0xA);
    TestClient longest(*daemon, UINT64_MAX);
    EXPECT_EQ(daemon->clients().at(0).channelName, "MxlVirtualHIDData_IDA");
    EXPECT_EQ(daemon->clients().at(1).channelName, "MxlVirtualHIDData_IDFFFFFFFFFFFFFFFF");
}

TEST_F(DaemonDaemon, ControlMessagesThatMakeNoSenseAreIgnored) {
    test::CapturedLog log;
    start();
    RawClient base(daemon->busFolder(), testBaseName);
    ASSERT_EQ(base.open(), 0U);
    const Bytes good = channelMessage(0xBEEF, 5);
    for (const Bytes &bad :
         {channelMessage(0xBEEF, 0), channelMessage(0x1234, 5), good + Bytes{0},
          Bytes(good.begin(), good.end() - 1), Bytes{6, 0, 0xEF, 0xBE},
          littleEndian(7, 2) + Bytes(good.begin() + 2, good.end()), packetAcknowledgement}) {
        log.clear();
        EXPECT_EQ(base.setReport(0x46, 0, bad), 0U);
        EXPECT_TRUE(log.waitFor("is ignored"));
    }
    EXPECT_EQ(base.setReport(0x46, 0, channelMessage(0xDEAD, 99)), 0U) << "nobody's channel";
    EXPECT_EQ(base.setReport(0x46, 0, good), 0U);
    EXPECT_TRUE(daemon->waitForClient(patience, [](const auto &client) { return client.channelID == 5; }));
    EXPECT_EQ(base.setReport(0x46, 0, good), 0U);
    EXPECT_TRUE(log.waitFor("is there already"));
    EXPECT_EQ(daemon->clients().size(), 1U);
}

TEST_F(DaemonDaemon, ReportsOfOtherKindsAreRefused) {
    start();
    TestClient client(*daemon, 7);
    for (RawClient *channel : {&client.base, &*client.dedicated}) {
        EXPECT_EQ(channel->setReport(0x99, 7, {1}), badArgument) << "an unknown report";
        EXPECT_EQ(channel->setReport(0x35, 7, {1}), badArgument) << "an input report";
        EXPECT_EQ(channel->setReport(0x46, 7, {}), badArgument) << "nothing behind the tag";
        EXPECT_EQ(channel->request(message(4, 1, 0x46, 0, {1, 2})).status, badArgument) << "half a tag";
        EXPECT_EQ(channel->request(message(4, 2, 0x46, 0, Bytes(20))).status, badArgument)
            << "a feature report";
        EXPECT_EQ(channel->setReport(0x63, 7, Bytes(3064)), badArgument) << "longer than any report";
        EXPECT_EQ(channel->getReport(0x55, 100).status, badArgument) << "an unknown report";
        EXPECT_EQ(channel->request(message(5, 2, 0x54, 100)).status, badArgument) << "a feature report";
        EXPECT_EQ(channel->getReport(0x54, 100).status, error) << "an empty slot";
    }
    EXPECT_EQ(client.dedicated->setReport(0x63, 7, Bytes(3063)), 0U);
    EXPECT_EQ(client.dedicated->setReport(0x44, 7, {1}), 0U);
    EXPECT_EQ(client.dedicated->setReport(0x53, 7, {1}), 0U);
}

TEST_F(DaemonDaemon, ChannelsOfEndedProcessesGo) {
    start();
    const test::ChildProcess::Environment environment;
    // A process that asks for a channel, opens it, and is killed.
    test::ChildProcess child({"/usr/bin/env", "python3", "-c", R"(
import socket, struct, sys, time, os
folder, name = sys.argv[1], sys.argv[2]
base = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
base.connect(folder + '/' + name + '.hid')
base.recv(8192)
base.send(bytes([2, 0, 0, 0, 0, 0, 0, 0])); base.recv(8192)
base.send(bytes([4, 1, 0x46, 0, 0, 0, 0, 0]) + bytes(8) + struct.pack('<HHQ', 6, 0xBEEF, 0x77) + bytes(26))
base.recv(8192)
print('asked', flush=True)
sys.stdin.read()
)",
                              daemon->busFolder(), testBaseName});
    ASSERT_EQ(child.readLine(), "asked");
    const auto client = daemon->waitForClient(patience, [](const auto &) { return true; });
    ASSERT_TRUE(client);
    EXPECT_EQ(client->processID, child.identifier());
    child.kill();
    EXPECT_TRUE(daemon->waitUntil([](const Observation &seen) { return seen.clients.empty(); }, patience));
    EXPECT_FALSE(std::filesystem::exists(folder.path("bus/MxlVirtualHIDData_ID77.hid")));
}

TEST_F(DaemonDaemon, DevicesOfAnyDescriptionCanBePublished) {
    start();
    DeviceDescription device;
    device.name = "MxlVirtualHIDData_Base000001F5 (copy)";
    device.manufacturer = "  Other  ";
    const auto number = daemon->publishDevice(device);
    ASSERT_TRUE(number.ok());
    RawClient client(folder.path("bus"), "MxlVirtualHIDData_Base000001F5--copy-");
    EXPECT_EQ(client.open(), 0U);
    EXPECT_EQ(client.setReport(0x46, 0, {1}), 0U);
    EXPECT_EQ(daemon->waitForReport(0, patience)->channelName, device.name);
    EXPECT_TRUE(daemon->removeDevice(*number));
    EXPECT_FALSE(daemon->removeDevice(*number));
    EXPECT_TRUE(client.awaitHangUp());
}

TEST_F(DaemonDaemon, BaseChannelCanGoAndComeBack) {
    start();
    RawClient before(daemon->busFolder(), testBaseName);
    daemon->removeBaseChannel();
    EXPECT_TRUE(before.awaitHangUp());
    EXPECT_FALSE(std::filesystem::exists(folder.path("bus/" + testBaseName + ".hid")));
    EXPECT_TRUE(daemon->publishBaseChannel().ok());
    TestClient client(*daemon, 3);
    client.registerClient();
}

TEST_F(DaemonDaemon, ChannelsCanBePublishedAndRemovedUnasked) {
    start();
    ASSERT_TRUE(daemon->publishChannel(0x99).ok());
    EXPECT_FALSE(daemon->publishChannel(0x99).ok());
    RawClient client(daemon->busFolder(), dedicatedName(0x99));
    EXPECT_TRUE(daemon->removeChannel(0x99));
    EXPECT_FALSE(daemon->removeChannel(0x99));
    EXPECT_TRUE(client.awaitHangUp());
}

TEST_F(DaemonDaemon, BaseChannelCanTellOtherThings) {
    Options options;
    options.baseManufacturer = " com.moxel\t";
    options.baseName = "Something";
    start(options);
    EXPECT_EQ(daemon->baseChannelName(), "Something");
    const RawClient base(daemon->busFolder(), "Something");
    EXPECT_EQ((Bytes{base.properties.begin() + 16, base.properties.begin() + 38}),
              Bytes{9} + bytesOf("Something") + Bytes{11} + bytesOf(" com.moxel\t"));
}

// ------------------------------------------------------------------------------------------ Registration

TEST_F(DaemonDaemon, RegistrationIsAnsweredAndNotAcknowledged) {
    start();
    TestClient client(*daemon, 0x0102030405060708);
    client.send(registrationRequestOf(client.channelID, 0x1234));
    EXPECT_EQ(client.input(), registrationAnswer(1, 0x0102030405060708));
    EXPECT_TRUE(client.isQuiet());
    const auto description = daemon->waitForClient(patience);
    ASSERT_TRUE(description);
    EXPECT_EQ(description->clientID, 1);
    EXPECT_EQ(description->registrations, 1);
    EXPECT_EQ(description->eventMask, 0x1234U);
    EXPECT_EQ(description->buttonMask, 0x34U);
    EXPECT_EQ(description->application->name, "Demo");
    EXPECT_EQ(description->application->processID, ::getpid());
    const auto request = daemon->waitForRequest([](const auto &) { return true; }, patience);
    ASSERT_TRUE(request);
    EXPECT_EQ(request->name, "regclient");
    EXPECT_EQ(request->requestID, 49);
    EXPECT_EQ(request->command, 0);
    EXPECT_FALSE(request->acknowledged);
    EXPECT_EQ(request->channelID, client.channelID);
}

TEST_F(DaemonDaemon, ClientIdentifiersAreUnique) {
    start();
    std::set<uint16_t> identifiers;
    for (uint64_t channel = 1; channel <= 10; ++channel) {
        TestClient client(*daemon, channel);
        client.registerClient();
        EXPECT_TRUE(identifiers.insert(client.clientID).second);
        EXPECT_EQ(daemon->client(client.clientID)->channelID, channel);
        if (channel % 2 == 0)
            client.terminate();
    }
    EXPECT_EQ(daemon->client(999), std::nullopt);
}

TEST_F(DaemonDaemon, ClientsRegisterAgainWhenAsked) {
    start();
    TestClient client(*daemon, 5);
    client.registerClient();
    const uint16_t identifier = client.clientID;
    EXPECT_EQ(daemon->requestReRegistration(identifier), 1U);
    EXPECT_EQ(client.input(), (Bytes{0x35, 4, 0, 0xEF, 0xBE, 0, 0, 0}));
    client.send(registrationRequestOf(5, 0x7, true));
    EXPECT_EQ(client.input(), registrationAnswer(identifier, 5));
    EXPECT_EQ(client.input(), acknowledgementInput);
    const auto description = daemon->waitForClient(
        patience, [](const ClientDescription &other) { return other.registrations == 2; });
    ASSERT_TRUE(description);
    EXPECT_EQ(description->eventMask, 7U);
    EXPECT_EQ(daemon->requestReRegistration(identifier + 1), 0U);
    EXPECT_EQ(daemon->requestReRegistration(Daemon::allClients), 1U);
}

TEST_F(DaemonDaemon, MalformedRegistrationIsNotAnswered) {
    test::CapturedLog log;
    start();
    TestClient client(*daemon, 5);
    client.send(Dictionary{{"req", "regclient"}, {"app", "none"}, {"type", false}});
    EXPECT_TRUE(client.isQuiet());
    EXPECT_TRUE(log.waitFor("not well formed"));
    client.registerClient();
}

TEST_F(DaemonDaemon, ApplicationInformationIsNoted) {
    test::CapturedLog log;
    start();
    TestClient client(*daemon, 5);
    client.registerClient();
    const Bytes name = bytesOf("A name of 24 characters!");
    EXPECT_EQ(client.dedicated->setReport(0x73, 5, Bytes{0, 0, 0, 0, 0, 0, 0, 0} + name), 0U);
    EXPECT_EQ(daemon->client(client.clientID)->exitState, 0);
    EXPECT_EQ(daemon->client(client.clientID)->applicationName, "A name of 24 characters!");
    EXPECT_EQ(client.dedicated->setReport(0x73, 5, Bytes{0xAD, 0xDE, 0, 0, 0, 0, 0, 0, 'x'} + Bytes(23)), 0U);
    EXPECT_EQ(daemon->client(client.clientID)->exitState, 0xDEAD);
    EXPECT_EQ(daemon->client(client.clientID)->applicationName, "x");
    EXPECT_EQ(client.dedicated->setReport(0x73, 5, Bytes(31)), 0U);
    EXPECT_TRUE(log.waitFor("record of 31 bytes is ignored"));
}

// ------------------------------------------------------------------------------------------ Requests

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
    start();
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
    start();
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
    EXPECT_EQ(daemon->observe().requestCount, 0U);
    client.announce(3);
    EXPECT_EQ(daemon->observe().requestCount, 1U);
    EXPECT_TRUE(client.isQuiet());
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

// ------------------------------------------------------------------------------------------ States

TEST_F(DaemonDaemon, StateReachesItsClientOnly) {
    start();
    TestClient first(*daemon, 1);
    TestClient second(*daemon, 2);
    first.registerClient();
    second.registerClient();
    EXPECT_EQ(daemon->sendState(first.clientID, motionRecord(-350)), 1U);
    const Bytes report = first.input();
    ASSERT_EQ(report.size(), 55U);
    EXPECT_EQ((Bytes{report.begin(), report.begin() + 7}), (Bytes{0x35, 3, 0, 0, 0, 0, 0}));
    EXPECT_EQ((Bytes{report.begin() + 9, report.begin() + 13}), (Bytes{1, 0, 3, 0})) << "client, command";
    EXPECT_EQ((Bytes{report.begin() + 37, report.begin() + 39}), (Bytes{0xA2, 0xFE}));
    EXPECT_TRUE(second.isQuiet());
    EXPECT_EQ(daemon->sendState(Daemon::allClients, motionRecord(1)), 2U);
    EXPECT_EQ(first.input()[9], 1);
    EXPECT_EQ(second.input()[9], 2);
    EXPECT_EQ(daemon->sendState(99, motionRecord(1)), 0U);
}

TEST_F(DaemonDaemon, MasksAreHonoured) {
    start();
    TestClient client(*daemon, 1);
    client.registerClient(0);
    EXPECT_EQ(daemon->sendState(client.clientID, motionRecord(1)), 0U);
    Dictionary masks{{"req", "setclientmasks"},
                     {"bsetmask", 1},
                     {"clientmask", 3},
                     {"bsetbuttonmask", 0},
                     {"buttonmask", 9}};
    client.send(masks);
    EXPECT_EQ(client.input(), acknowledgementInput);
    EXPECT_EQ(daemon->client(client.clientID)->eventMask, 3U);
    EXPECT_EQ(daemon->client(client.clientID)->buttonMask, 0U);
    EXPECT_EQ(daemon->sendState(client.clientID, motionRecord(1)), 1U);
    EXPECT_EQ(client.input().size(), 55U);
    MoxelStateRecord buttons{};
    buttons.command = buttonsChanged;
    buttons.buttons = 3;
    EXPECT_EQ(daemon->sendState(client.clientID, buttons), 0U);
    masks.set("bsetmask", 0);
    masks.set("bsetbuttonmask", 1);
    masks.set("buttonmask", 1);
    client.send(masks);
    EXPECT_EQ(client.input(), acknowledgementInput);
    buttons.buttons = 2;
    EXPECT_EQ(daemon->sendState(client.clientID, buttons), 1U);
    EXPECT_EQ(client.input()[51], 0);
    buttons.buttons = 3;
    EXPECT_EQ(daemon->sendState(client.clientID, buttons), 1U);
    EXPECT_EQ(client.input()[51], 1);
}

TEST_F(DaemonDaemon, ReportsOfAnyContentCanBeSent) {
    start();
    TestClient client(*daemon, 1);
    EXPECT_EQ(daemon->sendInputReport(1, Bytes{0x45, 1, 2}), 1U);
    EXPECT_EQ(client.input(), (Bytes{0x45, 1, 2}));
    EXPECT_EQ(daemon->sendInputReport(Daemon::baseChannel, Bytes{0x35}), 1U);
    EXPECT_EQ(client.base.input(), Bytes{0x35});
    EXPECT_EQ(daemon->sendInputReport(77, Bytes{0x35}), 0U);
}

TEST_F(DaemonDaemon, InputReportsCanBePadded) {
    Options options;
    options.inputReportSize = 64;
    start(options);
    TestClient client(*daemon, 1);
    client.send(registrationRequestOf(1, 1));
    EXPECT_EQ(client.input(), registrationAnswer(1, 1) + Bytes(45));
}

TEST_F(DaemonDaemon, ManyStatesArriveInOrderUnderBackPressure) {
    start();
    TestClient client(*daemon, 1);
    client.registerClient();
    constexpr int batches = 50;
    constexpr int batch = 1000;
    std::thread sender([&] {
        std::vector<MoxelStateRecord> records(batch, motionRecord(1));
        for (int number = 0; number < batches; ++number) {
            for (int index = 0; index < batch; ++index)
                records[static_cast<size_t>(index)].value = number * batch + index;
            EXPECT_EQ(daemon->sendStates(client.clientID, records), static_cast<size_t>(batch));
            EXPECT_TRUE(daemon->waitUntilQueued(64 << 10, patience));
        }
    });
    for (int number = 0; number < batches * batch; ++number) {
        const Bytes report = client.input();
        ASSERT_EQ(report.size(), 55U);
        ASSERT_EQ((Bytes{report.begin() + 15, report.begin() + 19}),
                  littleEndian(static_cast<uint64_t>(number), 4));
    }
    sender.join();
    EXPECT_TRUE(daemon->waitUntilQueued(0, patience));
}

// ------------------------------------------------------------------------------------------ Messages

TEST_F(DaemonDaemon, DictionaryArrivesInPackets) {
    start();
    TestClient client(*daemon, 1);
    client.registerClient();
    const Dictionary sync = commandSyncMessage(5, countingSyncBlock());
    ASSERT_TRUE(daemon->sendDictionary(client.clientID, sync).ok());
    EXPECT_EQ(client.takeMessage(), sync);
    EXPECT_EQ(client.packets, 1);
    ASSERT_TRUE(
        daemon->sendDictionary(client.clientID, sync, {.wantsAnswer = false, .packetSize = 100}).ok());
    EXPECT_EQ(client.takeMessage(), sync);
    EXPECT_GT(client.packets, 5);
    ASSERT_TRUE(daemon->sendDictionary(client.clientID, {{"req", "big"}, {"data", Data(9000, 7)}}).ok());
    EXPECT_EQ(client.takeMessage().find("data")->as<Data>()->size(), 9000U);
    EXPECT_EQ(client.packets, 5);
    const auto seen = daemon->waitForClient(
        patience, [](const ClientDescription &other) { return other.acknowledgements == 6; });
    ASSERT_TRUE(seen);
    EXPECT_GT(seen->packetsRead, 11);
    EXPECT_FALSE(daemon->sendDictionary(client.clientID + 1, sync).ok());
    EXPECT_TRUE(daemon->sendDictionary(Daemon::allClients, sync).ok());
    EXPECT_EQ(client.takeMessage(), sync);
}

TEST_F(DaemonDaemon, PacketStaysUntilItIsAcknowledged) {
    start();
    TestClient client(*daemon, 1);
    client.registerClient();
    ASSERT_TRUE(daemon->sendPacket(client.clientID, {{2, 0, 1, 0, 0, 2, 'a'}, 7, true}).ok());
    ASSERT_TRUE(daemon->sendPacket(client.clientID, {{2, 0, 1, 0, 1, 2, 'b'}, 7, false}).ok());
    EXPECT_EQ(client.input(), dataWaiting(7, true));
    EXPECT_EQ(client.dedicated->getReport(0x54, 7).content, (Bytes{2, 0, 1, 0, 0, 2, 'a'}));
    EXPECT_EQ(client.dedicated->getReport(0x54, 3).content, (Bytes{2, 0, 1}));
    EXPECT_TRUE(client.isQuiet());
    client.acknowledgePacket();
    EXPECT_EQ(client.input(), dataWaiting(7, false));
    EXPECT_EQ(client.dedicated->getReport(0x54, 2048).content, (Bytes{2, 0, 1, 0, 1, 2, 'b'}));
    EXPECT_EQ(client.dedicated->getReport(0x54, 2048).status, error) << "the slot is empty";
}

TEST_F(DaemonDaemon, StoredDataQueryIsAnswered) {
    start();
    TestClient client(*daemon, 1);
    client.registerClient();
    EXPECT_EQ(daemon->queryStoredData(client.clientID), 1U);
    EXPECT_EQ(client.input(), (Bytes{0x35, 4, 0, 0xAF, 0xDE, 0, 0, 0}));
    EXPECT_EQ(client.dedicated->setReport(0x46, 1, Bytes{6, 0, 0xFE, 0x71} + Bytes(34)), 0U);
    EXPECT_TRUE(daemon->waitForClient(
        patience, [](const ClientDescription &other) { return other.storedDataReplies == 1; }));
    EXPECT_TRUE(client.isQuiet()) << "not a request, so not acknowledged";
}

} // namespace
} // namespace moxel::daemon
