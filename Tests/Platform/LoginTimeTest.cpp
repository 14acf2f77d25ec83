// When the user logged in, as the session service and the login history tell it.
#include "Platform/LoginTime.h"
#include "Platform/Linux/LoginHistory.h"
#include "Support/ChildProcess.h"
#include "Support/EnvironmentVariable.h"
#include "Support/Namespaces.h"
#include "Support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <systemd/sd-bus.h>
#include <thread>
#include <utmpx.h>

namespace moxel {
namespace {

using test::ChildProgram;
using test::EnvironmentVariable;
using test::TemporaryFolder;
namespace fs = std::filesystem;

LoginTime inSeconds(int64_t seconds) { return LoginTime(std::chrono::seconds(seconds)); }

/// A record of the login history as its bytes.
std::string record(short type, std::string_view line, std::string_view host, std::string_view user,
                   int32_t seconds) {
    utmpx entry{};
    entry.ut_type = type;
    std::memcpy(entry.ut_line, line.data(), line.size());
    std::memcpy(entry.ut_host, host.data(), host.size());
    std::memcpy(entry.ut_user, user.data(), user.size());
    entry.ut_tv.tv_sec = seconds;
    return {reinterpret_cast<const char *>(&entry), sizeof entry};
}

TEST(LoginTimeOverrides, NewestCountsAndMayBeUnknown) {
    const LoginTimeOverride outer(inSeconds(1));
    {
        const LoginTimeOverride inner(std::nullopt);
        EXPECT_EQ(loginTime(), std::nullopt);
    }
    EXPECT_EQ(loginTime(), inSeconds(1));
}

// ---------------------------------------------------------------------------------------------- History

class LoginHistory : public ::testing::Test {
  protected:
    std::optional<LoginTime> newest(const std::string &content, const std::vector<std::string> &places) {
        return newestLogin(folder_.write("wtmp", content), "somebody", places);
    }

