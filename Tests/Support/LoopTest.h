// A session whose events come through an event loop that is not the library's.
#pragma once

#include "Support/LiveDaemon.h"
#include <Moxel/MoxelRunLoop.h>

#include <functional>
#include <poll.h>

namespace moxel::test {

/// Starts with a daemon and without a session; the test's thread is the application's.
class LoopTest : public LiveDaemonTest {
  protected:
    static constexpr int patienceMilliseconds = 30'000;

    void SetUp() override {
        LiveDaemonTest::SetUp();
        startDaemon();
    }

    /// Begins a session whose run loop has nothing to do yet.
    static void beginSession() {
        LiveDaemonTest::beginSession();
        while (MoxelRunLoopDispatch(0) > 0) {
        }
    }
    /// The daemon sends an event that is never dropped.
    void pressButton() const {
        MoxelStateRecord record{};
        record.command = 10;
        ASSERT_GE(moxeld->sendState(daemon::Daemon::allClients, record), 1U);
    }
    /// What happens on the application's thread when an event comes.
    static void whenAnEventComes(std::function<void()> action) {
        HandlerRecorder::instance().setOnCall(
            [action = std::move(action)](const ReceivedCall &) { action(); });
    }
    /// Waits until the calling thread's run loop has something to do.
    [[nodiscard]] static bool awaitEvent() {
        pollfd descriptor{MoxelRunLoopGetFD(), POLLIN, 0};
        return ::poll(&descriptor, 1, patienceMilliseconds) == 1;
    }
    static void expectEventsOnThisThread(size_t count) {
        const std::vector<ReceivedCall> calls = HandlerRecorder::instance().calls();
        EXPECT_EQ(calls.size(), count);
        for (const ReceivedCall &call : calls)
            EXPECT_EQ(call.thread, Thread::current()->identifier());
    }
};

} // namespace moxel::test
