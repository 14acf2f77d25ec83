// Writes a plain value as a keyed archive.
#pragma once

#include "Moxel Daemon/Archive/Value.h"
#include "Platform/Result.h"

namespace moxel::daemon {

/// Equal strings, numbers, booleans and data are archived once. Fails on strings that are not UTF-8 and on
/// nesting beyond Value::depthLimit.
[[nodiscard]] Result<Data> writeKeyedArchive(const Value &root);

} // namespace moxel::daemon
