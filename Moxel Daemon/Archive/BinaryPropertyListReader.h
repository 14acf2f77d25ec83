// Reads the binary property-list container: every object once, none trusted.
#pragma once

#include "Moxel Daemon/Archive/PropertyListTable.h"
#include "Platform/Result.h"

#include <cstdint>
#include <span>

namespace moxel::daemon {

/// Decodes the whole container without following a reference, so that neither cycles nor shared containers
/// cost anything here. Memory stays in proportion to the input: objects that overlap are refused.
/// The table's references are all in range; keys of dictionaries are strings, each once.
[[nodiscard]] Result<PropertyListTable> readBinaryPropertyList(std::span<const uint8_t> bytes);

} // namespace moxel::daemon
