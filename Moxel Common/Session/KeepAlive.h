// Keeps a run loop running while nothing but posted work is expected.
#pragma once

#include "Platform/RunLoop.h"

namespace moxel {

inline constexpr RunLoop::Seconds keepAliveInterval{0.1};

/// Callback of the keep-alive timers: being due is all that they are for.
inline void RunLoopSourceTimerHandler() {}

} // namespace moxel
