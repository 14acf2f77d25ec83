// moxelctl list: channels, their owners and states, and why there is no driver.
#include "Support/BusPublisher.h"
#include "Tools/ToolTest.h"

#include <sys/stat.h>
#include <unistd.h>

namespace moxel::test {
namespace {

class List : public ToolTest {
  protected:
    [[nodiscard]] Json listed(const std::string &name) const {
        const Json all = Json::parse(run({"list", "--json"}).output);
        for (const Json &device : all["buses"][0]["devices"]) {
            if (device["name"] == name || device["place"] == bus + "/" + name + ".hid")
                return device;
        }
        ADD_FAILURE() << name << " is not listed: " << all;
        return {};
    }
    void makeBus() const { ASSERT_EQ(::mkdir(bus.c_str(), 0700), 0); }
};

TEST_F(List, ShowsTheChannelsWithOwnersAndStates) {
    startDaemon();
    ChildProcess client = startTool({"monitor", "--plain"});
    ASSERT_TRUE(moxeld->waitForClient(patience).has_value());
    const Finished list = run({"list"});
    EXPECT_EQ(list.exitCode, 0) << list.errors;
    EXPECT_THAT(list.output, StartsWith("bus " + bus + "\n"));
    EXPECT_THAT(list.output,
                HasSubstr("  " + moxeld->baseChannelName() + "\n    is       base channel for user "));
    EXPECT_THAT(list.output, HasSubstr("    is       channel of a client, made 2"));
    const std::string owner =
        "user " + std::to_string(::getuid()) + ", process " + std::to_string(::getpid());
    EXPECT_THAT(list.output, HasSubstr("    owner    " + owner + " (tools_tests)\n    state    ready\n"));
    EXPECT_EQ(list.errors, "");
}

TEST_F(List, TellsPrograms) {
    startDaemon();
    const Json base = listed(moxeld->baseChannelName());
    EXPECT_EQ(base["kind"], "base");
    EXPECT_EQ(base["state"], "ready");
    EXPECT_EQ(base["problem"], "");
    EXPECT_EQ(base["user"], ::getuid());
    EXPECT_EQ(base["process"], ::getpid());
    EXPECT_EQ(base["program"], "tools_tests");
    EXPECT_EQ(base["manufacturer"], "Moxel");
    EXPECT_EQ(base["vendorID"], 0x4D58);
}

TEST_F(List, NamesTheClientsChannel) {
    startDaemon();
    ASSERT_TRUE(moxeld->publishChannel(0x19A0).ok());
    const Json channel = listed("MxlVirtualHIDData_ID19A0");
    EXPECT_EQ(channel["kind"], "dedicated");
    EXPECT_EQ(channel["channel"], 0x19A0);
}

TEST_F(List, KnowsStaleSilentAndMalformedDevices) {
    startDaemon();
    PublisherSocket stale(bus, "stale");
    stale.stopListening();
    const ServingPublisher silent(bus, "silent", [](const Bytes &) { return std::vector<Bytes>(); });
    const ServingPublisher chatty(bus, "chatty", [](const Bytes &) { return std::vector<Bytes>{{9, 9}}; });
    EXPECT_EQ(listed("stale")["state"], "stale");
    EXPECT_EQ(listed("silent")["state"], "silent");
    EXPECT_EQ(listed("silent")["kind"], "other");
    EXPECT_EQ(listed("chatty")["state"], "malformed");
    EXPECT_THAT(run({"list"}).output,
                AllOf(HasSubstr("  stale.hid\n    owner    unknown\n    state    stale: nobody listens"),
                      HasSubstr("    is       not a channel of the driver\n"),
                      HasSubstr("    state    silent: it does not answer\n")));
}

TEST_F(List, DoesNotTrustPublishersOfOtherUsers) {
    if (::getuid() != 0)
        GTEST_SKIP() << "needs root";
    startDaemon();
    const PublisherSocket foreign(bus, "foreign");
    foreign.listenAs(65534);
    const Json device = listed("foreign");
    EXPECT_EQ(device["state"], "untrusted");
    EXPECT_EQ(device["user"], 65534);
}

TEST_F(List, WhatADeviceSaysCannotControlTheTerminal) {
    startDaemon();
    const ServingPublisher publisher(bus, "odd");
    ServingPublisher painter(bus, "painter",
                             [](const Bytes &request) { return ServingPublisher::answerSuccess(request); });
    daemon::DeviceDescription device;
    device.name = "red \x1b[31m";
    ASSERT_TRUE(moxeld->publishDevice(device).ok());
    const std::string output = run({"list"}).output;
    EXPECT_THAT(output, HasSubstr("  red \\x1b[31m\n"));
    EXPECT_THAT(output, Not(HasSubstr("\x1b")));
}

// ------------------------------------------------------------------------------------------ No driver

TEST_F(List, SaysThatThereIsNoBusFolder) {
    const Finished list = run({"list"});
    EXPECT_EQ(list.exitCode, 3);
    EXPECT_EQ(list.output, "bus " + bus + ": it does not exist\n");
    EXPECT_EQ(
        list.errors,
        "moxelctl: no driver answers: there is no bus folder " + bus +
            "\n  Start the driver (moxeld). If it runs already, set MOXEL_HID_BUS to the folder that it "
            "uses.\n");
    EXPECT_EQ(Json::parse(run({"list", "--json"}).output)["buses"][0]["state"], "missing");
}

TEST_F(List, SaysThatTheBusFolderIsEmpty) {
    makeBus();
    const Finished list = run({"list"});
    EXPECT_EQ(list.exitCode, 3);
    EXPECT_EQ(list.output, "bus " + bus + ": empty\n");
    EXPECT_EQ(list.errors, "moxelctl: no driver answers: the bus folder " + bus +
                               " is empty\n  Start the driver (moxeld).\n");
}

TEST_F(List, SaysThatOthersMayWriteToTheBusFolder) {
    makeBus();
    ASSERT_EQ(::chmod(bus.c_str(), 0777), 0);
    const Finished list = run({"list"});
    EXPECT_EQ(list.exitCode, 3);
    EXPECT_EQ(list.errors,
              "moxelctl: no driver answers: the bus folder " + bus +
                  " is not used: its group or others may write to it\n  Make it yours alone:\n    "
                  "chown \"$(id -u)\" " +
                  bus + " && chmod go-w " + bus +
                  "\n  or set MOXEL_HID_BUS to another folder, for the driver and for this program.\n");
    EXPECT_EQ(Json::parse(run({"list", "--json"}).output)["buses"][0]["state"], "untrusted");
}

TEST_F(List, SaysThatTheBusFolderBelongsToSomebodyElse) {
    if (::getuid() != 0)
        GTEST_SKIP() << "needs root";
    makeBus();
    ASSERT_EQ(::chown(bus.c_str(), 65534, 65534), 0);
    const Finished list = run({"list"});
    EXPECT_EQ(list.exitCode, 3);
    EXPECT_THAT(list.errors,
                HasSubstr("is not used: it belongs to user 65534, neither root nor this user\n"));
}

TEST_F(List, SaysThatTheBusFolderIsAFile) {
    (void)folder.write("bus");
    const Finished list = run({"list"});
    EXPECT_EQ(list.exitCode, 3);
    EXPECT_THAT(list.errors, HasSubstr("is not used: it cannot be opened: Not a directory\n"));
    EXPECT_EQ(Json::parse(run({"list", "--json"}).output)["buses"][0]["state"], "unreadable");
}

TEST_F(List, SaysThatTheDriverServesAnotherUser) {
    daemon::Options options;
    options.user = 123456;
    startDaemon(std::move(options));
    const Finished list = run({"list"});
    EXPECT_EQ(list.exitCode, 3);
    EXPECT_THAT(list.output, HasSubstr("base channel for user 123456\n"));
    EXPECT_THAT(list.errors,
                AllOf(HasSubstr("holds no channel MxlVirtualHIDData_Base"), HasSubstr("moxeld --user ")));
}

TEST_F(List, SaysThatTheDriverHangs) {
    startDaemonWithFault("unresponsive");
    const Finished list = run({"list"});
    EXPECT_EQ(list.exitCode, 3);
    EXPECT_THAT(list.errors, AllOf(HasSubstr(".hid does not work: it does not answer\n"),
                                   HasSubstr("stop it and start it again")));
}

TEST_F(List, SaysThatTheDriverIsDead) {
    startDaemon();
    const std::string name = moxeld->baseChannelName();
    moxeld.reset();
    PublisherSocket stale(bus, name);
    stale.stopListening();
    const Finished list = run({"list"});
    EXPECT_EQ(list.exitCode, 3);
    EXPECT_THAT(list.errors,
                HasSubstr(name + ".hid is dead: nobody listens: its publisher is gone\n  Start the "
                                 "driver (moxeld) again.\n"));
}

} // namespace
} // namespace moxel::test
