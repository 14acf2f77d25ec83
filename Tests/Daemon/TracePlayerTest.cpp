// Traces as they are played: order, times, repeats, and lines that come while they play.
#include "Moxel Daemon/Motion/TracePlayer.h"
#include "Moxel Daemon/Motion/Movement.h"
#include "Moxel Daemon/Motion/TraceParser.h"
#include "Moxel Daemon/Motion/TraceStream.h"
#include "Platform/Linux/Descriptor.h"
#include "Support/Await.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

namespace moxel::daemon {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;

/// Runs everything on the test's own thread and run loop.
class DaemonTracePlayer : public ::testing::Test, protected EventSink {
  protected:
    void happen(const TraceEvent &event) override {
        if (const auto *press = std::get_if<ButtonsEvent>(&event)) {
            buttons.push_back(press->buttons);
            times.push_back(std::chrono::steady_clock::now() - start_);
        } else if (const auto *motion = std::get_if<MotionEvent>(&event)) {
            motions.push_back(motion->axis);
        }
    }
    TracePlayer &make(double speed = 1) {
        EventSink &sink = *this;
        player_.emplace(*loop, sink, speed, [this](const std::string &what) {
            isOver = true;
            problem = what;
        });
        start_ = std::chrono::steady_clock::now();
        return *player_;
    }
    void play(std::string_view text, bool endless = false, double speed = 1) {
        const Result<TraceBlock> trace = parseTrace(text);
        ASSERT_TRUE(trace.ok()) << trace.error().message;
        TracePlayer &player = make(speed);
        player.append({0ns, TraceRepeat{endless ? 0U : 1U, std::make_shared<const TraceBlock>(*trace)}});
        player.end();
        player.start();
    }
    void runUntil(const std::function<bool()> &condition) {
        while (!condition())
            ASSERT_TRUE(loop->runOneSource(test::patience)) << "nothing happens any more";
    }
    void playToTheEnd(std::string_view text, double speed = 1) {
        play(text, false, speed);
        runUntil([this] { return isOver; });
        EXPECT_EQ(problem, "");
    }

    std::shared_ptr<RunLoop> loop = *RunLoop::current();
    std::vector<uint32_t> buttons;
    std::vector<std::chrono::nanoseconds> times;
    std::vector<std::array<int16_t, 6>> motions;
    bool isOver = false;
    std::string problem;

