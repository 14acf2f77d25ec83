// The daemon's program and applications, each a process of its own.
#include "Tools/ToolTest.h"

#include <algorithm>
#include <csignal>
#include <filesystem>

namespace moxel::test {
namespace {

class TwoProcesses : public ToolTest {
  protected:
    void awaitReady(ChildProcess &daemon) const {
        EXPECT_THAT(daemon.readLine(),
                    AllOf(StartsWith("ready MxlVirtualHIDData_Base"), EndsWith(" in " + bus)));
    }
    const std::string demo = std::string(MOXEL_TRACES) + "/demo.trace";
};

TEST_F(TwoProcesses, ApplicationPollsEventsBesideItsStandardInput) {
    ChildProcess daemon = start(MOXELD, {"--trace", demo, "--wait-client", "--speed", "20"});
    awaitReady(daemon);
    ChildProcess poll = start(EXAMPLE_POLL, {});
    EXPECT_EQ(poll.readLine(), "registered as 1");
    EXPECT_EQ(poll.readLine(), "device 0x4d580001 is there");
    std::string answer;
    do {
        poll.write("hello\n"); // Each one is answered before the next is written.
        answer = poll.readLine();
    } while (answer == "typed \"hello\" after 0 states");
    EXPECT_THAT(answer, MatchesRegex("typed \"hello\" after [0-9]+ states"));
    EXPECT_EQ(poll.readLine(), "device 0x4d580001 is gone");
    poll.closeInput();
    const Finished ended = finish(poll);
    EXPECT_THAT(ended.output, MatchesRegex("[0-9]+ states\n"));
    EXPECT_GE(std::stoi(ended.output), 5) << "buttons and application events are never merged";
    EXPECT_EQ(ended.errors, "");
    EXPECT_EQ(ended.exitCode, 0);
}

TEST_F(TwoProcesses, SmallestApplicationPrintsStates) {
    ChildProcess daemon = start(MOXELD, {"--movement", "--rate", "200"});
    awaitReady(daemon);
    ChildProcess smallest = start(EXAMPLE_SMALLEST, {"5"});
    const Finished ended = finish(smallest);
    EXPECT_EQ(ended.exitCode, 0);
    EXPECT_GE(std::ranges::count(ended.output, '\n'), 5);
}

TEST_F(TwoProcesses, ApplicationsSayThatNoDriverAnswers) {
    for (const char *program : {EXAMPLE_POLL, EXAMPLE_SMALLEST}) {
        ChildProcess application = start(program, {});
        const Finished ended = finish(application);
        EXPECT_EQ(ended.exitCode, 1);
        EXPECT_EQ(ended.errors, "No driver answers.\n");
    }
}

TEST_F(TwoProcesses, MonitorPrintsTheWholeTrace) {
    ChildProcess daemon = start(MOXELD, {"--trace", demo, "--wait-client", "--once", "--speed", "4"});
    awaitReady(daemon);
    const Finished monitor = run({"monitor", "--require", "motion", "--require", "buttons", "--require",
                                  "application", "--require", "added", "--require", "removed", "--require",
                                  "preferences", "--require", "sync", "--require", "pairing"});
    EXPECT_EQ(monitor.exitCode, 0) << monitor.errors;
    EXPECT_THAT(monitor.output, HasSubstr("axes -350 0 350 -350 0 350  buttons 0x00000000\n"));
    EXPECT_THAT(monitor.errors, HasSubstr(" 1 removed, 1 sync\n"));
    EXPECT_EQ(daemon.exitStatus(), 0);
}

} // namespace
} // namespace moxel::test