    TemporaryFolder folder_;
};

TEST_F(LoginHistory, NewestLoginOnTheTerminalCounts) {
    const std::string content = record(USER_PROCESS, "tty2", "", "somebody", 100) +
                                record(USER_PROCESS, "tty2", "", "somebody", 200) +
                                record(USER_PROCESS, "tty3", "", "somebody", 300);
    EXPECT_EQ(newest(content, {"tty2"}), inSeconds(200));
    EXPECT_EQ(newest(content, {"tty3", "tty2"}), inSeconds(300));
    EXPECT_EQ(newest(content, {"tty1", "tty"}), std::nullopt);
    EXPECT_EQ(newest(content, {}), std::nullopt);
}

TEST_F(LoginHistory, RecordsOfOtherTypesAndUsersAreNoLogins) {
    EXPECT_EQ(newest(record(USER_PROCESS, "tty2", "", "somebody", 100) +
                         record(DEAD_PROCESS, "tty2", "", "somebody", 200) +
                         record(LOGIN_PROCESS, "tty2", "", "somebody", 300) +
                         record(BOOT_TIME, "~", "", "reboot", 400) +
                         record(USER_PROCESS, "tty2", "", "somebody else", 500),
                     {"tty2"}),
              inSeconds(100));
}

TEST_F(LoginHistory, DisplayMayStandInPlaceOfTheTerminalOrOfTheHost) {
    EXPECT_EQ(newest(record(USER_PROCESS, ":0", "", "somebody", 100), {"tty2", ":0"}), inSeconds(100));
    EXPECT_EQ(newest(record(USER_PROCESS, "tty7", ":0", "somebody", 100), {":0"}), inSeconds(100));
    EXPECT_EQ(newest(record(USER_PROCESS, "pts/0", "tty2", "somebody", 100), {"tty2"}), std::nullopt);
}

TEST_F(LoginHistory, TextsMayFillTheirFields) {
    const std::string line(sizeof utmpx::ut_line, 'x');
    EXPECT_EQ(newest(record(USER_PROCESS, line, "", "somebody", 100), {line}), inSeconds(100));
    EXPECT_EQ(newest(record(USER_PROCESS, line, "", "somebody", 100), {line + "x"}), std::nullopt);
}

TEST_F(LoginHistory, LongHistoriesAreReadFromTheirEnd) {
    std::string content = record(USER_PROCESS, "tty2", "", "somebody", 1);
    for (int i = 0; i < 1000; ++i)
        content += record(USER_PROCESS, "tty3", "", "somebody", i);
    EXPECT_EQ(newest(content, {"tty2"}), inSeconds(1));
    EXPECT_EQ(newest(content, {"tty3"}), inSeconds(999));
}

TEST_F(LoginHistory, CutOffAndMissingFilesAreHandled) {
    const std::string whole = record(USER_PROCESS, "tty2", "", "somebody", 100);
    EXPECT_EQ(newest(whole + record(USER_PROCESS, "tty2", "", "somebody", 200).substr(0, 100), {"tty2"}),
              inSeconds(100));
    EXPECT_EQ(newest("short", {"tty2"}), std::nullopt);
    EXPECT_EQ(newest("", {"tty2"}), std::nullopt);
    EXPECT_EQ(newestLogin(folder_.path("missing"), "somebody", {"tty2"}), std::nullopt);
    EXPECT_EQ(newestLogin(folder_.path(), "somebody", {"tty2"}), std::nullopt);
}

// ---------------------------------------------------------------------------------------------- The session

/// Answers for the start of one session on the bus that DBUS_SYSTEM_BUS_ADDRESS names, on a thread of its
/// own.
class FakeLogindOnTheBus {
  public:
    FakeLogindOnTheBus(const std::string &session, uint64_t start) : start_(start) {
        char *path = nullptr;
        EXPECT_GE(sd_bus_path_encode("/org/freedesktop/login1/session", session.c_str(), &path), 0);
        EXPECT_GE(sd_bus_open_system(&bus_), 0);
        static const sd_bus_vtable table[] = {
            SD_BUS_VTABLE_START(0),
            SD_BUS_PROPERTY("Timestamp", "t", nullptr, 0, 0),
            SD_BUS_VTABLE_END,
        };
        EXPECT_GE(
            sd_bus_add_object_vtable(bus_, nullptr, path, "org.freedesktop.login1.Session", table, &start_),
            0);
        std::free(path);
        EXPECT_GE(sd_bus_request_name(bus_, "org.freedesktop.login1", 0), 0);
        thread_ = std::thread([this] {
            while (!done_)
                if (sd_bus_process(bus_, nullptr) == 0)
                    (void)sd_bus_wait(bus_, 10'000);
        });
    }
    ~FakeLogindOnTheBus() {
        done_ = true;
        thread_.join();
        sd_bus_flush_close_unref(bus_);
    }
    FakeLogindOnTheBus(const FakeLogindOnTheBus &) = delete;
    FakeLogindOnTheBus &operator=(const FakeLogindOnTheBus &) = delete;

  private:
    uint64_t start_;
    sd_bus *bus_ = nullptr;
    std::atomic<bool> done_ = false;
    std::thread thread_;
};

/// A bus of the test's own, which the process takes for the system's.
class SystemBus {
  public:
    SystemBus()
        : daemon_({"dbus-daemon", "--session", "--nofork", "--nopidfile", "--print-address=1",
                   "--address=unix:path=/run/test-bus"}),
          address_("DBUS_SYSTEM_BUS_ADDRESS", daemon_.readLine()) {}

