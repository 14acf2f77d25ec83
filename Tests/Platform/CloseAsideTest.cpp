// Descriptors are closed where nobody waits for it.
#include "Platform/Linux/CloseAside.h"
#include "Support/Await.h"
#include "Support/SlowToClose.h"

#include <gtest/gtest.h>

#include <future>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <thread>

namespace moxel {
namespace {

using namespace std::chrono_literals;

TEST(CloseAside, WaitsForNothing) {
    test::SlowToClose slow;
    std::promise<std::thread::id> closed;
    std::future<std::thread::id> end = closed.get_future();
    closeAside(slow.take(), [&closed] { closed.set_value(std::this_thread::get_id()); });
    EXPECT_EQ(end.wait_for(0s), std::future_status::timeout) << "it is being closed";
    slow.release();
    ASSERT_EQ(end.wait_for(test::patience), std::future_status::ready);
    EXPECT_NE(end.get(), std::this_thread::get_id());
}

TEST(CloseAside, TellsWhenTheDescriptorIsClosed) {
    int ends[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    const Descriptor other(ends[1]);
    std::promise<bool> told;
    closeAside(Descriptor(ends[0]), [&] {
        pollfd state{other.get(), 0, 0};
        told.set_value(::poll(&state, 1, 0) > 0 && (state.revents & POLLHUP) != 0);
    });
    std::future<bool> wasClosed = told.get_future();
    ASSERT_EQ(wasClosed.wait_for(test::patience), std::future_status::ready);
    EXPECT_TRUE(wasClosed.get());
}

TEST(CloseAside, ClosesWithoutAWord) {
    int ends[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    const Descriptor other(ends[1]);
    closeAside(Descriptor(ends[0]));
    pollfd state{other.get(), 0, 0};
    EXPECT_GT(::poll(&state, 1, static_cast<int>(std::chrono::milliseconds(test::patience).count())), 0);
    EXPECT_NE(state.revents & POLLHUP, 0);
}

TEST(CloseAside, OutlivesAFailureOfWhatFollows) {
    std::promise<void> told;
    closeAside(Descriptor(::dup(0)), [&told] {
        told.set_value();
        throw std::runtime_error("no memory");
    });
    EXPECT_EQ(told.get_future().wait_for(test::patience), std::future_status::ready);
}

} // namespace
} // namespace moxel
