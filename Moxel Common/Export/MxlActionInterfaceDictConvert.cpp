#include <Moxel/MxlActionInterfaceDictConvert.h>

#include "Export/ActionTree.h"
#include "Export/ImageList.h"
#include "Helpers/Logging.h"
#include <Moxel/MoxelKeys.h>

#include <cstdint>
#include <span>
#include <utility>

namespace moxel {

namespace {

Result<void> mergeImages(MutableDictionary &target, const MoxelImage_s *array, size_t count,
                         const String &folder) {
    if (count > 0 && (!array || count > PTRDIFF_MAX / sizeof(MoxelImage_s)))
        return Error{"There is no such image list"};
    Result<MutableDictionary> added = convertImageList({array, count}, folder);
    if (!added)
        return added.error();
    // What was read from a file is not mutable, and may be anything.
    MutableDictionary images = target[kMxKeyAppImages].asDictionary().mutableCopy();
    if (images)
        images.addEntries(*added);
    target.set(kMxKeyAppImages, images ? images : *added);
    return {};
}

} // namespace

MxlActionInterfaceDictConvert::Shared MxlActionInterfaceDictConvert::sharedDefaultDictionaries() {
    static const Shared &shared = *new Shared(allocPrivately()->init()); // Lives as long as the process.
    return shared;
}

MxlActionInterfaceDictConvert::Shared MxlActionInterfaceDictConvert::allocPrivately() {
    return Shared(new MxlActionInterfaceDictConvert);
}

MxlActionInterfaceDictConvert::Shared MxlActionInterfaceDictConvert::alloc() {
    logError("%@ : Use +sharedInstance instead of +alloc", "MxlActionInterfaceDictConvert");
    return nullptr;
}

MxlActionInterfaceDictConvert::Shared MxlActionInterfaceDictConvert::newInstance() { return alloc(); }

MxlActionInterfaceDictConvert::Shared MxlActionInterfaceDictConvert::copyWithZone() {
    return shared_from_this();
}

MxlActionInterfaceDictConvert::Shared MxlActionInterfaceDictConvert::mutableCopyWithZone() {
    return copyWithZone();
}

MxlActionInterfaceDictConvert::Shared MxlActionInterfaceDictConvert::init() {
    const std::lock_guard lock(mutex_);
    m_strBaseImageFolder_ = nullptr;
    return shared_from_this();
}

Result<void> MxlActionInterfaceDictConvert::genCommandsDict(MutableDictionary target,
                                                            const MoxelCommandSyncNode_s *fromList) const {
    const MutableDictionary commands = MutableDictionary::withCapacity(0);
    Result<void> walked = treeWalk(fromList, commands);
    if (walked)
        target.set(kMxKeyAppCommands, commands);
    return walked;
}

Result<void> MxlActionInterfaceDictConvert::treeWalk(const MoxelCommandSyncNode_s *list,
                                                     MutableDictionary withDictionary) const {
    if (!list || !withDictionary)
        return {};
    Result<void> checked = checkActionTree(list);
    if (checked)
        addActionTree(list, std::move(withDictionary));
    return checked;
}

Result<void> MxlActionInterfaceDictConvert::genImagesDict(MutableDictionary target,
                                                          const MoxelImage_s *fromArray, size_t withCount,
                                                          const String &atFilePath) {
    if (!atFilePath)
        return Error{"There is no export folder for images"};
    const String folder = format("%@/%s", atFilePath, kStrImageDataSubfolder);
    {
        const std::lock_guard lock(mutex_);
        m_strBaseImageFolder_ = folder;
    }
    return mergeImages(target, fromArray, withCount, folder);
}

Result<void> MxlActionInterfaceDictConvert::genImagesDict(MutableDictionary target,
                                                          const MoxelImage_s *fromArray,
                                                          size_t withCount) const {
    String folder;
    {
        const std::lock_guard lock(mutex_);
        folder = m_strBaseImageFolder_;
    }
    return mergeImages(target, fromArray, withCount, folder);
}

} // namespace moxel
