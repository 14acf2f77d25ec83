// An application with libuv's event loop.
#include "Support/LoopTest.h"

#include <uv.h>

namespace moxel::test {
namespace {

using LibuvLoop = LoopTest;

TEST_F(LibuvLoop, DeliversAnEventOnTheApplicationsThread) {
    beginSession();
    uv_loop_t loop{};
    ASSERT_EQ(uv_loop_init(&loop), 0);
    uv_poll_t events{};
    ASSERT_EQ(uv_poll_init(&loop, &events, MoxelRunLoopGetFD()), 0);
    uv_poll_start(&events, UV_READABLE, [](uv_poll_t *, int, int) { MoxelRunLoopDispatch(0); });
    uv_timer_t deadline{};
    uv_timer_init(&loop, &deadline);
    uv_timer_start(
        &deadline, [](uv_timer_t *timer) { uv_stop(timer->loop); }, patienceMilliseconds, 0);
    whenAnEventComes([&loop] { uv_stop(&loop); });
    pressButton();
    uv_run(&loop, UV_RUN_DEFAULT);
    expectEventsOnThisThread(1);
    uv_close(reinterpret_cast<uv_handle_t *>(&events), nullptr);
    uv_close(reinterpret_cast<uv_handle_t *>(&deadline), nullptr);
    uv_run(&loop, UV_RUN_DEFAULT);
    EXPECT_EQ(uv_loop_close(&loop), 0);
}

} // namespace
} // namespace moxel::test
