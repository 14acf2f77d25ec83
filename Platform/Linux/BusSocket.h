// The socket of one device of the user-space bus, held so that no other file can take its place.
#pragma once

#include "Platform/Linux/Descriptor.h"
#include "Platform/Result.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <sys/stat.h>

namespace moxel {

/// Which file it is, whatever its name has become.
struct FileIdentity {
    uint64_t device = 0;
    uint64_t inode = 0;

    bool operator==(const FileIdentity &) const = default;
    bool operator<(const FileIdentity &other) const {
        return device != other.device ? device < other.device : inode < other.inode;
    }
};

[[nodiscard]] FileIdentity identityOf(const struct stat &status) noexcept;

/// A reference to the socket file itself, good until its publisher stops listening, even when the name is
/// gone or leads to another socket. Any thread.
class BusSocket {
  public:
    /// NAME.hid, NAME of letters, digits, '.', '_' and '-' and not hidden.
    [[nodiscard]] static bool isDeviceName(std::string_view fileName) noexcept;

    /// The socket `name` of the folder open as `folder`, which lies at `folderPath`. The error's code is
    /// ENOTSOCK for files of another kind.
    static Result<BusSocket> open(int folder, const std::string &folderPath, const std::string &name);

    /// Connects `descriptor`, a SOCK_SEQPACKET socket. Returns 0 or the errno of connect(), which may be
    /// EINTR.
    [[nodiscard]] int connect(int descriptor) const noexcept;

    [[nodiscard]] FileIdentity identity() const noexcept { return identity_; }
    /// Where the socket was found.
    [[nodiscard]] const std::string &path() const noexcept { return path_; }

  private:
    BusSocket(Descriptor file, FileIdentity identity, std::string path);
    [[nodiscard]] int connectByPath(int descriptor) const noexcept;
    [[nodiscard]] bool isAtPath() const noexcept;

    Descriptor file_;
    FileIdentity identity_;
    std::string path_;
};

/// Checks that whoever listens at the other end of a connected socket is root or this user; otherwise the
/// error says who it is.
[[nodiscard]] Result<void> checkPublisher(int descriptor);

} // namespace moxel
