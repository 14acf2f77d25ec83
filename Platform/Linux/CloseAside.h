// Closes descriptors whose closing may block.
#pragma once

#include "Platform/Linux/Descriptor.h"

#include <functional>

namespace moxel {

/// Closes the descriptor on a thread of its own and waits for nothing; `then` runs there afterwards. Where no
/// thread can be had, both happen before this returns. Any thread.
void closeAside(Descriptor descriptor, std::function<void()> then = {}) noexcept;

} // namespace moxel
