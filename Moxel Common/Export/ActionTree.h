// An application's action tree as a dictionary.
#pragma once

#include "Platform/Result.h"
#include "Values/Value.h"
#include <Moxel/MoxelClient.h>

namespace moxel {

/// Whether a list and everything below it can be converted: every node has an identifier, and there is an
/// end to them.
[[nodiscard]] Result<void> checkActionTree(const MoxelCommandSyncNode_s *list);

/// Adds one entry to the dictionary for each node of a checked list.
void addActionTree(const MoxelCommandSyncNode_s *list, MutableDictionary dictionary);

} // namespace moxel
