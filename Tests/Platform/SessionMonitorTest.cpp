// Sessions as logind describes them, in processes whose logind files the test writes itself.
#include "Platform/Linux/SessionMonitor.h"
#include "Platform/Linux/ServiceThread.h"
#include "Platform/NotificationCenter.h"
#include "Platform/Session.h"
#include "Support/ChildProcess.h"
#include "Support/Namespaces.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <thread>

namespace moxel {
namespace {

using test::ChildProgram;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
namespace fs = std::filesystem;

struct Session {
    bool active = true;
    bool hasSeat = true;
    unsigned user = 0;
};

/// Writes files in logind's format, and replaces them as a whole as it does.
class FakeLogind {
  public:
    FakeLogind() { makeFolders(); }

    static void makeFolders() {
        for (const char *folder : {"sessions", "users", "seats", "machines"})
            fs::create_directories(std::string("/run/systemd/") + folder);
    }

    static void write(const std::string &path, const std::string &content) {
        const std::string temporary = path + ".new";
        std::ofstream(temporary) << "# This is private data. Do not parse.\n" << content;
        fs::rename(temporary, path);
    }

    static void setSession(const std::string &identifier, const Session &session) {
        write("/run/systemd/sessions/" + identifier,
              "UID=" + std::to_string(session.user) + "\nUSER=root\nACTIVE=" + (session.active ? "1" : "0") +
                  "\nIS_DISPLAY=1\nSTATE=" + (session.active ? "active" : "online") +
                  "\nREMOTE=0\nTYPE=wayland\nCLASS=user\n" + (session.hasSeat ? "SEAT=seat0\n" : ""));
    }

    static void setUser(const std::string &display, const std::string &activeSessions) {
        write("/run/systemd/users/0",
              "NAME=root\nSTATE=active\nSTOPPING=no\n" +
                  (display.empty() ? "" : "DISPLAY=" + display + "\n") + "SESSIONS=" + activeSessions +
                  "\nACTIVE_SESSIONS=" + activeSessions + "\nONLINE_SESSIONS=" + activeSessions + "\n");
    }
};

/// Records the session notifications.
class Recorder {
  public:
    Recorder()
        : resigned_(subscribe(sessionDidResignActiveNotification, "resigned")),
          became_(subscribe(sessionDidBecomeActiveNotification, "became")) {}

    std::vector<std::string> texts() {
        const std::lock_guard lock(mutex_);
        return texts_;
    }
    std::thread::id thread() {
        const std::lock_guard lock(mutex_);
        return thread_;
    }
    bool waitFor(size_t count) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(30), [&] { return texts_.size() >= count; });
    }