  private:
    test::ChildProcess daemon_;
    EnvironmentVariable address_;
};

void writeSession(const std::string &identifier, const std::string &fields) {
    fs::create_directories("/run/systemd/sessions");
    std::ofstream("/run/systemd/sessions/" + identifier)
        << "UID=0\nUSER=root\nACTIVE=1\nSTATE=active\nREMOTE=0\nCLASS=user\n"
        << fields;
}

void writeUser(const std::string &display, const std::string &sessions) {
    fs::create_directories("/run/systemd/users");
    std::ofstream("/run/systemd/users/0")
        << "NAME=root\nSTATE=active\n"
        << (display.empty() ? "" : "DISPLAY=" + display + "\n") << "SESSIONS=" << sessions
        << "\nACTIVE_SESSIONS=\nONLINE_SESSIONS=" << sessions << "\n";
}

/// Hides the machine's history behind one of these records.
void mountHistory(const std::string &content) {
    std::ofstream("/run/wtmp", std::ios::binary) << content;
    test::mountEmpty("/var/log");
    std::ofstream("/var/log/wtmp", std::ios::binary) << content;
}

void emptyMachine(const std::string &session = {}) {
    test::mountEmpty("/run");
    test::pretendControlGroup(session.empty()
                                  ? "/user.slice/user-0.slice/user@0.service/app.slice/app-x-1.scope"
                                  : "/user.slice/user-0.slice/session-" + session + ".scope");
    mountHistory({});
    ::unsetenv("DISPLAY");
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/run/no-bus", 1);
}

void runAlone(const ChildProgram &program) {
    if (!test::canMakeNamespaces())
        GTEST_SKIP() << "no user namespaces here";
    program.run({}, ChildProgram::Place::ownNamespaces);
}

const ChildProgram startOnTheBus("startOnTheBus", [] {
    emptyMachine("c1");
    writeSession("c1", "SEAT=seat0\nTTY=tty2\n");
    mountHistory(record(USER_PROCESS, "tty2", "", "root", 50));
    const SystemBus bus;
    const FakeLogindOnTheBus logind("c1", 1'700'000'000'999'999);
    EXPECT_EQ(loginTime(), inSeconds(1'700'000'000));
});
TEST(SystemLoginTime, IsTheStartOfTheSessionInWholeSeconds) { runAlone(startOnTheBus); }

const ChildProgram seatAmongSessions("seatAmongSessions", [] {
    emptyMachine("remote");
    writeSession("remote", "TTY=pts/0\n");
    writeSession("local", "SEAT=seat0\nTTY=tty2\n");
    const SystemBus bus;
    const FakeLogindOnTheBus logind("local", 123'000'000);
    writeUser("local", "remote local");
    EXPECT_EQ(loginTime(), inSeconds(123));
    writeUser("", "remote local");
    EXPECT_EQ(loginTime(), inSeconds(123));
    writeUser("", "remote");
    EXPECT_EQ(loginTime(), std::nullopt);
});
TEST(SystemLoginTime, IsThatOfTheSessionOnASeat) { runAlone(seatAmongSessions); }

const ChildProgram historyOfSession("historyOfSession", [] {
    emptyMachine("c1");
    writeSession("c1", "SEAT=seat0\nTTY=tty2\nDISPLAY=:1\n");
    mountHistory(record(USER_PROCESS, "tty2", "", "root", 100) +
                 record(USER_PROCESS, "tty3", "", "root", 200));
    EXPECT_EQ(loginTime(), inSeconds(100));
    mountHistory(record(USER_PROCESS, "tty2", "", "root", 100) +
                 record(USER_PROCESS, "tty9", ":1", "root", 300));
    EXPECT_EQ(loginTime(), inSeconds(300));
});
TEST(SystemLoginTime, ComesFromTheHistoryOfTheSessionsTerminalOrDisplayWithoutABus) {
    runAlone(historyOfSession);
}

const ChildProgram silentBus("silentBus", [] {
    emptyMachine("c1");
    writeSession("c1", "SEAT=seat0\nTTY=tty2\n");
    mountHistory(record(USER_PROCESS, "tty2", "", "root", 100));
    const SystemBus bus; // on which nobody answers for logind
    EXPECT_EQ(loginTime(), inSeconds(100));
});
TEST(SystemLoginTime, ComesFromTheHistoryWhenTheServiceIsNotThere) { runAlone(silentBus); }

const ChildProgram deafBus("deafBus", [] {
    emptyMachine("c1");
    writeSession("c1", "SEAT=seat0\nTTY=tty2\n");
    mountHistory(record(USER_PROCESS, "tty2", "", "root", 100));
    // A bus that takes connections and never says a word.
    test::ChildProcess listener({MOXEL_PYTHON, "-c",
                                 "import socket, sys\n"
                                 "s = socket.socket(socket.AF_UNIX)\n"
                                 "s.bind('/run/deaf-bus')\n"
                                 "s.listen(8)\n"
                                 "print('ready', flush=True)\n"
                                 "sys.stdin.read()"});
    ASSERT_EQ(listener.readLine(), "ready");
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/run/deaf-bus", 1);
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(loginTime(), inSeconds(100));
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(20));
});
TEST(SystemLoginTime, BusThatDoesNotAnswerIsNotWaitedFor) { runAlone(deafBus); }

const ChildProgram displayOfEnvironment("displayOfEnvironment", [] {
    emptyMachine();
    mountHistory(record(USER_PROCESS, ":7", "", "root", 100));
    EXPECT_EQ(loginTime(), std::nullopt);
    ::setenv("DISPLAY", ":7.0", 1);
    EXPECT_EQ(loginTime(), inSeconds(100));
    ::setenv("DISPLAY", "localhost:7.0", 1);
    EXPECT_EQ(loginTime(), std::nullopt);
});
TEST(SystemLoginTime, ComesFromTheHistoryOfTheDisplayWithoutASession) { runAlone(displayOfEnvironment); }

const ChildProgram nothingKnown("nothingKnown", [] {
    emptyMachine();
    EXPECT_EQ(loginTime(), std::nullopt);
});
TEST(SystemLoginTime, IsAbsentWhenNobodyKnows) { runAlone(nothingKnown); }

} // namespace
} // namespace moxel
