// Copies of whole trees in which every container can be changed.
#pragma once

#include "../Platform/Export.h"
#include "../Platform/Result.h"
#include "Value.h"

namespace moxel {

/// A copy in which every dictionary and array, at every depth, is a new mutable one; leaves and keys are
/// shared. An error when the tree holds itself, or when its shared containers would expand beyond all
/// measure.
[[nodiscard]] MOXEL_EXPORT Result<Value> deepMutableCopy(const Value &value);

} // namespace moxel
