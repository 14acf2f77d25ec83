// Distributed notifications over session buses that the test starts, breaks and holds up.
#include "Platform/DistributedNotificationCenter.h"
#include "Platform/Log.h"
#include "Support/ChildProcess.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <set>
#include <sys/socket.h>
#include <sys/un.h>
#include <systemd/sd-bus.h>
#include <thread>
#include <utility>

namespace moxel {
namespace {

using test::ChildProcess;
using test::ChildProgram;
using test::TemporaryFolder;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::SizeIs;
using Clock = std::chrono::steady_clock;

/// A session bus of the test's own.
class SessionBusDaemon {
  public:
    explicit SessionBusDaemon(const std::string &address)
        : process_({"dbus-daemon", "--session", "--nofork", "--nopidfile", "--address=" + address,
                    "--print-address"}),
          address_(process_.readLine()) {}
    const std::string &address() const { return address_; }
    void end() {
        process_.kill();
        (void)process_.exitStatus();
    }

  private:
    ChildProcess process_;
    std::string address_;
};

/// Another program of the session, which hears the notifications.
class Listener {
  public:
    explicit Listener(const std::string &address) {
        EXPECT_GE(sd_bus_new(&bus_), 0);
        EXPECT_GE(sd_bus_set_address(bus_, address.c_str()), 0);
        EXPECT_GE(sd_bus_set_bus_client(bus_, 1), 0);
        EXPECT_GE(sd_bus_start(bus_), 0);
        EXPECT_GE(sd_bus_match_signal(bus_, nullptr, nullptr, "/com/moxel/DistributedNotificationCenter",
                                      "com.moxel.DistributedNotificationCenter", "Notification",
                                      &Listener::heard, this),
                  0);
    }
    ~Listener() { sd_bus_close_unref(bus_); }
    Listener(const Listener &) = delete;
    Listener &operator=(const Listener &) = delete;

    /// The notifications up to that many; fewer when they do not come.
    const std::vector<std::pair<std::string, std::string>> &waitFor(size_t count) {
        const auto deadline = Clock::now() + std::chrono::seconds(30);
        while (heard_.size() < count && Clock::now() < deadline) {
            const int result = sd_bus_process(bus_, nullptr);
            if (result < 0)
                break;
            if (result == 0)
                sd_bus_wait(bus_, 1'000'000);
        }
        return heard_;
    }

  private:
    static int heard(sd_bus_message *message, void *context, sd_bus_error *) {
        const char *name = nullptr;
        const char *object = nullptr;
        EXPECT_STREQ(sd_bus_message_get_signature(message, 1), "ss");
        EXPECT_GE(sd_bus_message_read(message, "ss", &name, &object), 0);
        static_cast<Listener *>(context)->heard_.emplace_back(name, object);
        return 0;
    }

