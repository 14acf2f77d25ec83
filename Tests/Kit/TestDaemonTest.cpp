// The kit that applications test themselves with.
#include <Moxel/DaemonTest.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace moxel {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

std::optional<std::string> variable(const char *name) {
    const char *value = std::getenv(name);
    return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
}

/// A session of the test's thread, which remembers the states that it got.
class KitTest : public DaemonTest {
  protected:
    void TearDown() override {
        close();
        DaemonTest::TearDown();
    }
    static int16_t install() {
        states.clear();
        return SetMoxelHandlers(
            [](uint32_t, uint32_t type, void *argument) {
                if (type == kMoxelMsgDeviceState)
                    states.push_back(*static_cast<const MoxelStateRecord *>(argument));
            },
            nullptr, nullptr, false);
    }
    static uint16_t registerAs() {
        std::array<uint8_t, 4> name{3, 'K', 'i', 't'};
        return RegisterMoxelClient(0x4B697421, name.data(), 3, 7);
    }
    void open() {
        ASSERT_EQ(install(), kMoxelResultOK);
        isInstalled = true;
        client = registerAs();
        ASSERT_NE(client, 0);
    }
    void close() {
        if (client != 0)
            UnregisterMoxelClient(client);
        if (isInstalled)
            CleanupMoxelHandlers();
        client = 0;
        isInstalled = false;
    }

    uint16_t client = 0;
    bool isInstalled = false;
    static inline std::vector<MoxelStateRecord> states;
};

TEST_F(KitTest, ButtonsBeyondTheEighthComeOnceTheyAreAskedFor) {
    open();
    play("buttons 0x100\n"
         "buttons 0x101\n");
    ASSERT_TRUE(runUntil([] { return !states.empty(); }));
    EXPECT_EQ(states[0].buttons, 1U);
    SetMoxelClientButtonMask(client, 0xFFFFFFFF);
    ASSERT_TRUE(daemon().waitUntil(
        [](const auto &clients) { return clients.size() == 1 && clients[0].buttonMask == 0xFFFFFFFF; },
        patience));
    daemon().buttons(0x100);
    ASSERT_TRUE(runUntil([] { return states.size() == 2; }));
    EXPECT_EQ(states[1].buttons, 0x100U);
}

TEST_F(KitTest, TellsWhoIsRegistered) {
    EXPECT_TRUE(daemon().clients().empty());
    open();
    const std::optional<TestClient> seen = daemon().waitForClient(patience);
    ASSERT_TRUE(seen);
    EXPECT_EQ(seen->clientID, client);
    EXPECT_EQ(seen->name, "Kit");
    EXPECT_EQ(seen->signature, 0x4B697421U);
    EXPECT_EQ(seen->mode, 3);
    EXPECT_EQ(seen->eventMask, 7U);
    close();
    EXPECT_TRUE(daemon().waitUntil([](const auto &clients) { return clients.empty(); }, patience));
}

TEST_F(KitTest, MovesAndPressesAtOnce) {
    open();
    daemon().motion({1, 2, 3, -4, -5, -6});
    ASSERT_TRUE(runUntil([] { return states.size() == 1; }));
    EXPECT_THAT(states[0].axis, ElementsAre(1, 2, 3, -4, -5, -6));
    daemon().buttons(0x5);
    ASSERT_TRUE(runUntil([] { return states.size() == 2; }));
    EXPECT_EQ(states[1].buttons, 5U);
}

TEST_F(KitTest, PlaysTracesInTheirTime) {
    open();
    play("0.00 buttons 1\n"
         "0.05 buttons 0\n");
    EXPECT_TRUE(runUntil([] { return states.size() == 2; }));
    EXPECT_TRUE(daemon().waitUntilPlayed(TestDaemon::Timeout(0)));
}

TEST_F(KitTest, SaysWhatIsWrongWithATraceOrAFault) {
    const Result<void> played = daemon().play("0.0 motion 0 0 0 0 0 0\n0.1 nonsense\n");
    ASSERT_FALSE(played.ok());
    EXPECT_THAT(played.error().message, HasSubstr("line 2"));
    EXPECT_FALSE(daemon().playFile("/nowhere/at.trace").ok());
    const Result<void> added = daemon().addFault("nonsense");
    ASSERT_FALSE(added.ok());
    EXPECT_THAT(added.error().message, HasSubstr("no-acknowledgement"));
}

