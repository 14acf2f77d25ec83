#include "EventLoop.h"

#include "Output.h"
#include <Moxel/MoxelRunLoop.h>

#include <algorithm>
#include <cmath>
#include <poll.h>
#include <unistd.h>

namespace moxel::tool {

namespace {

/// The sooner of two poll() timeouts; negative is never.
int sooner(int first, int second) {
    return first < 0 || second < 0 ? std::max(first, second) : std::min(first, second);
}

} // namespace

EventLoop::End EventLoop::run(const Limits &limits) {
    const auto began = Clock::now();
    const auto millisecondsLeft = [&] {
        if (!limits.seconds)
            return -1;
        const double left = *limits.seconds - std::chrono::duration<double>(Clock::now() - began).count();
        return static_cast<int>(std::ceil(std::clamp(left * 1000, 0.0, 3'600'000.0)));
    };
    for (;;) {
        const int frame = limits.refresh ? limits.refresh() : -1;
        if (limits.endsWithOutput)
            isOutputClosed_ = isOutputClosed_ || !flushOutput();
        const int left = millisecondsLeft();
        if (limits.isDone && limits.isDone())
            return End::done;
        if (isStopped_)
            return End::stopped;
        if (isOutputClosed_)
            return End::outputClosed;
        if (presence_.hasLeft())
            return End::driverLeft;
        if (left == 0)
            return End::timeIsUp;
        takeTurn(limits, sooner(left, frame));
    }
}

void EventLoop::takeTurn(const Limits &limits, int milliseconds) {
    pollfd descriptors[] = {{MoxelRunLoopGetFD(), POLLIN, 0},
                            {stopSignal_.descriptor(), POLLIN, 0},
                            {limits.endsWithOutput ? STDOUT_FILENO : -1, 0, 0}};
    if (::poll(descriptors, 3, milliseconds) < 0)
        return; // Interrupted; the signal's descriptor tells by which signal.
    isStopped_ = descriptors[1].revents != 0;
    isOutputClosed_ = (descriptors[2].revents & (POLLERR | POLLHUP | POLLNVAL)) != 0;
    MoxelRunLoopDispatch(0);
}

} // namespace moxel::tool
