// The file of a device at one moment: which file it is, and since when it is as it is.
#pragma once

#include <optional>
#include <string>
#include <sys/stat.h>

namespace moxel::daemon {

struct DeviceFile {
    std::string path;
    dev_t device = 0;
    ino_t inode = 0;
    timespec changed{}; ///< Last change of the file's rights or owner.

    /// The file that a path leads to; absent when there is none.
    [[nodiscard]] static std::optional<DeviceFile> at(const std::string &path) {
        struct stat status {};
        if (::stat(path.c_str(), &status) != 0)
            return std::nullopt;
        return DeviceFile{path, status.st_dev, status.st_ino, status.st_ctim};
    }

    /// The file that is open under a path, whatever the path leads to by now.
    [[nodiscard]] static std::optional<DeviceFile> of(const std::string &path, int descriptor) {
        struct stat status {};
        if (::fstat(descriptor, &status) != 0)
            return std::nullopt;
        return DeviceFile{path, status.st_dev, status.st_ino, status.st_ctim};
    }

    [[nodiscard]] bool isSameFileAs(const DeviceFile &other) const noexcept {
        return device == other.device && inode == other.inode;
    }
    /// The same file, and nothing has happened to it.
    [[nodiscard]] bool isUnchangedFrom(const DeviceFile &other) const noexcept {
        return isSameFileAs(other) && changed.tv_sec == other.changed.tv_sec &&
               changed.tv_nsec == other.changed.tv_nsec;
    }
};

} // namespace moxel::daemon
