#include "Platform/Linux/BusSocket.h"

#include "Platform/Linux/HIDBusWire.h"
#include "Platform/LogText.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <utility>

namespace moxel {

namespace {

bool isNameCharacter(char character) noexcept {
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
           (character >= '0' && character <= '9') || character == '.' || character == '_' || character == '-';
}

int connectTo(int descriptor, const sockaddr_un &address) noexcept {
    return ::connect(descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 ? 0
                                                                                                    : errno;
}

} // namespace

FileIdentity identityOf(const struct stat &status) noexcept {
    return {static_cast<uint64_t>(status.st_dev), static_cast<uint64_t>(status.st_ino)};
}

bool BusSocket::isDeviceName(std::string_view fileName) noexcept {
    return fileName.size() > hidbus::socketSuffix.size() && fileName.ends_with(hidbus::socketSuffix) &&
           fileName.front() != '.' && std::ranges::all_of(fileName, isNameCharacter);
}

BusSocket::BusSocket(Descriptor file, FileIdentity identity, std::string path)
    : file_(std::move(file)), identity_(identity), path_(std::move(path)) {}

Result<BusSocket> BusSocket::open(int folder, const std::string &folderPath, const std::string &name) {
    std::string path = folderPath + "/" + name;
    Descriptor file(::openat(folder, name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat status;
    if (!file || ::fstat(file.get(), &status) != 0)
        return systemError(printableText(path), errno);
    if (!S_ISSOCK(status.st_mode))
        return systemError(printableText(path), ENOTSOCK);
    return BusSocket(std::move(file), identityOf(status), std::move(path));
}

int BusSocket::connect(int descriptor) const noexcept {
    // The descriptor's own name leads to the very file that it holds; and it is never too long for an
    // address, as the path may be.
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "/proc/thread-self/fd/%d", file_.get());
    const int error = connectTo(descriptor, address);
    return error == ENOENT ? connectByPath(descriptor) : error;
}

int BusSocket::connectByPath(int descriptor) const noexcept {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path_.size() >= sizeof address.sun_path)
        return ENAMETOOLONG;
    std::memcpy(address.sun_path, path_.data(), path_.size());
    // Inode numbers are not used again while file_ holds this one, so the same number is the same file.
    if (!isAtPath())
        return ENOENT;
    if (const int error = connectTo(descriptor, address); error != 0)
        return error;
    return isAtPath() ? 0 : ENOENT;
}

bool BusSocket::isAtPath() const noexcept {
    struct stat status;
    return ::lstat(path_.c_str(), &status) == 0 && identityOf(status) == identity_;
}

Result<void> checkPublisher(int descriptor) {
    ucred peer{};
    socklen_t size = sizeof peer;
    if (::getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0)
        return systemError("Cannot tell who publishes it", errno);
    if (peer.uid == 0 || peer.uid == ::geteuid())
        return {};
    return Error{"its publisher runs as user " + std::to_string(peer.uid) + ", neither root nor this user"};
}

} // namespace moxel