    sd_bus *bus_ = nullptr;
    std::vector<std::pair<std::string, std::string>> heard_;
};

/// The lines that are logged while it lives.
struct LogLines {
    std::vector<std::string> errors;
    LogCapture capture{[this](LogLevel level, std::string_view line) {
        if (level == LogLevel::error)
            errors.emplace_back(line);
    }};
};

/// What the processes of these tests get from the test.
std::string scratch(const std::string &name) { return std::string(std::getenv("SCRATCH")) + '/' + name; }
std::string busAddress() { return std::getenv("DBUS_SESSION_BUS_ADDRESS"); }

/// Runs the program with a session bus address where no bus is as yet.
void runWithBusAddress(const ChildProgram &program) {
    const TemporaryFolder folder;
    program.run(
        {{"SCRATCH", folder.path()}, {"DBUS_SESSION_BUS_ADDRESS", "unix:path=" + folder.path("bus")}});
}

const ChildProgram postTwo("postTwo", [] {
    const LogLines log;
    const SessionBusDaemon bus(busAddress());
    Listener listener(bus.address());
    postDistributedNotification("com.moxel.ui.req", "62706c697374");
    postDistributedNotification("other", "");
    EXPECT_THAT(listener.waitFor(2),
                ElementsAre(Pair("com.moxel.ui.req", "62706c697374"), Pair("other", "")));
    EXPECT_THAT(log.errors, IsEmpty());
});
TEST(DistributedNotificationCenter, ReachesOtherProgramsOfTheSession) { runWithBusAddress(postTwo); }

const ChildProgram postAndEnd("postAndEnd", [] {
    postDistributedNotification("last", "words");
    ::_exit(0);
});
TEST(DistributedNotificationCenter, HasLeftTheProcessWhenThePostReturns) {
    const TemporaryFolder folder;
    const SessionBusDaemon bus("unix:path=" + folder.path("bus"));
    Listener listener(bus.address());
    postAndEnd.run({{"DBUS_SESSION_BUS_ADDRESS", bus.address()}});
    EXPECT_THAT(listener.waitFor(1), ElementsAre(Pair("last", "words")));
}

const ChildProgram postLarge("postLarge", [] {
    const SessionBusDaemon bus(busAddress());
    Listener listener(bus.address());
    for (const size_t size : {size_t{130'000}, size_t{131'070}, size_t{1'000'000}})
        postDistributedNotification("large", std::string(size, 'a'));
    const auto &heard = listener.waitFor(3);
    ASSERT_THAT(heard, SizeIs(3));
    EXPECT_EQ(heard[0].second, std::string(130'000, 'a'));
    EXPECT_EQ(heard[1].second.size(), 131'070u);
    EXPECT_EQ(heard[2].second.size(), 1'000'000u);
});
TEST(DistributedNotificationCenter, CarriesLargeTexts) { runWithBusAddress(postLarge); }

const ChildProgram postFromThreads("postFromThreads", [] {
    const LogLines log;
    const SessionBusDaemon bus(busAddress());
    Listener listener(bus.address());
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([i] {
            for (int j = 0; j < 25; ++j)
                postDistributedNotification("thread " + std::to_string(i), std::to_string(j));
        });
    for (auto &thread : threads)
        thread.join();
    const auto &heard = listener.waitFor(100);
    ASSERT_THAT(heard, SizeIs(100));
    std::map<std::string, int> next;
    for (const auto &[name, object] : heard)
        EXPECT_EQ(object, std::to_string(next[name]++)) << name;
    EXPECT_THAT(log.errors, IsEmpty());
});
TEST(DistributedNotificationCenter, TakesPostsFromManyThreads) { runWithBusAddress(postFromThreads); }

const ChildProgram postWithoutBus("postWithoutBus", [] {
    const LogLines log;
    for (int i = 0; i < 3; ++i)
        postDistributedNotification("name", "object");
    EXPECT_THAT(log.errors, ElementsAre(HasSubstr("Error: ")));
});
TEST(DistributedNotificationCenter, LogsOneLineWithoutABus) {
    runWithBusAddress(postWithoutBus);
    postWithoutBus.run({{"DBUS_SESSION_BUS_ADDRESS", "nonsense"}});
    postWithoutBus.run({{"DBUS_SESSION_BUS_ADDRESS", std::nullopt}, {"XDG_RUNTIME_DIR", std::nullopt}});
}

const ChildProgram postBeforeBus("postBeforeBus", [] {
    postDistributedNotification("early", "lost");
    const SessionBusDaemon bus(busAddress());
    Listener listener(bus.address());
    postDistributedNotification("late", "heard");
    EXPECT_THAT(listener.waitFor(1), ElementsAre(Pair("late", "heard")));
});
TEST(DistributedNotificationCenter, FindsABusThatStartsLater) { runWithBusAddress(postBeforeBus); }

const ChildProgram postToTwoBuses("postToTwoBuses", [] {
    const LogLines log;
    {
        SessionBusDaemon first(busAddress());
        Listener listener(first.address());
        postDistributedNotification("to", "first");
        EXPECT_THAT(listener.waitFor(1), ElementsAre(Pair("to", "first")));
        first.end();
    }
    ::unlink(scratch("bus").c_str());
    const SessionBusDaemon second(busAddress());
    Listener listener(second.address());
    postDistributedNotification("to", "second");
    EXPECT_THAT(listener.waitFor(1), ElementsAre(Pair("to", "second")));
    EXPECT_THAT(log.errors, IsEmpty());
});
TEST(DistributedNotificationCenter, ConnectsAgainAfterTheBusWasRestarted) {
    runWithBusAddress(postToTwoBuses);
}

const ChildProgram postAfterFork("postAfterFork", [] {
    const SessionBusDaemon bus(busAddress());
    Listener listener(bus.address());
    postDistributedNotification("from", "parent");
    const pid_t child = ::fork();
    if (child == 0) {
        postDistributedNotification("from", "child");
        ::_exit(0);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_THAT(listener.waitFor(2), ElementsAre(Pair("from", "parent"), Pair("from", "child")));
    postDistributedNotification("from", "parent again");
    EXPECT_THAT(listener.waitFor(3), SizeIs(3));
});
TEST(DistributedNotificationCenter, WorksInForkedProcesses) { runWithBusAddress(postAfterFork); }

const ChildProgram postIllFormed("postIllFormed", [] {
    const LogLines log;
    const SessionBusDaemon bus(busAddress());
    Listener listener(bus.address());
    postDistributedNotification("name", "\xFF");
    postDistributedNotification("na\xC3me", "object");
    postDistributedNotification("name", std::string("a\0b", 3));
    postDistributedNotification("name", "\xEF\xBF\xBE"); // a code point that the bus does not carry
    EXPECT_THAT(log.errors, SizeIs(4));
    EXPECT_THAT(log.errors, ::testing::Each(HasSubstr("Error: ")));
    postDistributedNotification("name", "\xC3\xA9");
    EXPECT_THAT(listener.waitFor(1), ElementsAre(Pair("name", "\xC3\xA9")));
});
TEST(DistributedNotificationCenter, RefusesWhatIsNotText) { runWithBusAddress(postIllFormed); }

/// A bus that lets programs connect and then says nothing.
class SilentBus {
  public:
    explicit SilentBus(const std::string &path) : socket_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(::bind(socket_, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
        EXPECT_EQ(::listen(socket_, 16), 0);
    }
    ~SilentBus() { ::close(socket_); }

  private:
    int socket_;
};

const ChildProgram postToSilentBus("postToSilentBus", [] {
    const LogLines log;
    const SilentBus bus(scratch("bus"));
    const auto start = Clock::now();
    postDistributedNotification("name", "object");
    const auto waited = Clock::now() - start;
    EXPECT_GE(waited, std::chrono::milliseconds(900)) << "the bus got no chance";
    EXPECT_LT(waited, std::chrono::seconds(10));
    EXPECT_THAT(log.errors, SizeIs(1));
});
TEST(DistributedNotificationCenter, GivesUpAStuckBusAfterASecond) { runWithBusAddress(postToSilentBus); }

const ChildProgram postFromThreadsToSilentBus("postFromThreadsToSilentBus", [] {
    const SilentBus bus(scratch("bus"));
    const auto start = Clock::now();
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([] { postDistributedNotification("name", "object"); });
    for (auto &thread : threads)
        thread.join();
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(5)) << "one waited for the other";
});
TEST(DistributedNotificationCenter, WaitsOfManyThreadsDoNotAddUp) {
    runWithBusAddress(postFromThreadsToSilentBus);
}

const ChildProgram postToStoppedBus("postToStoppedBus", [] {
    const LogLines log;
    ChildProcess daemon({"dbus-daemon", "--session", "--nofork", "--nopidfile", "--address=" + busAddress(),
                         "--print-address"});
    Listener listener(daemon.readLine());
    postDistributedNotification("before", "");
    EXPECT_THAT(listener.waitFor(1), SizeIs(1));
    daemon.signal(SIGSTOP);
    const auto start = Clock::now();
    postDistributedNotification("held up", std::string(20'000'000, 'x')); // more than sockets hold
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(10));
    EXPECT_THAT(log.errors, SizeIs(1));
    daemon.signal(SIGCONT);
    postDistributedNotification("after", "");
    const auto &heard = listener.waitFor(2);
    ASSERT_THAT(heard, SizeIs(2));
    EXPECT_EQ(heard[1].first, "after");
});
TEST(DistributedNotificationCenter, RecoversFromABusThatWasHeldUp) { runWithBusAddress(postToStoppedBus); }

} // namespace
} // namespace moxel
