// Traces and movement as clients get them.
#include "Daemon/TestClient.h"
#include "Moxel Daemon/Motion/TraceParser.h"
#include "Moxel Daemon/Protocol/DaemonMessages.h"
#include "Platform/Linux/Descriptor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

namespace moxel::daemon {
namespace {

using ::testing::HasSubstr;

class DaemonMotion : public DaemonFixture {
  protected:
    static bool isOver(const Observation &seen) { return seen.traceIsOver; }
    void play(std::string_view text, PlayOptions options = {}) {
        const Result<void> played = daemon->playTrace(*parseTrace(text), options);
        EXPECT_TRUE(played.ok()) << (played.ok() ? "" : played.error().message);
    }
    /// Its wide fields may lie at odd addresses, so expectations take copies of them (+).
    static MoxelStateRecord recordOf(const Bytes &report) {
        MoxelStateRecord record{};
        EXPECT_EQ(report.size(), 55U);
        if (report.size() == 55)
            std::memcpy(&record, report.data() + 7, sizeof record);
        return record;
    }
};

TEST_F(DaemonMotion, EventsBecomeStates) {
    start();
    TestClient client(*daemon, 1);
    client.registerClient();
    play(
        "motion 1 -2 3 -4 5 -6\nbuttons 0x105\nmotion 0 0 0 0 0 0\nappevent -3 pressed value=9\nbuttons 0\n");
    const MoxelStateRecord motion = recordOf(client.input());
    EXPECT_EQ(motion.version, 1);
    EXPECT_EQ(motion.client, client.clientID);
    EXPECT_EQ(motion.command, 3);
    EXPECT_THAT(std::vector<int>(motion.axis, motion.axis + 6), ::testing::ElementsAre(1, -2, 3, -4, 5, -6));
    EXPECT_GT(+motion.time, 0U);
    const MoxelStateRecord pressed = recordOf(client.input());
    EXPECT_EQ(pressed.command, 2);
    EXPECT_EQ(+pressed.buttons, 0x05U) << "the ninth button is masked";
    EXPECT_EQ(pressed.buttons8, 0x05);
    EXPECT_EQ(pressed.axis[0], 1) << "the cap is where it was";
    EXPECT_GE(+pressed.time, +motion.time);
    const MoxelStateRecord rest = recordOf(client.input());
    EXPECT_EQ(rest.axis[0], 0);
    EXPECT_EQ(+rest.buttons, 0x05U);
    const MoxelStateRecord application = recordOf(client.input());
    EXPECT_EQ(application.command, 10);
    EXPECT_EQ(application.param, -3);
    EXPECT_EQ(+application.value, 9);
    EXPECT_EQ(application.appEventPressed, 1);
    EXPECT_EQ(+recordOf(client.input()).buttons, 0U);
    EXPECT_TRUE(daemon->waitUntil(isOver, patience));
    EXPECT_EQ(daemon->observe().traceEvents, 5U);
}

TEST_F(DaemonMotion, MessagesAndQuestionsReachTheirClient) {
    start();
    TestClient client(*daemon, 1);
    client.registerClient();
    play("identity 1 2\nadded 3\npairing command=\"x\" slot=1\nprefs arg=4 device=5\n");
    EXPECT_EQ(client.takeMessage(), deviceIdentityMessage(1, 2));
    EXPECT_EQ(client.takeMessage(), deviceAddedMessage(3));
    EXPECT_EQ(client.takeMessage(), pairingMessage("x", {{"slot", 1}}));
    EXPECT_EQ(client.takeMessage(), preferencesMessage(4, plainPreferences(5)));
    play("query\nreregister\n");
    EXPECT_EQ(client.input(), (Bytes{0x35, 4, 0, 0xAF, 0xDE, 0, 0, 0}));
    EXPECT_EQ(client.input(), (Bytes{0x35, 4, 0, 0xEF, 0xBE, 0, 0, 0}));
}

TEST_F(DaemonMotion, MessagesCanGoWithoutAcknowledgement) {
    Options options;
    options.traceAsksAcknowledgement = false;
    start(options);
    TestClient client(*daemon, 1);
    client.registerClient();
    play("added 3\n");
    EXPECT_EQ(client.input().at(7), 0);
}

TEST_F(DaemonMotion, TraceCanWaitForAClient) {
    start();
    play("buttons 1\n", {.waitForClient = true});
    EXPECT_FALSE(daemon->waitUntil(isOver, std::chrono::milliseconds(0)));
    TestClient client(*daemon, 1);
    EXPECT_FALSE(daemon->waitUntil(isOver, std::chrono::milliseconds(0))) << "not registered yet";
    client.registerClient();
    EXPECT_EQ(+recordOf(client.input()).buttons, 1U);
    EXPECT_TRUE(daemon->waitUntil(isOver, patience));
    play("buttons 2\n", {.waitForClient = true});
    EXPECT_EQ(+recordOf(client.input()).buttons, 2U);
}

TEST_F(DaemonMotion, TraceCanBeLoopedUntilItIsStopped) {
    start();
    TestClient client(*daemon, 1);
    client.registerClient();
    EXPECT_FALSE(daemon->playTrace(*parseTrace("buttons 1\n"), {.loop = true}).ok())
        << "it would take no time";
    play("buttons 1\n0.001 buttons 0\n0.002 pause\n", {.loop = true});
    for (uint32_t index = 0; index < 20; ++index)
        EXPECT_EQ(+recordOf(client.input()).buttons, 1 - index % 2);
    daemon->stopMotion();
    const uint64_t played = daemon->observe().traceEvents;
    EXPECT_FALSE(isOver(daemon->observe()));
    play("buttons 7\n");
    EXPECT_TRUE(daemon->waitUntil(isOver, patience));
    EXPECT_EQ(daemon->observe().traceEvents, played + 1);
}

TEST_F(DaemonMotion, TraceCanComeFromADescriptor) {
    std::atomic<int> ends = 0;
    Options options;
    options.whenTraceEnds = [&](const std::string &) { ++ends; };
    start(options);
    TestClient client(*daemon, 1);
    client.registerClient();
    int pipe[2];
    ASSERT_EQ(::pipe2(pipe, O_CLOEXEC), 0);
    const Descriptor out(pipe[0]);
    Descriptor in(pipe[1]);
    ASSERT_TRUE(daemon->playTraceFrom(out.get()).ok());
    ASSERT_EQ(::write(in.get(), "buttons 1\n", 10), 10);
    EXPECT_EQ(+recordOf(client.input()).buttons, 1U);
    ASSERT_EQ(::write(in.get(), "nonsense\n", 9), 9);
    EXPECT_TRUE(daemon->waitUntil(isOver, patience));
    EXPECT_THAT(daemon->observe().traceProblem, HasSubstr("line 2"));
    EXPECT_FALSE(daemon->playTraceFrom(-1).ok());
    play("pause\n");
    EXPECT_TRUE(daemon->waitUntil(
        [](const Observation &seen) { return seen.traceIsOver && seen.traceProblem.empty(); }, patience));
    daemon.reset();
    EXPECT_EQ(ends, 2);
}

TEST_F(DaemonMotion, MovementMovesAllAxes) {
    start();
    TestClient client(*daemon, 1);
    client.registerClient();
    ASSERT_TRUE(daemon->startMovement(1000).ok());
    std::array<bool, 6> moved{};
    while (!std::all_of(moved.begin(), moved.end(), [](bool axis) { return axis; })) {
        const MoxelStateRecord record = recordOf(client.input());
        ASSERT_EQ(record.command, 3);
        for (size_t axis = 0; axis < 6; ++axis)
            moved[axis] = moved[axis] || record.axis[axis] != 0;
    }
    daemon->stopMotion();
}

TEST_F(DaemonMotion, DaemonCanEndInTheMiddleOfATrace) {
    start();
    TestClient client(*daemon, 1);
    client.registerClient();
    play("repeat forever\nbuttons 1\nadded 1\n0.0001 end\n");
    EXPECT_EQ(+recordOf(client.input()).buttons, 1U);
    daemon.reset();
    EXPECT_TRUE(client.dedicated->awaitHangUp());
}

} // namespace
} // namespace moxel::daemon
