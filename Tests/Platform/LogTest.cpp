// The log: destinations, captures, and logging from many threads.
#include "Platform/Log.h"
#include "Support/ChildProcess.h"
#include "Support/Namespaces.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <thread>

namespace moxel {
namespace {

using test::ChildProcess;
using test::ChildProgram;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

struct Lines {
    LogSink sink() {
        return [this](LogLevel level, std::string_view line) {
            levels.push_back(level);
            texts.emplace_back(line);
        };
    }
    std::vector<LogLevel> levels;
    std::vector<std::string> texts;
};

TEST(LogCapture, ReceivesLevelAndText) {
    Lines lines;
    const LogCapture capture(lines.sink());
    logLine(LogLevel::info, "first");
    logLine(LogLevel::error, "second\n");
    EXPECT_THAT(lines.levels, ElementsAre(LogLevel::info, LogLevel::error));
    EXPECT_THAT(lines.texts, ElementsAre("first", "second\n"));
}

TEST(LogCapture, NewestWinsAndTheOlderOneComesBack) {
    Lines outer;
    Lines inner;
    const LogCapture outerCapture(outer.sink());
    {
        const LogCapture innerCapture(inner.sink());
        logLine(LogLevel::info, "inner");
    }
    logLine(LogLevel::info, "outer");
    EXPECT_THAT(inner.texts, ElementsAre("inner"));
    EXPECT_THAT(outer.texts, ElementsAre("outer"));
}

TEST(LogCapture, OlderOneMayEndFirst) {
    Lines older;
    Lines newer;
    auto olderCapture = std::make_unique<LogCapture>(older.sink());
    const LogCapture newerCapture(newer.sink());
    olderCapture.reset();
    logLine(LogLevel::info, "line");
    EXPECT_THAT(newer.texts, ElementsAre("line"));
    EXPECT_THAT(older.texts, IsEmpty());
}

TEST(LogCapture, MakesTheLogEnabled) {
    const LogCapture capture([](LogLevel, std::string_view) {});
    EXPECT_TRUE(logEnabled());
}

TEST(LogCapture, ThrowingSinkDoesNotReachTheCaller) {
    int calls = 0;
    const LogCapture capture([&](LogLevel, std::string_view) {
        ++calls;
        throw std::runtime_error("sink");
    });
    logLine(LogLevel::info, "one");
    logLine(LogLevel::info, "two");
    EXPECT_EQ(calls, 2);
}

TEST(LogCapture, LinesOfASinkItselfPassTheCapturesBy) {
    Lines outer;
    const LogCapture outerCapture(outer.sink());
    int calls = 0;
    const LogCapture capture([&](LogLevel, std::string_view) {
        ++calls;
        logLine(LogLevel::info, "from the sink");
    });
    logLine(LogLevel::info, "line");
    EXPECT_EQ(calls, 1);
    EXPECT_THAT(outer.texts, IsEmpty());
}

TEST(LogCapture, MayEndInsideItsOwnSink) {
    int calls = 0;
    std::unique_ptr<LogCapture> capture;
    capture = std::make_unique<LogCapture>([&](LogLevel, std::string_view) {
        ++calls;
        capture.reset();
    });
    Lines outer;
    logLine(LogLevel::info, "line");
    EXPECT_EQ(calls, 1);
    const LogCapture outerCapture(outer.sink());
    logLine(LogLevel::info, "later");
    EXPECT_EQ(calls, 1);
    EXPECT_THAT(outer.texts, ElementsAre("later"));
}

TEST(LogCapture, SinkIsCalledByOneThreadAtATime) {
    std::atomic<int> inside = 0;
    std::atomic<int> calls = 0;
    std::atomic<bool> overlapped = false;
    const LogCapture capture([&](LogLevel, std::string_view) {
        if (inside.fetch_add(1) != 0)
            overlapped = true;
        std::this_thread::yield();
        inside.fetch_sub(1);
        ++calls;
    });
    {
        std::barrier start(4);
        std::vector<std::jthread> threads;
        for (int i = 0; i < 4; ++i)
            threads.emplace_back([&] {
                start.arrive_and_wait();
                for (int line = 0; line < 200; ++line)
                    logLine(LogLevel::info, "line");
            });
    }
    EXPECT_FALSE(overlapped);
    EXPECT_EQ(calls, 800);
}

TEST(LogCapture, EndsWhileOtherThreadsLog) {
    const LogCapture quiet([](LogLevel, std::string_view) {});
    std::atomic<bool> done = false;
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i)
        threads.emplace_back([&] {
            while (!done)
                logLine(LogLevel::info, "line");
        });
    for (int i = 0; i < 200; ++i) {
        auto alive = std::make_unique<std::atomic<int>>(0);
        {
            const LogCapture capture([&](LogLevel, std::string_view) { ++*alive; });
            while (*alive == 0)
                std::this_thread::yield();
        }
        alive.reset(); // the sink must not run any more
    }
    done = true;
    for (auto &thread : threads)
        thread.join();
}

TEST(Log, KeepsErrno) {
    const LogCapture capture([](LogLevel, std::string_view) { errno = ENOENT; });
    errno = EBUSY;
    logLine(LogLevel::info, "line");
    EXPECT_EQ(errno, EBUSY);
}

const ChildProgram logSomeLines("logSomeLines", [] {
    logLine(LogLevel::info, "plain line");
    logLine(LogLevel::error, "ends with newline\n");
    logLine(LogLevel::info, std::string_view("a\nb\tc\x1b[31m\0d\x7f", 13));
    logLine(LogLevel::info, "caf\xC3\xA9 \xC2\x9B \xFF");
    logLine(LogLevel::info, "");
    ChildProcess::tell(logEnabled() ? "enabled" : "disabled");
});

TEST(Log, StandardErrorShowsOneEscapedLineEach) {
    auto child = logSomeLines.start({{"MOXEL_LOG", "stderr"}});
    EXPECT_EQ(child.hear(), "enabled");
    EXPECT_EQ(child.readErrors(), "moxel: plain line\n"
                                  "moxel: ends with newline\n"
                                  "moxel: a\\nb\\tc\\x1b[31m\\x00d\\x7f\n"
                                  "moxel: caf\xC3\xA9 \\xc2\\x9b \\xff\n"
                                  "moxel: \n");
    EXPECT_EQ(child.exitStatus(), 0);
}

TEST(Log, OffDropsEveryLine) {
    auto child = logSomeLines.start({{"MOXEL_LOG", "off"}});
    EXPECT_EQ(child.hear(), "disabled");
    EXPECT_EQ(child.readErrors(), "");
    EXPECT_EQ(child.exitStatus(), 0);
}

const ChildProgram chooseTwice("chooseTwice", [] {
    logLine(LogLevel::info, "first");
    ::setenv("MOXEL_LOG", "off", 1);
    logLine(LogLevel::info, "second");
    const LogCapture capture([](LogLevel, std::string_view) {});
});

TEST(Log, DestinationIsChosenOncePerProcess) {
    auto child = chooseTwice.start({{"MOXEL_LOG", "stderr"}});
    EXPECT_EQ(child.readErrors(), "moxel: first\nmoxel: second\n");
}

const ChildProgram captureWhileOff("captureWhileOff", [] {
    EXPECT_FALSE(logEnabled());
    int calls = 0;
    {
        const LogCapture capture([&](LogLevel, std::string_view) { ++calls; });
        EXPECT_TRUE(logEnabled());
        logLine(LogLevel::info, "line");
    }
    EXPECT_EQ(calls, 1);
    EXPECT_FALSE(logEnabled());
});

TEST(Log, IsEnabledWhileCapturedEvenIfOff) { captureWhileOff.run({{"MOXEL_LOG", "off"}}); }

const ChildProgram sinkLogs("sinkLogs", [] {
    const LogCapture capture([](LogLevel, std::string_view) { logLine(LogLevel::info, "from the sink"); });
    logLine(LogLevel::info, "line");
});

TEST(Log, LinesOfASinkGoToTheDestination) {
    auto child = sinkLogs.start({{"MOXEL_LOG", "stderr"}});
    EXPECT_EQ(child.readErrors(), "moxel: from the sink\n");
}

const ChildProgram logLongLine("logLongLine", [] { logLine(LogLevel::info, std::string(300'000, 'x')); });

TEST(Log, LongLineArrivesWholeThroughAFullPipe) {
    auto child = logLongLine.start({{"MOXEL_LOG", "stderr"}});
    EXPECT_EQ(child.readErrors(), "moxel: " + std::string(300'000, 'x') + '\n');
}

/// A datagram socket where a log daemon would listen.
class LogSocket {
  public:
    explicit LogSocket(const std::string &path) : socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(::bind(socket_, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    }
    ~LogSocket() { ::close(socket_); }
    std::string receive() const {
        std::string buffer(65536, '\0');
        const ssize_t size = ::recv(socket_, buffer.data(), buffer.size(), MSG_DONTWAIT);
        EXPECT_GE(size, 0) << "nothing arrived";
        buffer.resize(size > 0 ? size_t(size) : 0);
        return buffer;
    }

  private:
    int socket_;
};

const ChildProgram logToJournal("logToJournal", [] {
    test::mountEmpty("/run");
    std::filesystem::create_directories("/run/systemd/journal");
    const LogSocket journal("/run/systemd/journal/socket");
    logLine(LogLevel::info, "for the journal\n");
    const std::string info = journal.receive();
    EXPECT_THAT(info, HasSubstr("MESSAGE=for the journal\n"));
    EXPECT_THAT(info, HasSubstr("PRIORITY=6\n"));
    EXPECT_THAT(info, HasSubstr(std::string("SYSLOG_IDENTIFIER=") + program_invocation_short_name + "\n"));
    EXPECT_THAT(info, ::testing::Not(HasSubstr("CODE_FILE")));
    logLine(LogLevel::error, "an error");
    EXPECT_THAT(journal.receive(), HasSubstr("PRIORITY=3\n"));
});

TEST(Log, GoesToTheJournalWhereOneListens) {
    if (!test::canMakeNamespaces())
        GTEST_SKIP() << "no user namespaces here";
    logToJournal.run({{"MOXEL_LOG", std::nullopt}}, ChildProgram::Place::ownNamespaces);
    logToJournal.run({{"MOXEL_LOG", "journal"}}, ChildProgram::Place::ownNamespaces);
}

const ChildProgram logToSyslog("logToSyslog", [] {
    test::mountEmpty("/run");
    test::mountEmpty("/dev");
    const LogSocket syslogd("/dev/log");
    ::openlog("application", LOG_PID, LOG_LOCAL3);
    logLine(LogLevel::error, "two\nlines");
    EXPECT_THAT(syslogd.receive(), ::testing::AllOf(HasSubstr("<155>"), // local3, error
                                                    HasSubstr("application["), HasSubstr("two\\nlines")));
    ::syslog(LOG_INFO, "own line");
    EXPECT_THAT(syslogd.receive(), ::testing::AllOf(HasSubstr("<158>"), HasSubstr("application[")));
});

TEST(Log, GoesToSyslogWithoutAJournalAndLeavesTheApplicationsSettings) {
    if (!test::canMakeNamespaces())
        GTEST_SKIP() << "no user namespaces here";
    logToSyslog.run({{"MOXEL_LOG", std::nullopt}}, ChildProgram::Place::ownNamespaces);
}

} // namespace
} // namespace moxel
