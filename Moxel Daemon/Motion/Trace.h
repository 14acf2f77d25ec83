// A trace: what happens to a device and to the driver over some seconds.
#pragma once

#include "Moxel Daemon/Archive/Value.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <variant>
#include <vector>

namespace moxel::daemon {

/// The deflection of an axis that devices report at their stops: the axis values' unit.
inline constexpr double fullDeflection = 350;

struct MotionEvent {
    std::array<int16_t, 6> axis{}; ///< Translation x, y, z, then rotation x, y, z.
};
struct ButtonsEvent {
    uint32_t buttons = 0; ///< One bit a button.
};
struct ApplicationEvent {
    int16_t identifier = 0;
    bool isPressed = false;
    int32_t value = 0;
};
/// A message goes to all clients.
struct MessageEvent {
    Dictionary message;
};
/// The daemon asks its clients for something.
enum class AskEvent { toRegisterAgain, forStoredData };
struct PauseEvent {};

using TraceEvent =
    std::variant<MotionEvent, ButtonsEvent, ApplicationEvent, MessageEvent, AskEvent, PauseEvent>;

struct TraceBlock;

struct TraceRepeat {
    uint32_t count = 1; ///< 0 repeats for ever.
    std::shared_ptr<const TraceBlock> block;
};

struct TraceStep {
    std::chrono::nanoseconds at{0}; ///< Since the start of the block that the step stands in.
    std::variant<TraceEvent, TraceRepeat> what;
};

/// Steps in the order of their times. Blocks that are repeated for ever last longer than zero.
struct TraceBlock {
    std::vector<TraceStep> steps;
    std::chrono::nanoseconds duration{0};
};

} // namespace moxel::daemon