TEST_F(KitTest, DoesWrongUntilItIsToldNotTo) {
    open();
    addFault("no-acknowledgement");
    EXPECT_EQ(MoxelClientControl(client, 0x61626364, 5, nullptr), kMoxelResultFailed);
    daemon().removeFaults();
    EXPECT_EQ(MoxelClientControl(client, 0x61626365, 6, nullptr), kMoxelResultOK);
    const std::optional<TestControl> control = daemon().waitForControl(0x61626365, patience);
    ASSERT_TRUE(control);
    EXPECT_EQ(control->clientID, client);
    EXPECT_EQ(control->parameter, 6);
    EXPECT_FALSE(daemon().waitForControl(0x7A7A7A7A, TestDaemon::Timeout(0)));
}

TEST_F(KitTest, HandsOutMessagesAsTheyWereSent) {
    open();
    const std::vector<uint8_t> sent{1, 2, 3, 250};
    EXPECT_EQ(MoxelClientSendMessage(client, 0, sent.data(), sent.size()), kMoxelResultOK);
    EXPECT_EQ(daemon().waitForMessage(patience), sent);
}

TEST_F(KitTest, CanBeGoneAndComeBack) {
    daemon().stop();
    EXPECT_TRUE(daemon().clients().empty());
    EXPECT_FALSE(daemon().play("0.0 pause\n").ok());
    daemon().motion({}); // Nobody is there to be told.
    ASSERT_TRUE(daemon().startAgain().ok());
    open();
    daemon().motion({7, 0, 0, 0, 0, 0});
    EXPECT_TRUE(runUntil([] { return states.size() == 1; }));
}

TEST_F(KitTest, EndsASessionWhenItIsGoneAndServesANewOneWhenItIsBack) {
    open();
    daemon().motion({1, 0, 0, 0, 0, 0});
    ASSERT_TRUE(runUntil([] { return states.size() == 1; }));
    daemon().stop();
    EXPECT_EQ(MoxelClientControl(client, 0x61626364, 0, nullptr), kMoxelResultFailed);
    close();
    EXPECT_EQ(install(), kMoxelResultNoChannel);
    CleanupMoxelHandlers();
    ASSERT_TRUE(daemon().startAgain().ok());
    open();
    daemon().motion({2, 0, 0, 0, 0, 0});
    ASSERT_TRUE(runUntil([] { return states.size() == 1; }));
    EXPECT_EQ(states[0].axis[0], 2);
}

TEST_F(KitTest, GivesASessionThatItLeftNoMoreEvents) {
    open();
    daemon().stop();
    ASSERT_TRUE(daemon().startAgain().ok());
    EXPECT_TRUE(daemon().clients().empty());
    EXPECT_EQ(MoxelClientControl(client, 0x61626364, 0, nullptr), kMoxelResultFailed);
}

TEST_F(KitTest, IsTheOnlyOneOfItsProcess) {
    const auto second = TestDaemon::start();
    ASSERT_FALSE(second.ok());
    EXPECT_THAT(second.error().message, HasSubstr("already"));
}

TEST(Kit, LeadsTheEnvironmentToItselfForAWhile) {
    const auto busBefore = variable("MOXEL_HID_BUS");
    const auto configurationBefore = variable("XDG_CONFIG_HOME");
    std::string bus;
    {
        const auto daemon = TestDaemon::start();
        ASSERT_TRUE(daemon.ok()) << daemon.error().message;
        bus = variable("MOXEL_HID_BUS").value_or("");
        EXPECT_FALSE(std::filesystem::is_empty(bus));
        EXPECT_EQ(variable("MOXEL_HIDRAW"), "off");
        EXPECT_TRUE((*daemon)->exportFolder().starts_with(variable("XDG_CONFIG_HOME").value_or("/none")));
    }
    EXPECT_TRUE(std::filesystem::is_empty(bus));
    EXPECT_EQ(variable("MOXEL_HID_BUS"), busBefore);
    EXPECT_EQ(variable("XDG_CONFIG_HOME"), configurationBefore);
}

TEST(Kit, RefusesToStartWithAFaultThatThereIsNot) {
    TestDaemonOptions options;
    options.faults = {"nonsense"};
    EXPECT_FALSE(TestDaemon::start(options).ok());
    options.faults = {"no-base-channel"};
    EXPECT_TRUE(TestDaemon::start(options).ok());
}

} // namespace
} // namespace moxel
