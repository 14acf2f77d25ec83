// moxelctl monitor with a live daemon, piped.
#include "Tools/ToolTest.h"

#include <csignal>

namespace moxel::test {
namespace {

using Monitor = ToolTest;

/// One at a time: messages and states travel on different roads, and states may overtake each other's
/// delivery.
const std::vector<std::string> everyKind = {"added 0x4D580001",
                                            "prefs arg=1",
                                            "sync",
                                            "motion 1 -2 3 -4 5 -6",
                                            "buttons 0x80000001",
                                            "appevent 7 pressed value=9",
                                            "pairing command=\"paired\" slot=1 serial=\"0\\\"1\"",
                                            "removed 0x4D580001"};

TEST_F(Monitor, PrintsALineForEachEventAndASummary) {
    startDaemon();
    ChildProcess monitor = startTool({"monitor", "--count", "8"});
    ASSERT_TRUE(awaitListener());
    std::string lines;
    for (const std::string &event : everyKind) {
        happen(event);
        lines += monitor.readLine() + "\n";
    }
    EXPECT_THAT(lines, MatchesRegex(" +[0-9.]+  added        device 0x4D580001\n"
                                    " +[0-9.]+  preferences\n"
                                    " +[0-9.]+  sync         506 bytes\n"
                                    " +[0-9.]+  motion       axes 1 -2 3 -4 5 -6  buttons 0x00000000\n"
                                    " +[0-9.]+  buttons      axes 1 -2 3 -4 5 -6  buttons 0x80000001\n"
                                    " +[0-9.]+  application  command 10  param 7  value 9  pressed 1\n"
                                    " +[0-9.]+  pairing      .\"slot\": 1, \"serial\": \"0..1\", \"req\": "
                                    "\"paired\".\n"
                                    " +[0-9.]+  removed      device 0x4D580001\n"));
    const Finished ended = finish(monitor);
    EXPECT_EQ(ended.exitCode, 0);
    EXPECT_EQ(ended.output, "");
    EXPECT_THAT(ended.errors,
                MatchesRegex("8 events in [0-9.]+ s: 1 added, 1 application, 1 buttons, 1 motion, 1 pairing, "
                             "1 preferences, 1 removed, 1 sync\n"));
    EXPECT_TRUE(awaitNoClients());
}

TEST_F(Monitor, PrintsJson) {
    startDaemon();
    ChildProcess monitor = startTool({"monitor", "--json", "--count", "8"});
    ASSERT_TRUE(awaitListener());
    std::vector<Json> events;
    for (const std::string &event : everyKind) {
        happen(event);
        events.push_back(Json::parse(monitor.readLine()));
    }
    EXPECT_EQ(events[0]["event"], "added");
    EXPECT_EQ(events[0]["device"], 0x4D580001);
    EXPECT_EQ(events[1]["event"], "preferences");
    EXPECT_EQ(events[2]["content"]["$data"].get<std::string>().size(), 1012U);
    EXPECT_EQ(events[3]["event"], "motion");
    EXPECT_EQ(events[3]["product"], 0);
    EXPECT_EQ(events[3]["client"], 1);
    EXPECT_EQ(events[3]["axes"], Json({1, -2, 3, -4, 5, -6}));
    EXPECT_EQ(events[4]["buttons"], 0x80000001);
    EXPECT_EQ(events[5]["param"], 7);
    EXPECT_EQ(events[5]["value"], 9);
    EXPECT_EQ(events[5]["pressed"], 1);
    EXPECT_EQ(events[6]["content"], Json({{"slot", 1}, {"serial", "0\"1"}, {"req", "paired"}}));
    EXPECT_EQ(events[7]["event"], "removed");
    EXPECT_GE(events[7]["time"], events[0]["time"]);
    EXPECT_EQ(finish(monitor).exitCode, 0);
}

TEST_F(Monitor, RegistersUnderTheNameAndWithTheMasksThatAreGiven) {
    startDaemon();
    ChildProcess monitor =
        startTool({"monitor", "--name", "Näme", "--events", "motion,application", "--buttons", "1,12"});
    const auto isSet = [](const daemon::Observation &seen) {
        return seen.clients.size() == 1 && seen.clients[0].buttonMask == 0x801;
    };
    ASSERT_TRUE(moxeld->waitUntil(isSet, patience));
    const daemon::ClientDescription client = moxeld->clients().at(0);
    EXPECT_EQ(client.application->name, "Näme");
    EXPECT_EQ(client.eventMask, 5U);
}

TEST_F(Monitor, AsksForAllEventsAndButtonsByDefault) {
    startDaemon();
    ChildProcess monitor = startTool({"monitor"});
    const auto isSet = [](const daemon::Observation &seen) {
        return seen.clients.size() == 1 && seen.clients[0].buttonMask == 0xFFFFFFFF;
    };
    ASSERT_TRUE(moxeld->waitUntil(isSet, patience));
    EXPECT_EQ(moxeld->clients().at(0).eventMask, 0xFFFFFFFFU);
}

TEST_F(Monitor, EndsCleanlyOnSignals) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        startDaemon();
        play("motion 1 0 0 0 0 0");
        ChildProcess monitor = startTool({"monitor"});
        EXPECT_THAT(monitor.readLine(), HasSubstr("motion"));
        monitor.signal(signal);
        const Finished ended = finish(monitor);
        EXPECT_EQ(ended.exitCode, 0);
        EXPECT_THAT(ended.errors, MatchesRegex("1 event in [0-9.]+ s: 1 motion\n"));
        EXPECT_TRUE(awaitNoClients());
        EXPECT_EQ(moxeld->observe().departed.back().exitState, 0xDEAD) << "it did not say goodbye";
        moxeld.reset();
    }
}

