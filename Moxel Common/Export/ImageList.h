// An application's image list as a dictionary.
#pragma once

#include "Platform/Result.h"
#include "Values/Value.h"
#include <Moxel/MoxelClient.h>

#include <span>

namespace moxel {

/// One entry for each image under its identifier. Image bytes are written to files of the folder, or stand in
/// the entries when the folder is null. An error, and no file written, when an image has no identifier, when
/// a file image has no path, or when an identifier cannot be the name of a file that is to be written.
[[nodiscard]] Result<MutableDictionary> convertImageList(std::span<const MoxelImage_s> images,
                                                         const String &folder);

} // namespace moxel
