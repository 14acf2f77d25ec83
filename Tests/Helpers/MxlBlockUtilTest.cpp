// Deferred execution of blocks: which thread runs them, and when.
#include "Platform/RunLoop.h"
#include "Platform/Thread.h"
#include <Moxel/MxlBlockUtil.h>

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <limits>
#include <thread>

namespace moxel {
namespace {

using Clock = std::chrono::steady_clock;

RunLoop &currentLoop() { return **RunLoop::current(); }

/// Runs the calling thread's loop until `done` holds; false after 10 s.
template <class Done>
bool runUntil(Done done) {
    const auto deadline = Clock::now() + std::chrono::seconds(10);
    while (!done() && Clock::now() < deadline)
        currentLoop().runOneSource(RunLoop::Seconds(0.1));
    return done();
}

TEST(MxlBlockUtil, DelayedBlockRunsOnTheCallingThreadAfterTheDelay) {
    std::thread([] {
        const uint64_t self = Thread::current()->identifier();
        const auto start = Clock::now();
        uint64_t where = 0;
        MxlBlockUtil::performBlock([&where] { where = Thread::current()->identifier(); }, 0.03);
        EXPECT_EQ(where, 0U);
        EXPECT_TRUE(runUntil([&where] { return where != 0; }));
        EXPECT_EQ(where, self);
        EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(30));
    }).join();
}

TEST(MxlBlockUtil, DelayThatIsNoNumberIsNone) {
    std::thread([] {
        bool ran = false;
        MxlBlockUtil::performBlock([&ran] { ran = true; }, std::numeric_limits<double>::quiet_NaN());
        EXPECT_TRUE(runUntil([&ran] { return ran; }));
    }).join();
}

TEST(MxlBlockUtil, NotOnMainRunsInsideTheCallWhateverTheDelay) {
    std::thread([] {
        bool ran = false;
        MxlBlockUtil::performBlock([&ran] { ran = true; }, false, 5.0);
        EXPECT_TRUE(ran);
    }).join();
}

TEST(MxlBlockUtil, OnMainFromTheMainThreadRunsInsideTheCall) {
    ASSERT_TRUE(Thread::main()->isCurrent());
    bool ran = false;
    MxlBlockUtil::performBlock([&ran] { ran = true; }, true, 5.0);
    EXPECT_TRUE(ran);
}

TEST(MxlBlockUtil, OnMainFromAnotherThreadRunsOnMainNoEarlierThanTheDelay) {
    ASSERT_TRUE(Thread::main()->isCurrent());
    currentLoop();
    std::atomic<bool> ran{false};
    Clock::time_point called;
    Clock::time_point when;
    std::thread other([&] {
        called = Clock::now();
        MxlBlockUtil::performBlock(
            [&] {
                EXPECT_TRUE(Thread::main()->isCurrent());
                when = Clock::now();
                ran = true;
            },
            true, 0.03);
        EXPECT_TRUE(currentLoop().runOneSource(RunLoop::Seconds(10))); // Times the delay.
    });
    EXPECT_TRUE(runUntil([&ran] { return ran.load(); }));
    other.join();
    EXPECT_GE(when - called, std::chrono::milliseconds(30));
}

TEST(MxlBlockUtil, OnTheOwnThreadAfterADelayNeverRunsInsideTheCall) {
    std::thread([] {
        bool ran = false;
        MxlBlockUtil::performBlock([&ran] { ran = true; }, Thread::current(), 0.0);
        EXPECT_FALSE(ran);
        EXPECT_TRUE(runUntil([&ran] { return ran; }));
    }).join();
}

TEST(MxlBlockUtil, WithoutWaitingIgnoresTheDelayAndRunsOnTheTarget) {
    std::promise<std::shared_ptr<Thread>> target;
    std::promise<void> ran;
    std::thread other([&] {
        target.set_value(Thread::current());
        EXPECT_TRUE(currentLoop().runOneSource(RunLoop::Seconds(10)));
    });
    const auto start = Clock::now();
    MxlBlockUtil::performBlock([&ran] { ran.set_value(); }, target.get_future().get(), 10.0, false);
    ran.get_future().wait();
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(9));
    other.join();
}

TEST(MxlBlockUtil, WaitingReturnsWhenTheBlockHasRun) {
    std::promise<std::shared_ptr<Thread>> target;
    std::thread other([&] {
        target.set_value(Thread::current());
        EXPECT_TRUE(currentLoop().runOneSource(RunLoop::Seconds(10)));
    });
    bool ran = false;
    MxlBlockUtil::performBlock([&ran] { ran = true; }, target.get_future().get(), 10.0, true);
    EXPECT_TRUE(ran);
    other.join();
}

TEST(MxlBlockUtil, WaitingOnTheOwnThreadRunsInsideTheCall) {
    bool ran = false;
    MxlBlockUtil::performBlock([&ran] { ran = true; }, Thread::current(), 0.0, true);
    EXPECT_TRUE(ran);
}

TEST(MxlBlockUtil, NullThreadDoesNothing) {
    const auto token = std::make_shared<int>(0);
    const auto block = [token] { FAIL(); };
    MxlBlockUtil::performBlock(block, nullptr, 0.0);
    MxlBlockUtil::performBlock(block, nullptr, 0.0, true);
    EXPECT_FALSE(currentLoop().runOneSource(RunLoop::Seconds(0.01)));
    EXPECT_EQ(token.use_count(), 2);
}

TEST(MxlBlockUtil, BlocksPostedToOneThreadRunInTheirOrder) {
    std::thread([] {
        std::vector<int> order;
        for (int i = 0; i < 10; ++i)
            MxlBlockUtil::performBlock([&order, i] { order.push_back(i); }, Thread::current(), 0.0, false);
        EXPECT_TRUE(runUntil([&order] { return order.size() == 10; }));
        EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
    }).join();
}

TEST(MxlBlockUtil, BlockOfAThreadThatHasEndedIsReleased) {
    std::shared_ptr<Thread> ended;
    std::thread([&ended] { ended = Thread::current(); }).join();
    const auto token = std::make_shared<int>(0);
    MxlBlockUtil::performBlock([token] { FAIL(); }, ended, 0.0, true);
    EXPECT_EQ(token.use_count(), 1);
}

} // namespace
} // namespace moxel
