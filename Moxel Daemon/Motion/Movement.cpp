#include "Moxel Daemon/Motion/Movement.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace moxel::daemon {

std::array<int16_t, 6> movementAt(double seconds) {
    constexpr std::array<double, 6> wavelengths{2, 3, 5, 7, 11, 13};
    std::array<int16_t, 6> axis{};
    for (size_t index = 0; index < axis.size(); ++index)
        axis[index] = static_cast<int16_t>(
            std::lround(fullDeflection * std::sin(2 * std::numbers::pi * seconds / wavelengths[index])));
    return axis;
}

Result<void> Movement::start(double rate) {
    start_ = std::chrono::steady_clock::now();
    const RunLoop::Seconds interval(1 / std::clamp(rate, 1 / highestRate, highestRate));
    Result<RunLoopSource> timer = runLoop_.addTimer(interval, interval, [this] { move(); });
    if (!timer.ok())
        return timer.error();
    timer_ = std::move(*timer);
    return {};
}

void Movement::move() {
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start_;
    sink_.happen(MotionEvent{movementAt(passed.count())});
}

} // namespace moxel::daemon
