// The daemon's channels, as a client meets them.
#include "Daemon/TestClient.h"
#include "Moxel Daemon/Bus/BusFolder.h"
#include "Platform/Session.h"
#include "Support/CapturedLog.h"
#include "Support/ChildProcess.h"
#include "Support/EnvironmentVariable.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <optional>
#include <pwd.h>
#include <string>
#include <unistd.h>

namespace moxel::daemon {
namespace {

using ::testing::HasSubstr;

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
        EXPECT_EQ(channel->setReport(0x99, 7, {1}), status::badArgument) << "an unknown report";
        EXPECT_EQ(channel->setReport(0x35, 7, {1}), status::badArgument) << "an input report";
        EXPECT_EQ(channel->setReport(0x46, 7, {}), status::badArgument) << "nothing behind the tag";
        EXPECT_EQ(channel->request(message(4, 1, 0x46, 0, {1, 2})).status, status::badArgument)
            << "half a tag";
        EXPECT_EQ(channel->request(message(4, 2, 0x46, 0, Bytes(20))).status, status::badArgument)
            << "a feature report";
        EXPECT_EQ(channel->setReport(0x63, 7, Bytes(3064)), status::badArgument) << "longer than any report";
        EXPECT_EQ(channel->getReport(0x55, 100).status, status::badArgument) << "an unknown report";
        EXPECT_EQ(channel->request(message(5, 2, 0x54, 100)).status, status::badArgument)
            << "a feature report";
        EXPECT_EQ(channel->getReport(0x54, 100).status, status::error) << "an empty slot";
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

} // namespace
} // namespace moxel::daemon
