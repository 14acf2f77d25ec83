// The service thread: shared, started with the first lease and ended with the last.
#include "Platform/Linux/ServiceThread.h"

#include <gtest/gtest.h>

#include <future>
#include <pthread.h>
#include <signal.h> // NOLINT(modernize-deprecated-headers): sigset_t is POSIX's

namespace moxel {
namespace {

uint64_t identifierOfThread(ServiceThread &services) {
    uint64_t identifier = 0;
    services.thread().perform([&] { identifier = Thread::current()->identifier(); }, Thread::Wait::untilDone);
    return identifier;
}

TEST(ServiceThread, IsOneForAllLeases) {
    const auto first = *ServiceThread::lease();
    const auto second = *ServiceThread::lease();
    EXPECT_EQ(first, second);
    EXPECT_EQ(first->thread().identifier(), identifierOfThread(*second));
    EXPECT_EQ(first->thread().name(), "moxel-services");
}

TEST(ServiceThread, RunsItsRunLoop) {
    const auto services = *ServiceThread::lease();
    std::promise<bool> isItsLoop;
    services->thread().perform([&] {
        const auto fired = services->runLoop().performAfterDelay(
            RunLoop::Seconds(0), [&] { isItsLoop.set_value(services->thread().isCurrent()); });
        EXPECT_TRUE(fired.ok());
        EXPECT_EQ(RunLoop::current()->get(), &services->runLoop());
    });
    EXPECT_TRUE(isItsLoop.get_future().get());
}

TEST(ServiceThread, HasEndedWhenTheLastLeaseIsGone) {
    auto services = *ServiceThread::lease();
    const uint64_t before = services->thread().identifier();
    std::promise<void> ended;
    const auto subscription = NotificationCenter::defaultCenter().subscribe(
        threadWillExitNotification, &services->thread(), [&](const Notification &) { ended.set_value(); });
    services.reset();
    EXPECT_EQ(ended.get_future().wait_for(std::chrono::seconds(0)), std::future_status::ready);
    services = *ServiceThread::lease();
    EXPECT_NE(services->thread().identifier(), before);
}

TEST(ServiceThread, EndsByItselfWhenItDropsTheLastLease) {
    std::promise<void> ended;
    auto services = *ServiceThread::lease();
    auto subscription = NotificationCenter::defaultCenter().subscribe(
        threadWillExitNotification, &services->thread(), [&](const Notification &) { ended.set_value(); });
    // Kept until perform() is done with it: the lease may be gone before.
    const std::shared_ptr<Thread> thread = services->thread().shared_from_this();
    thread->perform([lease = std::move(services)]() mutable { lease.reset(); });
    EXPECT_EQ(ended.get_future().wait_for(std::chrono::seconds(30)), std::future_status::ready);
    subscription.reset(); // Another thread may end below.
    EXPECT_TRUE(ServiceThread::lease().ok());
}

TEST(ServiceThread, LeavesSignalsToTheApplication) {
    const auto services = *ServiceThread::lease();
    sigset_t blocked;
    services->thread().perform([&] { pthread_sigmask(SIG_SETMASK, nullptr, &blocked); },
                               Thread::Wait::untilDone);
    for (const int signal : {SIGINT, SIGTERM, SIGUSR1, SIGCHLD, SIGALRM})
        EXPECT_EQ(sigismember(&blocked, signal), 1);
    sigset_t here;
    pthread_sigmask(SIG_SETMASK, nullptr, &here);
    EXPECT_EQ(sigismember(&here, SIGUSR1), 0);
}

} // namespace
} // namespace moxel
