// Writes the binary property-list container.
#pragma once

#include "Moxel Daemon/Archive/PropertyListTable.h"
#include "Platform/Result.h"

namespace moxel::daemon {

/// Writes the objects in the table's order. Fails on strings that are not UTF-8 and on references out of the
/// table.
[[nodiscard]] Result<Data> writeBinaryPropertyList(const PropertyListTable &table);

} // namespace moxel::daemon
