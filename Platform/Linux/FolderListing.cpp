// Directory reading.
#include "Platform/Linux/FolderListing.h"

#include "Platform/Linux/FolderStream.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>

namespace moxel {

namespace {

// `path` is relative to the folder.
std::optional<FileState> readFileStateAt(int folder, const char *path) {
    struct stat status {};
    if (::fstatat(folder, path, &status, AT_SYMLINK_NOFOLLOW) != 0)
        return std::nullopt;
    FileState state;
    state.device = status.st_dev;
    state.inode = status.st_ino;
    state.size = status.st_size;
    state.modificationTime = int64_t{status.st_mtim.tv_sec} * 1'000'000'000 + status.st_mtim.tv_nsec;
    state.isFolder = S_ISDIR(status.st_mode);
    return state;
}

FolderStream openFolder(const std::string &path, FolderLink link) {
    const int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | (link == FolderLink::notFollowed ? O_NOFOLLOW : 0);
    return readEntriesOf(Descriptor(::open(path.c_str(), flags)));
}

} // namespace

std::optional<FileState> readFileState(const std::string &path) {
    return readFileStateAt(AT_FDCWD, path.c_str());
}

FolderListing listFolder(const std::string &path, FolderLink link, size_t limit) {
    FolderListing listing;
    const auto folder = openFolder(path, link);
    if (!folder) {
        listing.isComplete = false;
        listing.error = errno;
        return listing;
    }
    // The stream is this thread's own.
    while (const dirent *entry = ::readdir(folder.get())) { // NOLINT(concurrency-mt-unsafe)
        const std::string_view name = entry->d_name;
        if (name == "." || name == "..")
            continue;
        if (listing.entries.size() >= limit) {
            listing.isComplete = false;
            break;
        }
        if (const auto state = readFileStateAt(::dirfd(folder.get()), entry->d_name))
            listing.entries.emplace(name, *state);
    }
    return listing;
}

std::string childPath(const std::string &folder, std::string_view name) {
    std::string path = folder;
    if (!path.ends_with('/'))
        path += '/';
    path += name;
    return path;
}

} // namespace moxel
