// Calls that may block are waited for as long as the caller wants, and no longer.
#include "Platform/Linux/BlockingCalls.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <future>
#include <memory>
#include <pthread.h>
#include <stdexcept>
#include <thread>

namespace moxel {
namespace {

using Clock = BlockingCalls::Clock;
using namespace std::chrono_literals;

TEST(BlockingCalls, ReturnWhenTheCallHasReturned) {
    BlockingCalls calls;
    std::thread::id thread;
    ASSERT_TRUE(calls.make([&] { thread = std::this_thread::get_id(); }, Clock::now() + 30s).ok());
    EXPECT_NE(thread, std::thread::id());
    EXPECT_NE(thread, std::this_thread::get_id());
}

TEST(BlockingCalls, OneThatDoesNotReturnInTimeIsLeftToItself) {
    BlockingCalls calls;
    std::promise<void> release;
    std::promise<void> ended;
    const auto owned = std::make_shared<int>(1);
    const std::weak_ptr<int> stillOwned = owned;
    const auto start = Clock::now();
    const Result<void> late = calls.make(
        [&ended, wait = std::make_shared<std::future<void>>(release.get_future()), owned] {
            wait->wait();
            ended.set_value();
        },
        Clock::now() + 50ms);
    ASSERT_FALSE(late.ok());
    EXPECT_EQ(late.error().code, ETIMEDOUT);
    EXPECT_GE(Clock::now() - start, 50ms);
    release.set_value();
    ended.get_future().wait();
}

TEST(BlockingCalls, WaitForAnEarlierOneThatIsStillUnderWay) {
    BlockingCalls calls;
    std::promise<void> release;
    bool ran = false;
    const auto wait = std::make_shared<std::future<void>>(release.get_future());
    ASSERT_FALSE(calls.make([wait] { wait->wait(); }, Clock::now() + 1ms).ok());
    const Result<void> second = calls.make([&ran] { ran = true; }, Clock::now() + 20ms);
    ASSERT_FALSE(second.ok());
    EXPECT_EQ(second.error().code, ETIMEDOUT);
    EXPECT_FALSE(ran);
    release.set_value();
    EXPECT_TRUE(calls.make([&ran] { ran = true; }, Clock::now() + 30s).ok());
    EXPECT_TRUE(ran);
}

TEST(BlockingCalls, OneThatFailsLeavesItsTurn) {
    BlockingCalls calls;
    (void)calls.make([] { throw std::runtime_error("no memory"); }, Clock::now() + 30s);
    bool ran = false;
    EXPECT_TRUE(calls.make([&ran] { ran = true; }, Clock::now() + 5s).ok());
    EXPECT_TRUE(ran);
}

TEST(BlockingCalls, RunWhereNoSignalInterruptsThem) {
    BlockingCalls calls;
    sigset_t blocked;
    sigemptyset(&blocked);
    ASSERT_TRUE(
        calls.make([&blocked] { pthread_sigmask(SIG_SETMASK, nullptr, &blocked); }, Clock::now() + 30s).ok());
    for (const int signal : {SIGALRM, SIGINT, SIGUSR1, SIGCHLD})
        EXPECT_EQ(sigismember(&blocked, signal), 1) << signal;
}

} // namespace
} // namespace moxel
