// The running process: its identifier and its source of random numbers.
#pragma once

#include <cstdint>

namespace moxel {

[[nodiscard]] int32_t processIdentifier();

/// Seeds the C library's random-number generator from the system's entropy source.
void reseedRandomNumberGenerator();

} // namespace moxel
