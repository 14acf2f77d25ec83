#include <Moxel/CFileObserverInfo.h>

#include "Values/Format.h"

namespace moxel {

String CFileObserverInfo::fileName() const {
    const std::lock_guard lock(mutex_);
    return fileName_;
}

void CFileObserverInfo::setFileName(const String &name) {
    const std::lock_guard lock(mutex_);
    fileName_ = name;
}

String CFileObserverInfo::folderName() const {
    const std::lock_guard lock(mutex_);
    return folderName_;
}

void CFileObserverInfo::setFolderName(const String &name) {
    const std::lock_guard lock(mutex_);
    folderName_ = name;
}

std::string CFileObserverInfo::description() const {
    return format("<CFileObserverInfo: %p>", static_cast<const void *>(this));
}

} // namespace moxel
