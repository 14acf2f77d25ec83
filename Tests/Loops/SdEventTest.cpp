// An application that runs the thread's default sd-event loop, and never calls the library's run loop.
#include "Support/LoopTest.h"

#include <systemd/sd-event.h>

namespace moxel::test {
namespace {

using SdEventLoop = LoopTest;

TEST_F(SdEventLoop, DeliversAnEventOnTheApplicationsThread) {
    constexpr uint64_t microsecondsOfPatience = uint64_t{patienceMilliseconds} * 1000;
    beginSession();
    sd_event *loop = nullptr;
    ASSERT_GE(sd_event_default(&loop), 0);
    bool running = true;
    whenAnEventComes([&running] { running = false; });
    pressButton();
    while (running && sd_event_run(loop, microsecondsOfPatience) > 0) {
    }
    expectEventsOnThisThread(1);
    sd_event_unref(loop);
}

} // namespace
} // namespace moxel::test
