// Confined files: each name is opened relative to the folder before it, and links are refused.
#include "Platform/ConfinedFiles.h"

#include "Platform/Linux/Descriptor.h"
#include "Platform/Linux/FileReading.h"
#include "Platform/Linux/TemporaryFile.h"

#include <cerrno>
#include <optional>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>

namespace moxel {

namespace {

constexpr int folderFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

using Names = std::vector<std::string>;

// Absent when one of them is no name.
std::optional<Names> namesOf(std::string_view relative) {
    Names names;
    for (;;) {
        const std::string_view name = relative.substr(0, relative.find('/'));
        if (!isFileName(name))
            return std::nullopt;
        names.emplace_back(name);
        if (name.size() == relative.size())
            return names;
        relative.remove_prefix(name.size() + 1);
    }
}

Error noPath(const ConfinedPath &path) {
    return {path.relative + " does not name a file below " + path.base, EINVAL};
}

bool isFolder(const std::string &path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

Result<void> makeAllOf(const std::string &path) {
    for (size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
        const std::string folder = path.substr(0, end);
        if (!isFolder(folder) && ::mkdir(folder.c_str(), S_IRWXU) != 0 && errno != EEXIST)
            return systemError("Cannot make " + folder, errno);
        if (end == std::string::npos)
            return {};
    }
}

// Opens the base; makes it and what leads to it when asked to.
Result<Descriptor> openBase(const std::string &base, bool make) {
    if (!base.starts_with('/') || base.find('\0') != std::string::npos)
        return Error{base + " is not an absolute path", EINVAL};
    if (make) {
        if (auto made = makeAllOf(base); !made)
            return made.error();
    }
    Descriptor folder(::open(base.c_str(), folderFlags));
    if (!folder)
        return systemError("Cannot open " + base, errno);
    return folder;
}

// Returns when the new folder is on the disk; succeeds when something has that name already.
Result<void> makeFolderIn(int folder, const char *name) {
    // Some file systems do not sync folders.
    if (::mkdirat(folder, name, S_IRWXU) == 0 ? ::fsync(folder) == 0 || errno == EINVAL : errno == EEXIST)
        return {};
    return Error{std::generic_category().message(errno), errno};
}

// Opens the folder that `count` names lead to; makes those that are missing when asked to.
Result<Descriptor> openFolder(const std::string &base, const Names &names, size_t count, bool make) {
    auto folder = openBase(base, make);
    std::string path = base;
    for (size_t i = 0; folder && i < count; ++i) {
        const char *name = names[i].c_str();
        path += '/' + names[i];
        if (make) {
            if (auto made = makeFolderIn(folder->get(), name); !made)
                return Error{"Cannot make the folder " + path + ": " + made.error().message,
                             made.error().code};
        }
        Descriptor next(::openat(folder->get(), name, folderFlags | O_NOFOLLOW));
        if (!next)
            return systemError("Cannot open the folder " + path, errno);
        folder = std::move(next);
    }
    return folder;
}

// The folder that holds a file, and the file's name in it.
struct Place {
    Descriptor folder;
    std::string name;
};

Result<Place> placeOf(const ConfinedPath &file) {
    auto names = namesOf(file.relative);
    if (!names)
        return noPath(file);
    auto folder = openFolder(file.base, *names, names->size() - 1, false);
    if (!folder)
        return folder.error();
    return Place{std::move(*folder), std::move(names->back())};
}

} // namespace

Result<void> makeFolders(const ConfinedPath &folder) {
    if (folder.relative.empty()) {
        auto base = openBase(folder.base, true);
        return base ? Result<void>() : base.error();
    }
    const auto names = namesOf(folder.relative);
    if (!names)
        return noPath(folder);
    auto opened = openFolder(folder.base, *names, names->size(), true);
    return opened ? Result<void>() : opened.error();
}

Result<void> replaceFile(const ConfinedPath &file, std::span<const uint8_t> bytes) {
    const auto place = placeOf(file);
    if (!place)
        return place.error();
    auto temporary = TemporaryFile::create(place->folder.get());
    if (!temporary)
        return temporary.error();
    if (auto written = temporary->write(bytes); !written)
        return written;
    return temporary->renameTo(place->name);
}

Result<void> createEmptyFile(const ConfinedPath &file) {
    const auto place = placeOf(file);
    if (!place)
        return place.error();
    constexpr mode_t newFileMode = S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH;
    const Descriptor created(::openat(place->folder.get(), place->name.c_str(),
                                      O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, newFileMode));
    if (!created && errno != EEXIST)
        return systemError("Cannot make " + place->name, errno);
    return {};
}

Result<std::vector<uint8_t>> readFile(const ConfinedPath &file, size_t limit) {
    const auto place = placeOf(file);
    if (!place)
        return place.error();
    const Descriptor opened(::openat(place->folder.get(), place->name.c_str(),
                                     O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!opened)
        return systemError("Cannot open " + place->name, errno);
    return readOpenFile(opened.get(), place->name, limit);
}

} // namespace moxel