TEST_F(Monitor, EndsCleanlyWhenItsReaderLeaves) {
    startDaemon();
    ASSERT_TRUE(moxeld->startMovement(100).ok());
    ChildProcess shell({"/bin/sh", "-c", "\"$0\" monitor | head -n 1", MOXELCTL}, environment());
    const Finished ended = finish(shell);
    EXPECT_THAT(ended.output, MatchesRegex("[^\n]*motion[^\n]*\n"));
    EXPECT_THAT(ended.errors, MatchesRegex("[0-9]+ events? in [0-9.]+ s: [0-9]+ motion\n"));
    EXPECT_TRUE(awaitNoClients());
    EXPECT_EQ(moxeld->observe().departed.back().exitState, 0xDEAD) << "it did not say goodbye";
}

TEST_F(Monitor, NoticesThatItsReaderLeftWithoutAnEvent) {
    startDaemon();
    ChildProcess shell({"/bin/sh", "-c", "{ \"$0\" monitor; echo \"status $?\" >&2; } | read line", MOXELCTL},
                       environment());
    play("motion 1 0 0 0 0 0");
    const Finished ended = finish(shell);
    EXPECT_THAT(ended.errors, MatchesRegex("1 event in [0-9.]+ s: 1 motion\nstatus 0\n"));
}

TEST_F(Monitor, SaysThatItCannotWrite) {
    startDaemon();
    play("motion 1 0 0 0 0 0");
    ChildProcess shell({"/bin/sh", "-c", "\"$0\" monitor > /dev/full", MOXELCTL}, environment());
    const Finished ended = finish(shell);
    EXPECT_THAT(ended.errors,
                StartsWith("moxelctl: cannot write to standard output: No space left on device\n"));
    EXPECT_EQ(ended.exitCode, 1);
}

TEST_F(Monitor, EndsWhenItsTimeIsUp) {
    startDaemon();
    const Finished monitor = run({"monitor", "--seconds", "0"});
    EXPECT_EQ(monitor.exitCode, 0);
    EXPECT_EQ(monitor.output, "");
    EXPECT_THAT(monitor.errors, MatchesRegex("0 events in [0-9]+\\.[0-9] s\n"));
}

TEST_F(Monitor, FailsWithoutTheEventsThatAreRequired) {
    startDaemon();
    play("motion 1 0 0 0 0 0");
    const Finished monitor = run(
        {"monitor", "--count", "1", "--require", "motion", "--require", "buttons", "--require", "pairing"});
    EXPECT_EQ(monitor.exitCode, 1);
    EXPECT_THAT(monitor.errors,
                EndsWith("moxelctl: no buttons event came\nmoxelctl: no pairing event came\n"));
}

TEST_F(Monitor, SucceedsWithTheEventsThatAreRequired) {
    startDaemon();
    play("motion 1 0 0 0 0 0");
    EXPECT_EQ(run({"monitor", "--count", "1", "--require", "motion"}).exitCode, 0);
}

TEST_F(Monitor, EndsWhenTheDriverLeaves) {
    startDaemon();
    play("motion 1 0 0 0 0 0");
    ChildProcess monitor = startTool({"monitor"});
    EXPECT_THAT(monitor.readLine(), HasSubstr("motion"));
    moxeld.reset();
    const Finished ended = finish(monitor);
    EXPECT_EQ(ended.exitCode, 3);
    EXPECT_THAT(ended.errors, EndsWith("moxelctl: the driver went away\n  Start it (moxeld) and then this "
                                       "program again.\n"));
}

TEST_F(Monitor, ALeavingDriverIsNoFailureWhenAllThatIsRequiredCame) {
    startDaemon();
    play("motion 1 0 0 0 0 0");
    ChildProcess monitor = startTool({"monitor", "--require", "motion"});
    EXPECT_THAT(monitor.readLine(), HasSubstr("motion"));
    moxeld.reset();
    EXPECT_EQ(finish(monitor).exitCode, 0);
}

TEST_F(Monitor, SaysWhyThereIsNoDriver) {
    const Finished monitor = run({"monitor"});
    EXPECT_EQ(monitor.exitCode, 3);
    EXPECT_EQ(monitor.output, "");
    EXPECT_THAT(monitor.errors,
                StartsWith("moxelctl: no driver answers: there is no bus folder " + bus + "\n"));
}

TEST_F(Monitor, SaysThatTheDriverRefusesToBeOpened) {
    startDaemonWithFault("refuse-base-open");
    const Finished monitor = run({"monitor"});
    EXPECT_EQ(monitor.exitCode, 3);
    EXPECT_THAT(monitor.errors,
                StartsWith("moxelctl: no driver answers: the driver does not let this program open "
                           "its channel " +
                           moxeld->baseChannelName() + "\n  "));
}

TEST_F(Monitor, SaysThatTheDriverMakesNoChannel) {
    startDaemonWithFault("no-dedicated-channel");
    const Finished monitor = run({"monitor"});
    EXPECT_EQ(monitor.exitCode, 4);
    EXPECT_EQ(monitor.errors,
              "moxelctl: the driver answers but does not register this program: Timeout - Failed to "
              "connect to dedicated communication channel\n  Start the driver (moxeld) again; "
              "MOXEL_LOG=stderr shows each step.\n");
}

TEST_F(Monitor, SaysThatTheDriverDoesNotAnswerTheRegistration) {
    startDaemonWithFault("no-registration-answer");
    const Finished monitor = run({"monitor"});
    EXPECT_EQ(monitor.exitCode, 4);
    EXPECT_THAT(monitor.errors,
                StartsWith("moxelctl: the driver answers but does not register this program: Timeout - "
                           "Failed to complete application registration\n"));
}

} // namespace
} // namespace moxel::test
