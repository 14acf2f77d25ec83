// Temporary files: names that are used again, and locks that tell a leftover from a file in use.
#include "Platform/Linux/TemporaryFile.h"

#include <cerrno>
#include <utility>

#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

namespace moxel {

namespace {

// As many writers can work in one folder at a time.
constexpr int nameCount = 64;

std::string temporaryName(int number) { return ".moxel-" + std::to_string(number) + ".tmp"; }

bool tryLock(int descriptor) { return ::flock(descriptor, LOCK_EX | LOCK_NB) == 0; }

// False when a process that takes the file for a leftover is about to remove it, or already has. Where the
// file system knows no locks, nobody removes leftovers.
bool claim(int descriptor) {
    if (!tryLock(descriptor) && errno == EWOULDBLOCK)
        return false;
    struct stat status {};
    return ::fstat(descriptor, &status) == 0 && status.st_nlink > 0;
}

bool isSameFile(int descriptor, int folder, const char *name) {
    struct stat opened {};
    struct stat named {};
    return ::fstat(descriptor, &opened) == 0 && ::fstatat(folder, name, &named, AT_SYMLINK_NOFOLLOW) == 0 &&
           opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

// True when the name is worth another attempt: what stood there has gone.
bool removeLeftover(int folder, const char *name) {
    const Descriptor leftover(::openat(folder, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!leftover)
        return errno == ENOENT || (errno == ELOOP && ::unlinkat(folder, name, 0) == 0);
    if (!tryLock(leftover.get()))
        return false;
    return !isSameFile(leftover.get(), folder, name) || ::unlinkat(folder, name, 0) == 0;
}

} // namespace

Result<TemporaryFile> TemporaryFile::create(int folder) {
    constexpr int attempts = 4;
    for (int number = 0; number < nameCount; ++number) {
        const std::string name = temporaryName(number);
        for (int attempt = 0; attempt < attempts; ++attempt) {
            Descriptor file(
                ::openat(folder, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
            if (!file && errno != EEXIST)
                return systemError("Cannot make a temporary file", errno);
            if (!file) {
                if (!removeLeftover(folder, name.c_str()))
                    break;
            } else if (claim(file.get())) {
                TemporaryFile result(folder, name, std::move(file));
                if (::fchmod(result.descriptor_.get(), S_IRUSR | S_IWUSR) != 0)
                    return systemError("Cannot give a temporary file its mode", errno);
                return result;
            }
        }
    }
    return Error{"Cannot make a temporary file: all its names are in use"};
}

TemporaryFile::~TemporaryFile() {
    if (!name_.empty())
        ::unlinkat(folder_, name_.c_str(), 0);
}

TemporaryFile::TemporaryFile(TemporaryFile &&other) noexcept
    : folder_(other.folder_),
      name_(std::exchange(other.name_, {})),
      descriptor_(std::move(other.descriptor_)) {}

Result<void> TemporaryFile::write(std::span<const uint8_t> bytes) const {
    while (!bytes.empty()) {
        const ssize_t written = ::write(descriptor_.get(), bytes.data(), bytes.size());
        if (written >= 0)
            bytes = bytes.subspan(static_cast<size_t>(written));
        else if (errno != EINTR)
            return systemError("Cannot write", errno);
    }
    if (::fsync(descriptor_.get()) != 0)
        return systemError("Cannot write to the disk", errno);
    return {};
}

Result<void> TemporaryFile::renameTo(const std::string &name) {
    if (::renameat(folder_, name_.c_str(), folder_, name.c_str()) != 0)
        return systemError("Cannot replace " + name, errno);
    name_.clear();
    if (::fsync(folder_) != 0 && errno != EINVAL) // Some file systems have no such thing for folders.
        return systemError("Cannot write the folder to the disk", errno);
    return {};
}

} // namespace moxel
