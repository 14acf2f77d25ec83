// moxelctl record and replay: a session becomes a trace, and a trace a session.
#include "Tools/ToolTest.h"

#include <csignal>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>

namespace moxel::test {
namespace {

std::string contentOf(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// Without comments and times; without the pause that tells a recording's length.
std::string eventsOf(const std::string &trace) {
    std::istringstream lines(trace);
    std::string events;
    for (std::string line; std::getline(lines, line);) {
        if (!line.starts_with('#') && !line.ends_with("pause"))
            events += line.substr(line.find(' ') + 1) + "\n";
    }
    return events;
}

class Record : public ToolTest {
  protected:
    /// Returns when the recording holds the event.
    void awaitLine(const std::string &event) const {
        const auto deadline = std::chrono::steady_clock::now() + patience;
        while (contentOf(trace).find(" " + event + "\n") == std::string::npos)
            ASSERT_LT(std::chrono::steady_clock::now(), deadline) << event;
    }

    const std::string trace = folder.path("session.trace");
    const std::string demo = std::string(MOXEL_TRACES) + "/demo.trace";
};

TEST_F(Record, WritesEveryKindOfEvent) {
    startDaemon();
    std::string preferences;
    for (int i = 0; i < 152; ++i)
        preferences += i == 4 ? "01" : i == 6 ? "58" : i == 7 ? "4d" : "00";
    std::string block;
    for (int i = 0; i < 506; ++i)
        block += "7f";
    const std::string events = "added 0x4D580001\n"
                               "prefs arg=3 data=" +
                               preferences +
                               "\n"
                               "sync pid=32767 data=" +
                               block +
                               "\n"
                               "motion 1 -2 3 -4 5 -6\n"
                               "buttons 0x80000001\n"
                               "appevent -7 pressed value=-9\n"
                               "appevent -7 released\n"
                               "pairing command=\"a \\\"b\\\" \\\\\" slot=1 on=true name=\"é #\"\n"
                               "cabled slot=2\n"
                               "removed 0x4D580001\n";
    ChildProcess record = startTool({"record", trace, "--count", "10"});
    ASSERT_TRUE(awaitListener());
    std::istringstream lines(events);
    for (std::string event; std::getline(lines, event);) {
        happen(event);
        awaitLine(event);
    }
    const Finished ended = finish(record);
    EXPECT_EQ(ended.exitCode, 0);
    EXPECT_EQ(ended.output, "");
    EXPECT_EQ(ended.errors,
              "10 events: 1 added, 2 application, 1 buttons, 1 motion, 2 pairing, 1 preferences, 1 "
              "removed, 1 sync\n");
    const std::string text = contentOf(trace);
    EXPECT_THAT(text, StartsWith("# Recorded by moxelctl"));
    EXPECT_EQ(eventsOf(text), events);
    EXPECT_TRUE(std::regex_search(text, std::regex("\n[0-9]+\\.[0-9]{6} pause\n$"))) << text;
    EXPECT_TRUE(daemon::parseTrace(text).ok());
    EXPECT_TRUE(awaitNoClients());
}

TEST_F(Record, NotesWhichDeviceIsServed) {
    startDaemon();
    ChildProcess record = startTool({"record", trace, "--count", "3"});
    ASSERT_TRUE(awaitListener());
    for (const std::string name : {"identity 0x1111 0x2222", "identity 0x1111 0x3333"}) {
        happen(name);
        ASSERT_TRUE(moxeld->waitUntil([](const auto &seen) { return seen.sendingClients == 0; }, patience));
        happen("motion 1 0 0 0 0 0");
        awaitLine(name);
    }
    happen("motion 2 0 0 0 0 0");
    EXPECT_EQ(finish(record).exitCode, 0);
    EXPECT_EQ(eventsOf(contentOf(trace)), "identity 0x1111 0x2222\nmotion 1 0 0 0 0 0\nidentity 0x1111 "
                                          "0x3333\nmotion 1 0 0 0 0 0\nmotion 2 0 0 "
                                          "0 0 0\n");
}

TEST_F(Record, MakesACommentOfWhatATraceCannotHold) {
    startDaemon();
    ChildProcess record = startTool({"record", trace, "--count", "2"});
    ASSERT_TRUE(moxeld->waitForClient(patience).has_value());
    MoxelStateRecord state{};
    state.command = 99;
    state.param = 5;
    EXPECT_EQ(moxeld->sendState(daemon::Daemon::allClients, state), 1U);
    EXPECT_TRUE(moxeld->sendDictionary(1, {{"req", "cabdev"}, {"two\nlines", 1}}).ok());
    EXPECT_EQ(finish(record).exitCode, 0);
    const std::string text = contentOf(trace);
    EXPECT_THAT(text, HasSubstr("\n# not in a trace: state        command 99  param 5"));
    EXPECT_THAT(text,
                HasSubstr("\n# not in a trace: pairing      {\"req\": \"cabdev\", \"two\\nlines\": 1}\n"));
    EXPECT_TRUE(daemon::parseTrace(text).ok());
}

TEST_F(Record, LosesNothingHoweverFastEventsCome) {
    startDaemon();
    ChildProcess record = startTool({"record", trace});
    const auto client = moxeld->waitForClient(patience);
    ASSERT_TRUE(client.has_value());
    constexpr int count = 20'000;
    for (int i = 0; i < count; ++i) {
        MoxelStateRecord state{};
        state.command = 3;
        state.axis[0] = static_cast<int16_t>(i);
        ASSERT_TRUE(moxeld->waitUntilQueued(size_t{256} << 10, patience));
        ASSERT_EQ(moxeld->sendState(client->clientID, state), 1U);
    }
    ASSERT_TRUE(moxeld->waitUntilQueued(0, patience));
    MoxelStateRecord last{};
    last.command = 2;
    last.buttons = 1;
    ASSERT_EQ(moxeld->sendState(client->clientID, last), 1U);
    awaitLine("buttons 0x1");
    record.signal(SIGINT);
    EXPECT_EQ(finish(record).errors, "20001 events: 1 buttons, 20000 motion\n");
    const std::string events = eventsOf(contentOf(trace));
    EXPECT_EQ(std::ranges::count(events, '\n'), count + 1);
    EXPECT_THAT(events, HasSubstr("\nmotion 19999 0 0 0 0 0\n"));
}

TEST_F(Record, WritesToStandardOutput) {
    startDaemon();
    play("motion 1 0 0 0 0 0");
    const Finished record = run({"record", "-", "--count", "1"});
    EXPECT_EQ(eventsOf(record.output), "motion 1 0 0 0 0 0\n");
    ChildProcess shell({"/bin/sh", "-c", "\"$0\" record - | head -n 1", MOXELCTL}, environment());
    EXPECT_TRUE(awaitNoClients());
    EXPECT_THAT(finish(shell).errors, MatchesRegex("[0-9]+ events?.*\n"));
}

TEST_F(Record, EndsCleanlyOnASignal) {
    startDaemon();
    ChildProcess record = startTool({"record", trace, "--events", "buttons"});
    const auto client = moxeld->waitForClient(patience);
    ASSERT_TRUE(client.has_value());
    EXPECT_EQ(client->eventMask, 2U);
    record.signal(SIGTERM);
    const Finished ended = finish(record);
    EXPECT_EQ(ended.exitCode, 0);
    EXPECT_EQ(ended.errors, "0 events\n");
    EXPECT_THAT(contentOf(trace), EndsWith(" pause\n"));
}

TEST_F(Record, KeepsWhatCameBeforeTheDriverLeft) {
    startDaemon();
    play("motion 1 0 0 0 0 0");
    ChildProcess record = startTool({"record", trace});
    awaitLine("motion 1 0 0 0 0 0");
    moxeld.reset();
    const Finished ended = finish(record);
    EXPECT_EQ(ended.exitCode, 3);
    EXPECT_EQ(ended.errors,
              "1 event: 1 motion\nmoxelctl: the driver went away; the trace holds what came before\n");
    EXPECT_EQ(eventsOf(contentOf(trace)), "motion 1 0 0 0 0 0\n");
}

TEST_F(Record, DoesNotWriteOverAFileUnlessTold) {
    startDaemon();
    const std::string precious = folder.write("precious", "precious");
    const Finished refused = run({"record", precious, "--seconds", "0"});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_EQ(refused.errors,
              "moxelctl: cannot write " + precious + ": File exists\n  --force writes over it.\n");
    EXPECT_EQ(contentOf(precious), "precious");
    EXPECT_EQ(run({"record", precious, "--seconds", "0", "--force"}).exitCode, 0);
    EXPECT_THAT(contentOf(precious), StartsWith("# Recorded"));
}

TEST_F(Record, SaysThatItCannotWrite) {
    startDaemon();
    EXPECT_EQ(run({"record", folder.path("none/trace")}).errors,
              "moxelctl: cannot write " + folder.path("none/trace") + ": No such file or directory\n");
    const Finished full = run({"record", "/dev/full", "--force"});
    EXPECT_EQ(full.exitCode, 1);
    EXPECT_THAT(full.errors, HasSubstr("moxelctl: cannot write /dev/full: No space left on device\n"));
    EXPECT_EQ(run({"record"}).exitCode, 2);
}

// ------------------------------------------------------------------------------------------ replay

class Replay : public Record {
  protected:
    /// The states in their order, then the messages in theirs. A message waits until the one before it has
    /// been read, so states may overtake it. When the driver names its device is seen from the next event
    /// only.
    static std::string statesThenMessages(const std::string &events) {
        std::string states;
        std::string messages;
        std::istringstream lines(events);
        for (std::string line; std::getline(lines, line);)
            if (std::regex_search(line, std::regex("^(motion|buttons|appevent) ")))
                states += line + '\n';
            else if (!line.starts_with("identity "))
                messages += line + '\n';
        return states + messages;
    }
    [[nodiscard]] Arguments withDaemon(Arguments arguments) const {
        arguments.insert(arguments.end(), {"--daemon", MOXELD});
        return arguments;
    }
};

TEST_F(Replay, WhatWasRecordedFromAReplayIsTheTrace) {
    ChildProcess replay = startTool(withDaemon({"replay", demo, "--speed", "10"}));
    // The daemon is there once there is a bus with a channel.
    while (run({"list"}).exitCode != 0)
        continue;
    const Finished first = run({"record", trace});
    EXPECT_EQ(first.exitCode, 3) << "the driver leaves with the trace";
    const Finished replayed = finish(replay);
    EXPECT_EQ(replayed.exitCode, 0) << replayed.errors;
    EXPECT_THAT(replayed.errors, MatchesRegex("moxeld: ready MxlVirtualHIDData_Base[0-9A-F]+ in " + bus +
                                              "\nthe trace begins with the first client\n"));

    ChildProcess again = startTool(withDaemon({"replay", trace, "--speed", "10"}));
    while (run({"list"}).exitCode != 0)
        continue;
    const std::string copy = folder.path("copy.trace");
    EXPECT_EQ(run({"record", copy}).exitCode, 3);
    EXPECT_EQ(statesThenMessages(eventsOf(contentOf(copy))), statesThenMessages(eventsOf(contentOf(trace))));
    EXPECT_THAT(eventsOf(contentOf(trace)), HasSubstr("motion -350 0 350 -350 0 350\n"));
    EXPECT_EQ(finish(again).exitCode, 0);
}

TEST_F(Replay, ShowsTheEventsOnABusOfItsOwn) {
    const Finished replay = run(withDaemon({"replay", demo, "--show", "--speed", "10"}));
    EXPECT_EQ(replay.exitCode, 0) << replay.errors;
    EXPECT_THAT(replay.output, AllOf(HasSubstr("added        device 0x4D580001\n"), HasSubstr("removed ")));
    EXPECT_THAT(replay.errors, HasSubstr(" events in "));
    EXPECT_FALSE(std::filesystem::exists(bus)) << "the user's bus is left alone";
}

TEST_F(Replay, ShowsJson) {
    const Finished replay =
        run(withDaemon({"replay", folder.write("one.trace", "motion 1 2 3 4 5 6\n"), "--show", "--json"}));
    EXPECT_EQ(replay.exitCode, 0) << replay.errors;
    EXPECT_EQ(Json::parse(replay.output)["axes"], Json({1, 2, 3, 4, 5, 6}));
}

TEST_F(Replay, PlaysStandardInput) {
    const Finished replay = run(withDaemon({"replay", "-", "--at-once"}), "pause\n");
    EXPECT_EQ(replay.exitCode, 0) << replay.errors;
    EXPECT_THAT(replay.errors, EndsWith("\nthe trace begins now\n"));
}

TEST_F(Replay, EndsTheDaemonOnASignal) {
    for (const int signal : {SIGINT, SIGTERM}) {
        ChildProcess replay = startTool(withDaemon({"replay", demo, "--loop"}));
        while (run({"list"}).exitCode != 0)
            continue;
        replay.signal(signal);
        EXPECT_EQ(finish(replay).exitCode, 0);
        EXPECT_TRUE(std::filesystem::is_empty(bus)) << "the daemon has ended properly";
    }
}

TEST_F(Replay, SaysWhatIsWrongWithTheTrace) {
    const std::string bad = folder.write("bad.trace", "pause\nnonsense\n");
    for (const Arguments &arguments : {Arguments{"replay", bad}, Arguments{"replay", bad, "--show"}}) {
        const Finished replay = run(withDaemon(arguments));
        EXPECT_EQ(replay.exitCode, 1);
        EXPECT_EQ(replay.errors, "moxeld: " + bad +
                                     ": line 2: there is no event \"nonsense\"\nmoxelctl: the trace "
                                     "cannot be played\n  Documentation/Traces.md describes traces.\n");
    }
}

TEST_F(Replay, SaysThatAnotherDriverRuns) {
    startDaemon();
    const Finished replay = run(withDaemon({"replay", demo}));
    EXPECT_EQ(replay.exitCode, 1);
    EXPECT_THAT(replay.errors,
                EndsWith("moxelctl: another driver serves this user already\n  Stop it, or play the "
                         "trace on a bus of its own with --show.\n"));
}

TEST_F(Replay, SaysThatThereIsNoDaemon) {
    const Finished missing = run({"replay", demo, "--daemon", "/nowhere/moxeld"});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_EQ(missing.errors,
              "moxelctl: cannot start /nowhere/moxeld: No such file or directory\n  Name the daemon's "
              "program: --daemon PATH.\n");
    const Finished other = run({"replay", demo, "--daemon", "/bin/false"});
    EXPECT_EQ(other.exitCode, 1);
    EXPECT_THAT(other.errors, HasSubstr("the daemon did not start: it ended with status 1\n"));
}

TEST_F(Replay, FindsTheDaemonBesideItself) {
    const Finished replay = run({"replay", folder.write("one.trace", "motion 1 2 3 4 5 6\n"), "--show"});
    EXPECT_EQ(replay.exitCode, 0) << replay.errors;
}

TEST_F(Replay, RefusesWrongUsage) {
    for (const Arguments &arguments :
         std::vector<Arguments>{{"replay"}, {"replay", demo, "--speed", "0"}, {"replay", demo, "--json"}})
        EXPECT_EQ(run(arguments).exitCode, 2);
}

} // namespace
} // namespace moxel::test
