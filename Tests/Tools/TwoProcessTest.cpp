// The daemon's program and applications, each a process of its own.
#include "Support/ThreadSanitizer.h"
#include "Tools/ToolTest.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>

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
    ChildProcess daemon = start(MOXELD, {"--trace", demo, "--wait-client", "--speed", "4"});
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

/// How often the threads of a process have gone to sleep.
long sleeps(pid_t process) {
    long total = 0;
    for (const auto &thread :
         std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
        std::ifstream status(thread.path() / "status");
        for (std::string line; std::getline(status, line);)
            if (line.starts_with("voluntary_ctxt_switches:"))
                total += std::stol(line.substr(line.find(':') + 1));
    }
    return total;
}

TEST_F(TwoProcesses, IdleSessionSleeps) {
    if (MOXEL_UNDER_THREAD_SANITIZER)
        GTEST_SKIP() << "the sanitizer has a thread that wakes";
    ChildProcess daemon = start(MOXELD, {});
    awaitReady(daemon);
    ChildProcess poll = start(EXAMPLE_POLL, {});
    ASSERT_EQ(poll.readLine(), "registered as 1");
    bool slept = false; // Registration may leave something to do; then two seconds must pass without a wake.
    for (int i = 0; i < 5 && !slept; ++i) {
        const long before = sleeps(poll.identifier());
        std::this_thread::sleep_for(std::chrono::seconds(2)); // What is measured is a stretch of time.
        slept = sleeps(poll.identifier()) == before;
    }
    EXPECT_TRUE(slept);
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
    EXPECT_THAT(monitor.output, HasSubstr("axes 0 0 0 0 0 0  buttons 0x00000003\n"))
        << "buttons are never merged";
    EXPECT_THAT(monitor.errors, HasSubstr(" 1 removed, 1 sync\n"));
    EXPECT_EQ(daemon.exitStatus(), 0);
}

} // namespace
} // namespace moxel::test
