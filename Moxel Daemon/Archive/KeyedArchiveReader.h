// Reads a keyed archive, which came from a client, into a plain value.
#pragma once

#include "Moxel Daemon/Archive/Value.h"
#include "Platform/Result.h"

#include <cstdint>
#include <span>

namespace moxel::daemon {

/// The archive's root object. Dictionaries must have string keys. An object of a class that is no container,
/// string or data becomes a Record; a reference cycle, nesting beyond Value::depthLimit, and shared objects
/// that would expand to more than a few megabytes are errors.
[[nodiscard]] Result<Value> readKeyedArchive(std::span<const uint8_t> bytes);

} // namespace moxel::daemon
