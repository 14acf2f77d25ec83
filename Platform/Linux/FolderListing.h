// What a folder holds at one moment.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace moxel {

/// What tells one state of a file from another.
struct FileState {
    dev_t device = 0;
    ino_t inode = 0;
    int64_t size = 0;
    int64_t modificationTime = 0; ///< Nanoseconds.
    bool isFolder = false;

    [[nodiscard]] bool isSameFile(const FileState &other) const {
        return device == other.device && inode == other.inode && isFolder == other.isFolder;
    }
    [[nodiscard]] bool hasSameContent(const FileState &other) const {
        return size == other.size && modificationTime == other.modificationTime;
    }
};

/// Absent when there is no such file. Symbolic links are not followed.
[[nodiscard]] std::optional<FileState> readFileState(const std::string &path);

struct FolderListing {
    std::map<std::string, FileState, std::less<>> entries;
    bool isComplete = true; ///< False when the folder holds more than was asked for, or could not be read.
    int error = 0;          ///< errno value when it could not be read.
};

enum class FolderLink : bool { notFollowed, followed };

/// Lists at most `limit` entries. Any thread.
[[nodiscard]] FolderListing listFolder(const std::string &path, FolderLink link, size_t limit);

/// FOLDER/NAME, with no second slash when the folder ends with one.
[[nodiscard]] std::string childPath(const std::string &folder, std::string_view name);

} // namespace moxel
