// The run loop: timers, descriptors, stopping, dispatching from a foreign loop, and sharing sd-event with the
// owner.
#include "Platform/RunLoop.h"
#include "Platform/Thread.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <future>
#include <poll.h>
#include <systemd/sd-event.h>
#include <thread>
#include <unistd.h>

namespace moxel {
namespace {

using Seconds = RunLoop::Seconds;

/// Runs a test's body on a thread of its own, so that every test has a fresh loop.
void onFreshThread(const std::function<void(RunLoop &)> &body) {
    std::thread([&body] {
        const std::shared_ptr<RunLoop> loop = *RunLoop::current();
        body(*loop);
    }).join();
}

bool pollsReadable(int descriptor, int timeoutMilliseconds) {
    pollfd entry{descriptor, POLLIN, 0};
    return ::poll(&entry, 1, timeoutMilliseconds) == 1;
}

/// A pipe that closes itself.
struct Pipe {
    Pipe() { EXPECT_EQ(::pipe(ends), 0); }
    ~Pipe() {
        ::close(ends[0]);
        closeWriter();
    }
    void closeWriter() {
        if (ends[1] >= 0)
            ::close(ends[1]);
        ends[1] = -1;
    }
    int ends[2] = {-1, -1};
};

TEST(RunLoop, IsTheSameForTheWholeLifeOfAThread) {
    onFreshThread([](RunLoop &loop) { EXPECT_EQ(RunLoop::current()->get(), &loop); });
}

TEST(RunLoop, OneShotTimerFiresOnceNotBeforeItsDelay) {
    onFreshThread([](RunLoop &loop) {
        const auto start = std::chrono::steady_clock::now();
        int fired = 0;
        const RunLoopSource timer = *loop.addTimer(Seconds(0.02), Seconds(0), [&] { ++fired; });
        EXPECT_TRUE(loop.runOneSource(Seconds(10)));
        EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(20));
        EXPECT_FALSE(loop.runOneSource(Seconds(0.05)));
        EXPECT_EQ(fired, 1);
    });
}

TEST(RunLoop, RepeatingTimerFiresAgain) {
    onFreshThread([](RunLoop &loop) {
        int fired = 0;
        const RunLoopSource timer = *loop.addTimer(Seconds(0), Seconds(0.005), [&] {
            if (++fired == 3)
                loop.stop();
        });
        loop.run();
        EXPECT_EQ(fired, 3);
    });
}

TEST(RunLoop, DestroyedTimerDoesNotFire) {
    onFreshThread([](RunLoop &loop) {
        RunLoopSource timer = *loop.addTimer(Seconds(0), Seconds(0), [] { FAIL(); });
        timer.reset();
        EXPECT_FALSE(loop.runOneSource(Seconds(0.02)));
    });
}

TEST(RunLoop, SourceMayDestroyItselfInsideItsCallback) {
    onFreshThread([](RunLoop &loop) {
        auto timer = std::make_unique<RunLoopSource>();
        const auto token = std::make_shared<int>(7);
        int seen = 0;
        *timer = *loop.addTimer(Seconds(0), Seconds(0.001), [&timer, token, &seen] {
            timer.reset();
            seen = *token; // The callback's own captures must still be alive.
        });
        EXPECT_TRUE(loop.runOneSource(Seconds(10)));
        EXPECT_EQ(seen, 7);
        EXPECT_FALSE(loop.runOneSource(Seconds(0.02)));
        EXPECT_EQ(token.use_count(), 1);
    });
}

TEST(RunLoop, DescriptorIsReportedWhileItIsReadableAndWhenItHangsUp) {
    onFreshThread([](RunLoop &loop) {
        Pipe pipe;
        RunLoop::Readiness last;
        const RunLoopSource watch =
            *loop.watchDescriptor(pipe.ends[0], RunLoop::Descriptor::readable,
                                  [&](RunLoop::Readiness readiness) { last = readiness; });
        EXPECT_FALSE(loop.runOneSource(Seconds(0)));
        ASSERT_EQ(::write(pipe.ends[1], "x", 1), 1);
        EXPECT_TRUE(loop.runOneSource(Seconds(10)));
        EXPECT_TRUE(last.readable);
        EXPECT_FALSE(last.hangUp);
        char byte;
        ASSERT_EQ(::read(pipe.ends[0], &byte, 1), 1);
        EXPECT_FALSE(loop.runOneSource(Seconds(0)));
        pipe.closeWriter();
        EXPECT_TRUE(loop.runOneSource(Seconds(10)));
        EXPECT_TRUE(last.hangUp);
    });
}

TEST(RunLoop, InterestOfADescriptorCanChange) {
    onFreshThread([](RunLoop &loop) {
        Pipe pipe;
        int writable = 0;
        RunLoopSource watch = *loop.watchDescriptor(pipe.ends[1], RunLoop::Descriptor::writable,
                                                    [&](RunLoop::Readiness) { ++writable; });
        EXPECT_TRUE(loop.runOneSource(Seconds(10)));
        loop.setInterest(watch, false, false);
        EXPECT_FALSE(loop.runOneSource(Seconds(0.02)));
        loop.setInterest(watch, false, true);
        EXPECT_TRUE(loop.runOneSource(Seconds(10)));
        EXPECT_EQ(writable, 2);
    });
}

TEST(RunLoop, StopBeforeRunEndsTheNextRunAtOnce) {
    onFreshThread([](RunLoop &loop) {
        loop.stop();
        loop.run();
        loop.stop();
        EXPECT_FALSE(loop.runOneSource(Seconds(60)));
    });
}

TEST(RunLoop, StopFromAnotherThreadEndsRun) {
    onFreshThread([](RunLoop &loop) {
        std::promise<void> running;
        std::thread stopper([&] {
            running.get_future().wait();
            loop.stop();
        });
        ASSERT_TRUE(loop.performAfterDelay(Seconds(0), [&running] { running.set_value(); }).ok());
        loop.run();
        stopper.join();
    });
}

TEST(RunLoop, RunOneSourceReturnsAfterOneSourceThoughMoreAreDue) {
    onFreshThread([](RunLoop &loop) {
        int fired = 0;
        const RunLoopSource first = *loop.addTimer(Seconds(0), Seconds(0), [&] { ++fired; });
        const RunLoopSource second = *loop.addTimer(Seconds(0), Seconds(0), [&] { ++fired; });
        EXPECT_TRUE(loop.runOneSource(Seconds(10)));
        EXPECT_EQ(fired, 1);
        EXPECT_TRUE(loop.runOneSource(Seconds(10)));
        EXPECT_EQ(fired, 2);
    });
}

TEST(RunLoop, PerformAfterDelayRunsOnceOnTheSameThread) {
    onFreshThread([](RunLoop &loop) {
        const uint64_t self = Thread::current()->identifier();
        uint64_t where = 0;
        ASSERT_TRUE(
            loop.performAfterDelay(Seconds(0.01), [&where] { where = Thread::current()->identifier(); })
                .ok());
        EXPECT_TRUE(loop.runOneSource(Seconds(10)));
        EXPECT_EQ(where, self);
        EXPECT_FALSE(loop.runOneSource(Seconds(0.03)));
    });
}

TEST(RunLoop, DelayedWorkOfAThreadThatEndsIsFreedUnrun) {
    const auto token = std::make_shared<int>(0);
    onFreshThread([token](RunLoop &loop) {
        ASSERT_TRUE(loop.performAfterDelay(Seconds(3600), [token] { FAIL(); }).ok());
    });
    EXPECT_EQ(token.use_count(), 1);
}

TEST(RunLoop, DescriptorPollsReadableExactlyWhenThereIsWork) {
    onFreshThread([](RunLoop &loop) {
        EXPECT_GE(loop.dispatch(0), 0);
        EXPECT_FALSE(pollsReadable(loop.descriptor(), 0));
        Thread::current()->perform([] {});
        EXPECT_TRUE(pollsReadable(loop.descriptor(), 0));
        EXPECT_EQ(loop.dispatch(0), 1);
        EXPECT_FALSE(pollsReadable(loop.descriptor(), 0));
        const RunLoopSource timer = *loop.addTimer(Seconds(0.01), Seconds(0), [] {});
        EXPECT_TRUE(pollsReadable(loop.descriptor(), 10000));
        EXPECT_EQ(loop.dispatch(0), 1);
        EXPECT_FALSE(pollsReadable(loop.descriptor(), 0));
    });
}

TEST(RunLoop, DispatchRunsEverythingThatIsDueAndCountsIt) {
    onFreshThread([](RunLoop &loop) {
        int ran = 0;
        for (int i = 0; i < 5; ++i)
            Thread::current()->perform([&ran] { ++ran; });
        const RunLoopSource timer = *loop.addTimer(Seconds(0), Seconds(0), [&ran] { ++ran; });
        ASSERT_TRUE(pollsReadable(loop.descriptor(), 10000));
        int counted = loop.dispatch(0);
        while (counted < 6)
            counted += loop.dispatch(-1);
        EXPECT_EQ(ran, 6);
        EXPECT_EQ(counted, 6);
    });
}

TEST(RunLoop, DispatchWaitsAtMostItsTimeout) {
    onFreshThread([](RunLoop &loop) {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(loop.dispatch(30), 0); // A fresh loop is woken once, to look for what was posted before.
        EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
    });
}

TEST(RunLoop, DispatchWithNegativeTimeoutWaitsForWork) {
    onFreshThread([](RunLoop &loop) {
        const std::shared_ptr<Thread> self = Thread::current();
        bool ran = false;
        std::thread poster([&] { self->perform([&ran] { ran = true; }); });
        EXPECT_EQ(loop.dispatch(-1), 1);
        EXPECT_TRUE(ran);
        poster.join();
    });
}

TEST(RunLoop, DispatchFromInsideACallbackIsRefused) {
    onFreshThread([](RunLoop &loop) {
        int nested = 0;
        Thread::current()->perform([&] { nested = loop.dispatch(0); });
        EXPECT_EQ(loop.dispatch(1000), 1);
        EXPECT_EQ(nested, -EBUSY);
    });
}

TEST(RunLoop, WorkThatPostsMoreWorkDoesNotHoldDispatchForEver) {
    onFreshThread([](RunLoop &loop) {
        const std::shared_ptr<Thread> self = Thread::current();
        int ran = 0;
        std::function<void()> again = [&] {
            ++ran;
            self->perform(again);
        };
        self->perform(again);
        EXPECT_GT(loop.dispatch(0), 0);
        EXPECT_GT(ran, 0);
    });
}

/// A handler that takes longer than a dispatch() begins work for.
void takeLong() {
    std::promise<void> never;
    never.get_future().wait_for(std::chrono::milliseconds(150));
}

TEST(RunLoop, DispatchBeginsNothingMoreOnceItsTimeIsUp) {
    onFreshThread([](RunLoop &loop) {
        int ran = 0;
        Thread::current()->perform(takeLong);
        for (int i = 0; i < 3; ++i)
            Thread::current()->perform([&ran] { ++ran; });
        EXPECT_EQ(loop.dispatch(-1), 1);
        EXPECT_TRUE(pollsReadable(loop.descriptor(), 0));
        EXPECT_EQ(loop.dispatch(0), 3);
        EXPECT_EQ(ran, 3);
    });
}

TEST(RunLoop, DispatchGoesOnBeginningWorkForTheTimeItMayWait) {
    onFreshThread([](RunLoop &loop) {
        bool ran = false;
        Thread::current()->perform(takeLong);
        Thread::current()->perform([&ran] { ran = true; });
        EXPECT_EQ(loop.dispatch(60000), 2);
        EXPECT_TRUE(ran);
    });
}

TEST(RunLoop, WorkIsLeftInItsOrder) {
    onFreshThread([](RunLoop &loop) {
        std::string order;
        Thread::current()->perform(takeLong);
        Thread::current()->perform([&order] { order += 'a'; });
        Thread::current()->perform([&order] { order += 'b'; });
        EXPECT_EQ(loop.dispatch(0), 1);
        Thread::current()->perform([&order] { order += 'c'; });
        EXPECT_EQ(loop.dispatch(0), 3);
        EXPECT_EQ(order, "abc");
    });
}

TEST(RunLoop, WorkThatIsLeftGoesWithItsThread) {
    const auto left = std::make_shared<int>();
    onFreshThread([&left](RunLoop &loop) {
        Thread::current()->perform(takeLong);
        Thread::current()->perform([left] {});
        EXPECT_EQ(loop.dispatch(0), 1);
        EXPECT_EQ(left.use_count(), 2);
    });
    EXPECT_EQ(left.use_count(), 1);
}

TEST(RunLoop, AnApplicationsOwnSdEventLoopRunsOurSources) {
    onFreshThread([](RunLoop &) {
        sd_event *event = nullptr;
        ASSERT_GE(sd_event_default(&event), 0);
        Thread::current()->perform([event] { sd_event_exit(event, 42); });
        EXPECT_EQ(sd_event_loop(event), 42);
        sd_event_unref(event);
    });
}

TEST(RunLoop, AnApplicationsSourcesOnTheSameLoopAreDispatchedAndCounted) {
    onFreshThread([](RunLoop &loop) {
        loop.dispatch(0);
        sd_event *event = nullptr;
        ASSERT_GE(sd_event_default(&event), 0);
        Pipe pipe;
        sd_event_source *source = nullptr;
        bool called = false;
        const auto callback = [](sd_event_source *, int descriptor, uint32_t, void *context) {
            char byte;
            EXPECT_EQ(::read(descriptor, &byte, 1), 1);
            *static_cast<bool *>(context) = true;
            return 0;
        };
        ASSERT_GE(sd_event_add_io(event, &source, pipe.ends[0], POLLIN, callback, &called), 0);
        ASSERT_EQ(::write(pipe.ends[1], "x", 1), 1);
        EXPECT_EQ(loop.dispatch(1000), 1);
        EXPECT_TRUE(called);
        sd_event_source_unref(source);
        sd_event_unref(event);
    });
}

TEST(RunLoop, WorkPostedBeforeTheLoopExistsRunsOnceItDoes) {
    std::thread([] {
        bool ran = false;
        Thread::current()->perform([&ran] { ran = true; });
        EXPECT_EQ((*RunLoop::current())->dispatch(0), 1);
        EXPECT_TRUE(ran);
    }).join();
}

TEST(RunLoop, OutlivesItsThreadAsAnInertObject) {
    std::shared_ptr<RunLoop> loop;
    std::thread([&loop] { loop = *RunLoop::current(); }).join();
    loop->stop();
    EXPECT_EQ(loop->descriptor(), -1);
    EXPECT_LT(loop->dispatch(0), 0);
    EXPECT_FALSE(loop->addTimer(Seconds(0), Seconds(0), [] {}).ok());
}

} // namespace
} // namespace moxel