  private:
    NotificationSubscription subscribe(std::string_view name, const char *text) {
        return NotificationCenter::defaultCenter().subscribe(name, nullptr,
                                                             [this, text](const Notification &) {
                                                                 const std::lock_guard lock(mutex_);
                                                                 texts_.emplace_back(text);
                                                                 thread_ = std::this_thread::get_id();
                                                                 changed_.notify_all();
                                                             });
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> texts_;
    std::thread::id thread_;
    NotificationSubscription resigned_;
    NotificationSubscription became_;
};

/// Runs the program with an empty /run of its own.
void runAlone(const ChildProgram &program) {
    if (!test::canMakeNamespaces())
        GTEST_SKIP() << "no user namespaces here";
    program.run({}, ChildProgram::Place::ownNamespaces);
}

void emptySystem() {
    test::mountEmpty("/run");
    test::pretendControlGroup("/user.slice/user-0.slice/user@0.service/app.slice/app-x-1.scope");
}

void ownSession(const std::string &identifier) {
    test::mountEmpty("/run");
    test::pretendControlGroup("/user.slice/user-0.slice/session-" + identifier + ".scope");
}

const ChildProgram noLogind("noLogind", [] {
    emptySystem();
    EXPECT_FALSE(currentSession().has_value());
    EXPECT_EQ(currentSessionOnConsole(), std::nullopt);
});
TEST(LoginSession, IsAbsentWithoutLogind) { runAlone(noLogind); }

const ChildProgram noSession("noSession", [] {
    emptySystem();
    const FakeLogind logind;
    EXPECT_FALSE(currentSession().has_value());
    EXPECT_EQ(currentSessionOnConsole(), std::nullopt);
});
TEST(LoginSession, IsAbsentForAUserWithoutSessions) { runAlone(noSession); }

const ChildProgram readOwnSession("readOwnSession", [] {
    ownSession("c7");
    const FakeLogind logind;
    logind.setSession("c7", {});
    logind.setSession("c1", {.active = false});
    logind.setUser("c1", "c1");
    ASSERT_TRUE(currentSession().has_value());
    EXPECT_EQ(currentSession()->onConsole, true);
    EXPECT_EQ(currentSession()->userName, "root");
    EXPECT_EQ(currentSessionOnConsole(), true);
});
TEST(LoginSession, IsTheOneThatTheProcessRunsIn) { runAlone(readOwnSession); }

const ChildProgram readUnknownSession("readUnknownSession", [] {
    ownSession("c7");
    const FakeLogind logind;
    EXPECT_FALSE(currentSession().has_value());
    EXPECT_EQ(currentSessionOnConsole(), std::nullopt);
});
TEST(LoginSession, IsAbsentWhenLogindDoesNotKnowIt) { runAlone(readUnknownSession); }

const ChildProgram readDisplaySession("readDisplaySession", [] {
    emptySystem();
    const FakeLogind logind;
    logind.setSession("c1", {.active = false});
    logind.setSession("c2", {});
    logind.setUser("c2", "c1 c2");
    EXPECT_EQ(currentSession()->onConsole, true);
    EXPECT_EQ(currentSession()->userName, "root");
    EXPECT_EQ(currentSessionOnConsole(), true);
});
TEST(LoginSession, IsTheUsersDisplaySessionForAService) { runAlone(readDisplaySession); }

const ChildProgram readActiveSession("readActiveSession", [] {
    emptySystem();
    const FakeLogind logind;
    logind.setSession("c3", {});
    logind.setUser("", "c3");
    EXPECT_EQ(currentSessionOnConsole(), true);
});
TEST(LoginSession, IsAnActiveSessionOfTheUserWithoutADisplay) { runAlone(readActiveSession); }

const ChildProgram readSessionOffConsole("readSessionOffConsole", [] {
    ownSession("c7");
    const FakeLogind logind;
    logind.setSession("c7", {.active = false});
    EXPECT_EQ(currentSession()->onConsole, false);
    EXPECT_EQ(currentSession()->userName, "root");
    logind.setSession("c7", {.active = true, .hasSeat = false});
    EXPECT_EQ(currentSession()->onConsole, false);
    logind.setSession("c7", {});
    EXPECT_EQ(currentSession()->onConsole, true);
});
TEST(LoginSession, IsOnTheConsoleWhenActiveAndOnASeat) { runAlone(readSessionOffConsole); }

const ChildProgram readUnknownUser("readUnknownUser", [] {
    ownSession("c7");
    const FakeLogind logind;
    logind.setSession("c7", {.user = 4'000'000'000});
    EXPECT_EQ(currentSession()->onConsole, true);
    EXPECT_EQ(currentSession()->userName, std::nullopt);
});
TEST(LoginSession, HasNoNameForAnUnknownUser) { runAlone(readUnknownUser); }

const ChildProgram answerFromMemory("answerFromMemory", [] {
    ownSession("c7");
    const FakeLogind logind;
    logind.setSession("c7", {});
    ASSERT_EQ(currentSessionOnConsole(), true);
    test::mountEmpty("/run"); // whoever opened a file now would find no session
    ASSERT_FALSE(currentSession().has_value());
    for (int i = 0; i < 1000; ++i)
        ASSERT_EQ(currentSessionOnConsole(), true);
});
TEST(SessionMonitor, OpensNoFileWhileNothingChanges) { runAlone(answerFromMemory); }

const ChildProgram followChanges("followChanges", [] {
    ownSession("c7");
    const FakeLogind logind;
    logind.setSession("c7", {});
    Recorder recorder;
    EXPECT_EQ(currentSessionOnConsole(), true);
    logind.setSession("c7", {.active = false});
    EXPECT_EQ(currentSessionOnConsole(), false);
    EXPECT_THAT(recorder.texts(), ElementsAre("resigned"));
    EXPECT_EQ(recorder.thread(), std::this_thread::get_id());
    logind.setSession("c7", {});
    EXPECT_EQ(currentSessionOnConsole(), true);
    EXPECT_THAT(recorder.texts(), ElementsAre("resigned", "became"));
});
TEST(SessionMonitor, NoticesAndTellsChangesWithTheNextQuestion) { runAlone(followChanges); }

const ChildProgram unrelatedChanges("unrelatedChanges", [] {
    ownSession("c7");
    const FakeLogind logind;
    logind.setSession("c7", {});
    Recorder recorder;
    EXPECT_EQ(currentSessionOnConsole(), true);
    logind.setSession("c8", {.active = false});
    logind.setSession("c7", {});
    EXPECT_EQ(currentSessionOnConsole(), true);
    EXPECT_THAT(recorder.texts(), IsEmpty());
});
TEST(SessionMonitor, TellsNothingWhenTheAnswerStays) { runAlone(unrelatedChanges); }

const ChildProgram displayMoves("displayMoves", [] {
    emptySystem();
    const FakeLogind logind;
    logind.setSession("c1", {});
    logind.setSession("c2", {.active = false});
    logind.setUser("c1", "c1 c2");
    EXPECT_EQ(currentSessionOnConsole(), true);
    logind.setUser("c2", "c1 c2"); // the session files stay as they are
    EXPECT_EQ(currentSessionOnConsole(), false);
});
TEST(SessionMonitor, NoticesAnotherDisplaySessionOfTheUser) { runAlone(displayMoves); }

const ChildProgram sessionGap("sessionGap", [] {
    ownSession("c7");
    const FakeLogind logind;
    logind.setSession("c7", {});
    Recorder recorder;
    EXPECT_EQ(currentSessionOnConsole(), true);
    fs::remove("/run/systemd/sessions/c7");
    EXPECT_EQ(currentSessionOnConsole(), std::nullopt);
    EXPECT_THAT(recorder.texts(), IsEmpty());
    logind.setSession("c7", {.active = false});
    EXPECT_EQ(currentSessionOnConsole(), false);
    EXPECT_THAT(recorder.texts(), ElementsAre("resigned"));
});
TEST(SessionMonitor, ComparesWithTheLastKnownAnswerAfterAGap) { runAlone(sessionGap); }

const ChildProgram askInsideNotification("askInsideNotification", [] {
    ownSession("c7");
    const FakeLogind logind;
    logind.setSession("c7", {});
    EXPECT_EQ(currentSessionOnConsole(), true);
    std::vector<std::optional<bool>> answers;
    Recorder recorder;
    const auto subscription = NotificationCenter::defaultCenter().subscribe(
        sessionDidResignActiveNotification, nullptr, [&](const Notification &) {
            answers.push_back(currentSessionOnConsole());
            logind.setSession("c7", {});
            answers.push_back(currentSessionOnConsole());
            EXPECT_THAT(recorder.texts(), ElementsAre("resigned")); // the next one waits its turn
        });
    logind.setSession("c7", {.active = false});
    EXPECT_EQ(currentSessionOnConsole(), true);
    EXPECT_THAT(answers, ElementsAre(false, true));
    EXPECT_THAT(recorder.texts(), ElementsAre("resigned", "became"));
});
TEST(SessionMonitor, MayBeAskedInsideItsNotifications) { runAlone(askInsideNotification); }

const ChildProgram lateLogind("lateLogind", [] {
    using Clock = std::chrono::steady_clock;
    ownSession("c7");
    const auto start = Clock::now();
    EXPECT_EQ(currentSessionOnConsole(), std::nullopt);
    const FakeLogind logind;
    logind.setSession("c7", {});
    const auto early = currentSessionOnConsole();
    const bool withinInterval = Clock::now() - start < std::chrono::milliseconds(900);
    EXPECT_TRUE(early == std::nullopt || !withinInterval) << "looked again at once";
    while (!currentSessionOnConsole() && Clock::now() - start < std::chrono::seconds(30))
        std::this_thread::yield();
    EXPECT_EQ(currentSessionOnConsole(), true);
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(900));
    logind.setSession("c7", {.active = false}); // now it is monitored
    EXPECT_EQ(currentSessionOnConsole(), false);
});
TEST(SessionMonitor, LooksForALateLogindOnceASecond) { runAlone(lateLogind); }

const ChildProgram replacedFolders("replacedFolders", [] {
    ownSession("c7");
    const FakeLogind logind;
    logind.setSession("c7", {});
    EXPECT_EQ(currentSessionOnConsole(), true);
    fs::remove_all("/run/systemd");
    logind.makeFolders();
    logind.setSession("c7", {.active = false});
    EXPECT_EQ(currentSessionOnConsole(), false);
    logind.setSession("c7", {});
    EXPECT_EQ(currentSessionOnConsole(), true);
});
TEST(SessionMonitor, FollowsReplacedFolders) { runAlone(replacedFolders); }

const ChildProgram watchOnServiceThread("watchOnServiceThread", [] {
    ownSession("c7");
    const FakeLogind logind;
    logind.setSession("c7", {});
    EXPECT_EQ(currentSessionOnConsole(), true);
    Recorder recorder;
    auto services = ServiceThread::lease();
    ASSERT_TRUE(services.ok());
    logind.setSession("c7", {.active = false});
    ASSERT_TRUE(recorder.waitFor(1)) << "nobody asked, nobody told";
    EXPECT_EQ(currentSessionOnConsole(), false);
    logind.setSession("c7", {});
    ASSERT_TRUE(recorder.waitFor(2));
    EXPECT_EQ(currentSessionOnConsole(), true);
    EXPECT_THAT(recorder.texts(), ElementsAre("resigned", "became"));
    EXPECT_NE(recorder.thread(), std::this_thread::get_id());

    *services = nullptr; // from now on, questions look for changes
    logind.setSession("c7", {.active = false});
    EXPECT_EQ(currentSessionOnConsole(), false);
    EXPECT_EQ(recorder.thread(), std::this_thread::get_id());
});
TEST(SessionMonitor, TellsChangesByItselfWhileTheServiceThreadRuns) { runAlone(watchOnServiceThread); }

const ChildProgram watchAtRest("watchAtRest", [] {
    ownSession("c7");
    const FakeLogind logind;
    logind.setSession("c7", {});
    const auto loop = *RunLoop::current();
    const auto watch = SessionWatch::start(*loop);
    ASSERT_TRUE(watch.ok());
    logind.setSession("c7", {.active = false});
    EXPECT_EQ(currentSessionOnConsole(), true); // nobody but the loop looks
    EXPECT_TRUE(loop->runOneSource(RunLoop::Seconds(30)));
    EXPECT_EQ(currentSessionOnConsole(), false);
    EXPECT_FALSE(loop->runOneSource(RunLoop::Seconds(0.05))) << "woke up without a change";
});
TEST(SessionMonitor, WatchWakesTheLoopForChangesOnly) { runAlone(watchAtRest); }

const ChildProgram watchBeforeLogind("watchBeforeLogind", [] {
    ownSession("c7");
    const auto loop = *RunLoop::current();
    const auto watch = SessionWatch::start(*loop);
    ASSERT_TRUE(watch.ok());
    const FakeLogind logind;
    logind.setSession("c7", {});
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!currentSessionOnConsole() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    EXPECT_EQ(currentSessionOnConsole(), true);
    logind.setSession("c7", {.active = false});
    EXPECT_TRUE(loop->runOneSource(RunLoop::Seconds(30)));
    EXPECT_EQ(currentSessionOnConsole(), false);
});
TEST(SessionMonitor, WatchTakesUpALateLogind) { runAlone(watchBeforeLogind); }

const ChildProgram manyThreads("manyThreads", [] {
    ownSession("c7");
    const FakeLogind logind;
    logind.setSession("c7", {});
    Recorder recorder;
    ASSERT_EQ(currentSessionOnConsole(), true);
    std::atomic<bool> done = false;
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i)
        threads.emplace_back([&done] {
            while (!done)
                EXPECT_TRUE(currentSessionOnConsole().has_value());
        });
    for (int i = 0; i < 100; ++i)
        logind.setSession("c7", {.active = i % 2 == 1});
    done = true;
    for (auto &thread : threads)
        thread.join();
    EXPECT_EQ(currentSessionOnConsole(), true);
    const auto texts = recorder.texts();
    EXPECT_EQ(texts.size() % 2, 0u);
    for (size_t i = 0; i < texts.size(); ++i)
        EXPECT_EQ(texts[i], i % 2 == 0 ? "resigned" : "became");
});
TEST(SessionMonitor, TellsChangesInTheirOrderWhenManyThreadsAsk) { runAlone(manyThreads); }

} // namespace
} // namespace moxel
