// The address of a socket in a folder whose path may be longer than an address can hold.
#pragma once

#include <cstddef>
#include <cstring>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>

namespace moxel::daemon {

/// Long paths go through the folder's descriptor. A name that does not fit even so gives an empty address,
/// which every operation refuses.
class SocketAddress {
  public:
    SocketAddress(const std::string &folder, int folderDescriptor, const std::string &fileName) {
        std::string path = folder + "/" + fileName;
        if (path.size() >= sizeof address_.sun_path)
            path = "/proc/self/fd/" + std::to_string(folderDescriptor) + "/" + fileName;
        if (path.size() >= sizeof address_.sun_path)
            path.clear();
        address_.sun_family = AF_UNIX;
        std::memcpy(address_.sun_path, path.c_str(), path.size() + 1);
        size_ = path.empty() ? 0 : static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size() + 1);
    }

    [[nodiscard]] const sockaddr *get() const noexcept {
        return reinterpret_cast<const sockaddr *>(&address_);
    }
    [[nodiscard]] socklen_t size() const noexcept { return size_; }

  private:
    sockaddr_un address_{};
    socklen_t size_ = 0;
};

} // namespace moxel::daemon
