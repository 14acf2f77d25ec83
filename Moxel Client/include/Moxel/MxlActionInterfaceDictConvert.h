// Turns the action trees and image lists of applications into the dictionaries of their export files.
#pragma once

#include "MoxelBase.h"
#include "MoxelClient.h"
#include "Platform/Result.h"
#include "Values/Value.h"

#include <cstddef>
#include <memory>
#include <mutex>

namespace moxel {

/// The process has one converter. Any thread; trees, images and target dictionaries must not change during a
/// call. A call that fails leaves its target as it was, has written no file and has logged nothing: the
/// caller reports the error.
class MOXEL_EXPORT MxlActionInterfaceDictConvert
    : public std::enable_shared_from_this<MxlActionInterfaceDictConvert> {
  public:
    /// A shared reference to the converter.
    using Shared = std::shared_ptr<MxlActionInterfaceDictConvert>;

    /// +[MxlActionInterfaceDictConvert sharedDefaultDictionaries]
    /// The converter; never null.
    [[nodiscard]] static Shared sharedDefaultDictionaries();
    /// +[MxlActionInterfaceDictConvert alloc]
    /// Logs that sharedDefaultDictionaries() is the way, and yields null.
    static Shared alloc();
    /// +[MxlActionInterfaceDictConvert new]
    /// Like alloc().
    static Shared newInstance();
    /// -[MxlActionInterfaceDictConvert copyWithZone:]
    /// The converter itself.
    [[nodiscard]] Shared copyWithZone();
    /// -[MxlActionInterfaceDictConvert mutableCopyWithZone:]
    /// The converter itself.
    [[nodiscard]] Shared mutableCopyWithZone();
    MxlActionInterfaceDictConvert(const MxlActionInterfaceDictConvert &) = delete;
    MxlActionInterfaceDictConvert &operator=(const MxlActionInterfaceDictConvert &) = delete;

    /// -[MxlActionInterfaceDictConvert init]
    /// Forgets the image folder.
    Shared init();

    // Text is decoded as UTF-8, with U+FFFD for whatever is ill-formed. A node or image without an identifier
    // is an error, as is a tree that holds itself or more than 4,194,304 nodes.

    /// -[MxlActionInterfaceDictConvert genCommandsDict:fromList:]
    /// Stores the dictionary of a tree under "Commands", in place of what was there.
    [[nodiscard]] Result<void> genCommandsDict(MutableDictionary target,
                                               const MoxelCommandSyncNode_s *fromList) const;
    /// -[MxlActionInterfaceDictConvert treeWalk:withDictionary:]
    /// Adds one entry to the dictionary for each node of a list, children within the entries of their sets
    /// and categories. Of siblings with one identifier the last counts. Where a child is called "id",
    /// "label", "description" or "type", the category's own attribute wins over it, and it wins over the
    /// set's.
    [[nodiscard]] Result<void> treeWalk(const MoxelCommandSyncNode_s *list,
                                        MutableDictionary withDictionary) const;

    /// -[MxlActionInterfaceDictConvert genImagesDict:fromArray:withCount:atFilePath:]
    /// Like the next one, after choosing the folder "imagedata" in the export folder at `atFilePath` for
    /// image bytes, for this and all later calls. The folder must exist.
    [[nodiscard]] Result<void> genImagesDict(MutableDictionary target, const MoxelImage_s *fromArray,
                                             size_t withCount, const String &atFilePath);
    /// -[MxlActionInterfaceDictConvert genImagesDict:fromArray:withCount:]
    /// Merges one entry for each image into the dictionary under "Images"; of equal identifiers the last
    /// counts. Image bytes go into files of the image folder named after the identifiers, which must then be
    /// usable as file names; without such a folder they stand in the entries. A file that cannot be written
    /// is logged and no failure.
    [[nodiscard]] Result<void> genImagesDict(MutableDictionary target, const MoxelImage_s *fromArray,
                                             size_t withCount) const;

  private:
    MxlActionInterfaceDictConvert() = default;
    [[nodiscard]] static Shared allocPrivately();

    mutable std::mutex mutex_; ///< Guards the member below.
    String m_strBaseImageFolder_;
};

} // namespace moxel
