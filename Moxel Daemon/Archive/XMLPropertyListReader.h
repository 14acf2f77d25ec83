// Reads the XML form of property lists.
#pragma once

#include "Moxel Daemon/Archive/Value.h"
#include "Platform/Result.h"

#include <cstdint>
#include <span>

namespace moxel::daemon {

/// Total: any bytes give a value or an error that names the line. Entities of the document's own and nesting
/// beyond Value::depthLimit are errors; of two values under one key the last counts. A date is a Record of
/// the class NSDate, as in archives.
[[nodiscard]] Result<Value> readXMLPropertyList(std::span<const uint8_t> bytes);

} // namespace moxel::daemon