  private:
    std::optional<TracePlayer> player_;
    std::chrono::steady_clock::time_point start_;
};

TEST_F(DaemonTracePlayer, EventsComeInOrderAndNotBeforeTheirTime) {
    playToTheEnd("buttons 1\n0.02 buttons 2\nbuttons 3\n+0.03 buttons 4\n0.1 pause\n");
    EXPECT_THAT(buttons, ElementsAre(1, 2, 3, 4));
    EXPECT_GE(times[1], 20ms);
    EXPECT_GE(times[2], 20ms);
    EXPECT_GE(times[3], 50ms);
}

TEST_F(DaemonTracePlayer, EmptyTraceIsOverAtOnce) {
    play("");
    EXPECT_TRUE(isOver);
}

TEST_F(DaemonTracePlayer, TraceLastsAsLongAsItSays) {
    const auto before = std::chrono::steady_clock::now();
    playToTheEnd("buttons 1\n0.05 pause\n");
    EXPECT_GE(std::chrono::steady_clock::now() - before, 50ms);
}

TEST_F(DaemonTracePlayer, SpeedShortensTimes) {
    playToTheEnd("buttons 1\n1000 buttons 2\n", 1e6);
    EXPECT_THAT(buttons, ElementsAre(1, 2));
    EXPECT_GE(times[1], 1ms);
    EXPECT_LT(times[1], 100s);
}

TEST_F(DaemonTracePlayer, RepeatsArePlayedRoundByRound) {
    playToTheEnd(
        "buttons 1\nrepeat 2\nbuttons 2\nrepeat 3\n0.001 buttons 3\nend\nbuttons 4\nend\nbuttons 5\n");
    EXPECT_THAT(buttons, ElementsAre(1, 2, 3, 3, 3, 4, 2, 3, 3, 3, 4, 5));
    EXPECT_GE(times.back(), 6ms);
}

TEST_F(DaemonTracePlayer, EmptyRepeatsArePassed) {
    playToTheEnd("repeat 1000\nend\nrepeat 3\nrepeat 2\nend\nend\nbuttons 1\n");
    EXPECT_THAT(buttons, ElementsAre(1));
}

TEST_F(DaemonTracePlayer, RoundsOfARepeatKeepTheirDistance) {
    playToTheEnd("repeat 3\nbuttons 1\n0.02 end\n");
    ASSERT_EQ(times.size(), 3U);
    EXPECT_GE(times[2], 40ms);
}

TEST_F(DaemonTracePlayer, EndlessTraceGoesOn) {
    play("buttons 1\n0.001 buttons 2\n", true);
    runUntil([this] { return buttons.size() >= 50; });
    EXPECT_FALSE(isOver);
    EXPECT_EQ(buttons[48], 1U);
}

TEST_F(DaemonTracePlayer, LongTracesDoNotHoldTheLoop) {
    std::string text;
    for (int line = 0; line < 10000; ++line)
        text += "buttons 1\n";
    play(text);
    EXPECT_LT(buttons.size(), 10000U);
    bool otherRan = false;
    ASSERT_TRUE(loop->performAfterDelay(RunLoop::Seconds(0), [&] { otherRan = true; }).ok());
    runUntil([&] { return otherRan; });
    EXPECT_LT(buttons.size(), 10000U);
    runUntil([this] { return isOver; });
    EXPECT_EQ(buttons.size(), 10000U);
}

/// A trace that is written while it plays.
class DaemonTraceStream : public DaemonTracePlayer {
  protected:
    DaemonTraceStream() {
        int ends[2];
        EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
        out_.reset(ends[0]);
        in_.reset(ends[1]);
    }
    void begin() {
        TracePlayer &player = make();
        stream_.emplace(*loop, out_.get(), player);
        ASSERT_TRUE(stream_->start().ok());
        player.start();
    }
    void write(std::string_view text) {
        ASSERT_EQ(::write(in_.get(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    void close() { in_.reset(); }
    void runToTheEnd() {
        close();
        runUntil([this] { return isOver; });
    }

    Descriptor out_;
    Descriptor in_;
    std::optional<TraceStream> stream_;
};

TEST_F(DaemonTraceStream, LinesArePlayedAsTheyCome) {
    begin();
    write("buttons 1\nbut");
    runUntil([this] { return buttons.size() == 1; });
    write("tons 2\n");
    runUntil([this] { return buttons.size() == 2; });
    EXPECT_FALSE(isOver);
    write("buttons 3");
    runToTheEnd();
    EXPECT_THAT(buttons, ElementsAre(1, 2, 3));
    EXPECT_EQ(problem, "");
}

TEST_F(DaemonTraceStream, LateLinesMoveTheOnesAfterThem) {
    begin();
    // The first line is late by as long as it takes to get here.
    ASSERT_TRUE(loop->performAfterDelay(30ms, [this] { write("0.01 buttons 1\n0.05 buttons 2\n"); }).ok());
    runUntil([this] { return buttons.size() == 2; });
    EXPECT_GE(times[1] - times[0], 39ms);
}

TEST_F(DaemonTraceStream, RepeatsArePlayedWhenTheyAreWhole) {
    begin();
    write("repeat 2\nbuttons 1\n");
    write("buttons 2\nend\n");
    runToTheEnd();
    EXPECT_THAT(buttons, ElementsAre(1, 2, 1, 2));
}

TEST_F(DaemonTraceStream, BadLineEndsTheTraceAfterTheGoodOnes) {
    begin();
    write("buttons 1\nnonsense\nbuttons 2\n");
    runUntil([this] { return isOver; });
    EXPECT_THAT(buttons, ElementsAre(1));
    EXPECT_EQ(problem, "line 2: there is no event \"nonsense\"");
}

TEST_F(DaemonTraceStream, FirstProblemIsTheOneThatIsTold) {
    begin();
    write("repeat 2\nnonsense");
    runToTheEnd();
    EXPECT_EQ(problem, "line 2: there is no event \"nonsense\"");
}

TEST_F(DaemonTraceStream, OpenRepeatAtTheEndIsAProblem) {
    begin();
    write("repeat 2\nbuttons 1\n");
    runToTheEnd();
    EXPECT_EQ(problem, "line 1: this repeat has no end");
}

TEST_F(DaemonTraceStream, LineWithoutEndIsAProblem) {
    begin();
    for (int part = 0; part < 3; ++part)
        write(std::string(4000, 'x'));
    runUntil([this] { return isOver; });
    EXPECT_THAT(problem, HasSubstr("no end"));
}

TEST_F(DaemonTraceStream, MoreThanThePlayerNeedsIsLeftInThePipe) {
    // Everything is due much later, so nothing may be read beyond what the player keeps ready.
    ASSERT_EQ(::fcntl(in_.get(), F_SETFL, O_NONBLOCK), 0);
    begin();
    write("1000 pause\n");
    const std::string lines = "buttons 1\nbuttons 1\nbuttons 1\nbuttons 1\n";
    size_t written = 0;
    while (true) {
        const ssize_t size = ::write(in_.get(), lines.data(), lines.size());
        if (size > 0)
            written += static_cast<size_t>(size);
        else if (!loop->runOneSource(RunLoop::Seconds(0)))
            break; // The pipe is full, and the stream does not want to read.
    }
    EXPECT_LT(written, 200000U);
    EXPECT_TRUE(buttons.empty());
}

TEST_F(DaemonTraceStream, RegularFilesAreReadAtOnce) {
    const test::TemporaryFolder folder;
    out_.reset(::open(folder.write("x.trace", "buttons 1\nbuttons 2").c_str(), O_RDONLY | O_CLOEXEC));
    begin();
    runUntil([this] { return isOver; });
    EXPECT_THAT(buttons, ElementsAre(1, 2));
}

TEST_F(DaemonTracePlayer, MovementIsSmoothAndBounded) {
    EXPECT_THAT(movementAt(0), ElementsAre(0, 0, 0, 0, 0, 0));
    EXPECT_EQ(movementAt(0.5)[0], 350);
    EXPECT_EQ(movementAt(1.5)[0], -350);
    std::array<int, 6> lowest{};
    std::array<int, 6> highest{};
    for (double seconds = 0; seconds < 13; seconds += 0.001) {
        const auto now = movementAt(seconds);
        const auto next = movementAt(seconds + 0.001);
        for (size_t axis = 0; axis < 6; ++axis) {
            EXPECT_LE(std::abs(next[axis] - now[axis]), 2);
            lowest[axis] = std::min<int>(lowest[axis], now[axis]);
            highest[axis] = std::max<int>(highest[axis], now[axis]);
        }
    }
    EXPECT_THAT(lowest, ::testing::Each(-350));
    EXPECT_THAT(highest, ::testing::Each(350));
}

TEST_F(DaemonTracePlayer, MovementComesAtItsRate) {
    EventSink &sink = *this;
    Movement movement(*loop, sink);
    const auto before = std::chrono::steady_clock::now();
    ASSERT_TRUE(movement.start(1000).ok());
    runUntil([this] { return motions.size() >= 50; });
    EXPECT_GE(std::chrono::steady_clock::now() - before, 49ms);
    EXPECT_NE(motions.front(), motions.back());
}

} // namespace
} // namespace moxel::daemon
