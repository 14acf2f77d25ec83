// What is left of the time that something may take.
#pragma once

#include <chrono>
#include <cstdint>

namespace moxel {

/// In microseconds, as sd-bus counts; 0 once it is over. Any thread.
inline uint64_t microsecondsUntil(std::chrono::steady_clock::time_point deadline) {
    const auto left = deadline - std::chrono::steady_clock::now();
    const auto microseconds = std::chrono::duration_cast<std::chrono::microseconds>(left).count();
    return microseconds > 0 ? static_cast<uint64_t>(microseconds) : 0;
}

} // namespace moxel
