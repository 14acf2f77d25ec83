// JSON as a value.
#pragma once

#include "Platform/Result.h"
#include "Values/Value.h"

#include <cstdint>
#include <span>

namespace moxel::tool {

/// Nesting beyond 64 levels and numbers beyond 64 bits are errors. Of two values under one key the last
/// counts.
[[nodiscard]] Result<Value> valueFromJson(std::span<const uint8_t> content);

} // namespace moxel::tool
