// Threads as objects: identity, posting, waiting, and what happens when they end.
#include "Platform/Thread.h"
#include "Platform/RunLoop.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <pthread.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace moxel {
namespace {

/// A thread that runs its run loop until it is destroyed.
class LoopingThread {
  public:
    LoopingThread() {
        std::promise<std::shared_ptr<RunLoop>> made;
        std::future<std::shared_ptr<RunLoop>> loop = made.get_future();
        thread_ = *Thread::start("looping", [&made] {
            const std::shared_ptr<RunLoop> own = *RunLoop::current();
            made.set_value(own);
            own->run();
        });
        loop_ = loop.get();
    }
    ~LoopingThread() {
        loop_->stop();
        thread_->join();
    }
    Thread &thread() { return *thread_; }
    std::shared_ptr<Thread> pointer() { return thread_; }

  private:
    std::shared_ptr<Thread> thread_;
    std::shared_ptr<RunLoop> loop_;
};

TEST(Thread, CurrentIsTheSameObjectForTheWholeLifeOfAThread) {
    std::thread([] {
        const std::shared_ptr<Thread> first = Thread::current();
        EXPECT_EQ(first, Thread::current());
        EXPECT_TRUE(first->isCurrent());
        EXPECT_FALSE(first->isMain());
    }).join();
}

TEST(Thread, MainThreadIsKnownFromEveryThread) {
    EXPECT_EQ(Thread::main(), Thread::current());
    std::thread([] { EXPECT_FALSE(Thread::main()->isCurrent()); }).join();
    EXPECT_TRUE(Thread::main()->isMain());
}

TEST(Thread, IdentifiersAreNeverUsedAgain) {
    uint64_t first = 0;
    uint64_t second = 0;
    std::thread([&] { first = Thread::current()->identifier(); }).join();
    std::thread([&] { second = Thread::current()->identifier(); }).join();
    EXPECT_NE(first, second);
}

TEST(Thread, LongNamesAreKeptWholeThoughTheSystemShortensThem) {
    std::promise<std::string> system;
    auto thread = *Thread::start("Mxl-FileChangeObserver", [&system] {
        char name[64] = {};
        pthread_getname_np(pthread_self(), name, sizeof name);
        system.set_value(name);
    });
    EXPECT_EQ(thread->name(), "Mxl-FileChangeObserver");
    EXPECT_EQ(system.get_future().get(), "Mxl-FileChangeO");
    thread->join();
}

TEST(Thread, WorkRunsInTheOrderInWhichItWasPosted) {
    LoopingThread looping;
    std::vector<int> order;
    for (int i = 0; i < 1000; ++i)
        ASSERT_TRUE(looping.thread().perform([&order, i] { order.push_back(i); }));
    ASSERT_TRUE(looping.thread().perform([] {}, Thread::Wait::untilDone));
    ASSERT_EQ(order.size(), 1000U);
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
}

TEST(Thread, WorkOfManyPostersIsAllRunAndEachPostersOrderKept) {
    constexpr int posters = 4;
    constexpr int each = 5000;
    std::vector<std::vector<int>> seen(posters);
    {
        LoopingThread looping;
        std::vector<std::thread> threads;
        for (int p = 0; p < posters; ++p)
            threads.emplace_back([&, p] {
                for (int i = 0; i < each; ++i)
                    looping.thread().perform([&seen, p, i] { seen[static_cast<size_t>(p)].push_back(i); });
            });
        for (std::thread &thread : threads)
            thread.join();
        looping.thread().perform([] {}, Thread::Wait::untilDone);
    }
    for (const std::vector<int> &one : seen) {
        ASSERT_EQ(one.size(), static_cast<size_t>(each));
        EXPECT_TRUE(std::is_sorted(one.begin(), one.end()));
    }
}

TEST(Thread, WaitingWorkOnTheOwnThreadRunsInsideTheCall) {
    bool ran = false;
    EXPECT_TRUE(Thread::current()->perform([&ran] { ran = true; }, Thread::Wait::untilDone));
    EXPECT_TRUE(ran);
}

TEST(Thread, WaitingWorkHasRunWhenTheCallReturns) {
    LoopingThread looping;
    uint64_t where = 0;
    EXPECT_TRUE(looping.thread().perform([&where] { where = Thread::current()->identifier(); },
                                         Thread::Wait::untilDone));
    EXPECT_EQ(where, looping.thread().identifier());
}

TEST(Thread, WorkForAThreadThatHasEndedIsDroppedAndFreed) {
    std::shared_ptr<Thread> ended;
    std::thread([&ended] { ended = Thread::current(); }).join();
    const auto token = std::make_shared<int>(0);
    EXPECT_FALSE(ended->perform([token] { FAIL() << "ran on a thread that has ended"; }));
    EXPECT_EQ(token.use_count(), 1);
    EXPECT_FALSE(ended->perform([] {}, Thread::Wait::untilDone));
}

TEST(Thread, WorkThatWaitsWhenItsThreadEndsIsDroppedFreedAndItsWaiterWoken) {
    std::promise<std::shared_ptr<Thread>> started;
    std::promise<void> mayEnd;
    std::thread system([&] {
        started.set_value(Thread::current());
        mayEnd.get_future().wait();
    });
    const std::shared_ptr<Thread> thread = started.get_future().get();
    const auto token = std::make_shared<int>(0);
    EXPECT_TRUE(thread->perform([token] {}));
    std::future<bool> waiter =
        std::async(std::launch::async, [&] { return thread->perform([] {}, Thread::Wait::untilDone); });
    mayEnd.set_value();
    EXPECT_FALSE(waiter.get());
    system.join();
    EXPECT_EQ(token.use_count(), 1);
}

TEST(Thread, AnExceptionInPostedWorkHarmsNeitherTheThreadNorTheWaiter) {
    LoopingThread looping;
    EXPECT_TRUE(
        looping.thread().perform([] { throw std::runtime_error("expected"); }, Thread::Wait::untilDone));
    bool ran = false;
    looping.thread().perform([&ran] { ran = true; }, Thread::Wait::untilDone);
    EXPECT_TRUE(ran);
}

TEST(Thread, ExitIsAnnouncedOnTheEndingThreadForThreadsThatOthersStarted) {
    std::atomic<int> announced{0};
    NotificationSubscription subscription;
    std::thread([&] {
        const std::shared_ptr<Thread> self = Thread::current();
        subscription = NotificationCenter::defaultCenter().subscribe(
            threadWillExitNotification, self.get(), [&announced, self](const Notification &notification) {
                EXPECT_EQ(notification.object, self.get());
                EXPECT_TRUE(self->isCurrent());
                ++announced;
            });
    }).join();
    EXPECT_EQ(announced, 1);
}

TEST(Thread, ExitIsAnnouncedForThreadsThatCallPthreadExit) {
    std::atomic<int> announced{0};
    NotificationSubscription subscription = NotificationCenter::defaultCenter().subscribe(
        threadWillExitNotification, nullptr, [&](const Notification &) { ++announced; });
    pthread_t thread;
    const auto body = [](void *) -> void * {
        Thread::current();
        pthread_exit(nullptr);
    };
    ASSERT_EQ(pthread_create(&thread, nullptr, body, nullptr), 0);
    pthread_join(thread, nullptr);
    EXPECT_EQ(announced, 1);
}

TEST(Thread, ThreadsThatNeverAskedForTheirObjectAnnounceNothing) {
    std::atomic<int> announced{0};
    NotificationSubscription subscription = NotificationCenter::defaultCenter().subscribe(
        threadWillExitNotification, nullptr, [&](const Notification &) { ++announced; });
    std::thread([] {}).join();
    EXPECT_EQ(announced, 0);
}

} // namespace
} // namespace moxel
