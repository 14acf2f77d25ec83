#include "Moxel Daemon/Bus/BusFolder.h"

#include "Moxel Daemon/Bus/SocketAddress.h"
#include "Platform/Linux/HIDBusWire.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string_view>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace moxel::daemon {

namespace {

constexpr mode_t folderMode = S_IRWXU;
constexpr mode_t socketMode = S_IRUSR | S_IWUSR;
constexpr int connectionBacklog = 128;

/// Publishers take turns, so that no two of them replace the same left-over socket. Others hold the turn for
/// a few system calls only.
class Turn {
  public:
    explicit Turn(int folder) : folder_(folder) {
        while (::flock(folder_, LOCK_EX) < 0 && errno == EINTR) {
        }
    }
    ~Turn() { ::flock(folder_, LOCK_UN); }
    Turn(const Turn &) = delete;
    Turn &operator=(const Turn &) = delete;

  private:
    int folder_;
};

Result<void> makeFolders(const std::string &path) {
    for (size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
        const std::string part = path.substr(0, end);
        if (::mkdir(part.c_str(), folderMode) < 0 && errno != EEXIST)
            return systemError("Cannot make the folder " + part + " (MOXEL_HID_BUS can name another one)",
                               errno);
        if (end == std::string::npos)
            return {};
    }
}

bool isSocketName(std::string_view name) {
    return !name.empty() && name.front() != '.' && std::all_of(name.begin(), name.end(), [](char character) {
        return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
               (character >= '0' && character <= '9') || character == '.' || character == '_' ||
               character == '-';
    });
}

const char *absolutePath(const char *variable) {
    const char *value = ::secure_getenv(variable);
    return value && *value == '/' ? value : nullptr;
}

} // namespace

// ------------------------------------------------------------------------------------------ The folder

std::string BusFolder::defaultPath() {
    if (const char *folder = absolutePath("MOXEL_HID_BUS"))
        return folder;
    if (const char *runtime = absolutePath("XDG_RUNTIME_DIR"))
        return std::string(runtime) + "/moxel/hid";
    return "/run/moxel/hid";
}

BusFolder::BusFolder(std::string path, Descriptor descriptor)
    : path_(std::move(path)), descriptor_(std::move(descriptor)) {}

Result<std::shared_ptr<const BusFolder>> BusFolder::open(const std::string &path) {
    if (path.empty() || path.front() != '/')
        return Error{"The bus folder \"" + path + "\" is not an absolute path", EINVAL};
    Descriptor descriptor(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!descriptor && errno == ENOENT) {
        if (Result<void> made = makeFolders(path); !made.ok())
            return made.error();
        descriptor.reset(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    }
    if (!descriptor)
        return systemError("Cannot open the bus folder " + path, errno);
    struct stat status {};
    if (::fstat(descriptor.get(), &status) < 0)
        return systemError("Cannot examine the bus folder " + path, errno);
    if (status.st_uid != 0 && status.st_uid != ::geteuid())
        return Error{"The bus folder " + path + " belongs to user " + std::to_string(status.st_uid) +
                         ", who is neither root nor you",
                     EPERM};
    if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0)
        return Error{"The bus folder " + path + " may be written by its group or by others", EPERM};
    return std::shared_ptr<const BusFolder>(std::make_shared<const BusFolder>(path, std::move(descriptor)));
}

Result<PublishedSocket> BusFolder::publish(const std::string &name) const {
    if (!isSocketName(name))
        return Error{"\"" + name + "\" cannot name a device on the bus", EINVAL};
    const std::string fileName = name + std::string(hidbus::socketSuffix);
    const std::string temporaryName =
        std::string(hidbus::temporaryPrefix) + name + std::string(hidbus::temporarySuffix);
    const Turn turn(descriptor_.get());
    if (Result<void> vacant = checkVacant(fileName); !vacant.ok())
        return vacant.error();

    Descriptor socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket)
        return systemError("Cannot make a socket", errno);
    if (Result<void> bound = bindAs(socket.get(), temporaryName); !bound.ok())
        return bound.error();
    if (::renameat(descriptor_.get(), temporaryName.c_str(), descriptor_.get(), fileName.c_str()) < 0) {
        const int error = errno;
        ::unlinkat(descriptor_.get(), temporaryName.c_str(), 0);
        return systemError("Cannot name the socket " + fileName + " in " + path_, error);
    }
    return PublishedSocket(shared_from_this(), fileName, std::move(socket));
}

/// Binds and listens, so that the name is one that accepts from its first moment.
Result<void> BusFolder::bindAs(int socket, const std::string &fileName) const {
    ::unlinkat(descriptor_.get(), fileName.c_str(), 0); // Left by a publisher that ended half-way.
    const SocketAddress address(path_, descriptor_.get(), fileName);
    if (::bind(socket, address.get(), address.size()) < 0)
        return systemError("Cannot bind the socket " + fileName + " in " + path_, errno);
    if (::fchmodat(descriptor_.get(), fileName.c_str(), socketMode, 0) == 0 &&
        ::listen(socket, connectionBacklog) == 0)
        return {};
    const int error = errno;
    ::unlinkat(descriptor_.get(), fileName.c_str(), 0);
    return systemError("Cannot listen on the socket " + fileName + " in " + path_, error);
}

Result<void> BusFolder::checkVacant(const std::string &fileName) const {
    struct stat status {};
    if (::fstatat(descriptor_.get(), fileName.c_str(), &status, AT_SYMLINK_NOFOLLOW) < 0) {
        if (errno == ENOENT)
            return {};
        return systemError("Cannot examine " + fileName + " in " + path_, errno);
    }
    if (!S_ISSOCK(status.st_mode))
        return Error{fileName + " in " + path_ + " is in the way and no socket", EEXIST};
    const Descriptor probe(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!probe)
        return systemError("Cannot make a socket", errno);
    const SocketAddress address(path_, descriptor_.get(), fileName);
    if (::connect(probe.get(), address.get(), address.size()) < 0 &&
        (errno == ECONNREFUSED || errno == ENOENT))
        return {};
    return Error{fileName + " in " + path_ + " is already published by a running daemon", alreadyPublished};
}

// ------------------------------------------------------------------------------------------ The name

PublishedSocket::PublishedSocket(std::shared_ptr<const BusFolder> folder, std::string fileName,
                                 Descriptor socket)
    : folder_(std::move(folder)), fileName_(std::move(fileName)), socket_(std::move(socket)) {
    struct stat status {};
    if (::fstatat(folder_->descriptor_.get(), fileName_.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) {
        device_ = status.st_dev;
        inode_ = status.st_ino;
    }
}

PublishedSocket::~PublishedSocket() {
    if (!folder_)
        return;
    const Turn turn(folder_->descriptor_.get());
    if (nameIsOurs())
        ::unlinkat(folder_->descriptor_.get(), fileName_.c_str(), 0);
}

bool PublishedSocket::nameIsOurs() const {
    struct stat status {};
    return ::fstatat(folder_->descriptor_.get(), fileName_.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
           status.st_dev == device_ && status.st_ino == inode_;
}

} // namespace moxel::daemon
