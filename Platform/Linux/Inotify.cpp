// inotify(7) system calls.
#include "Platform/Linux/Inotify.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace moxel {

Result<Inotify> Inotify::create() {
    Descriptor descriptor(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    if (!descriptor)
        return systemError("Cannot watch files", errno);
    return Inotify(std::move(descriptor));
}

Result<int> Inotify::add(const std::string &folder, uint32_t mask) {
    const int watch = ::inotify_add_watch(descriptor_.get(), folder.c_str(),
                                          mask | IN_MASK_ADD | IN_ONLYDIR | IN_EXCL_UNLINK);
    if (watch < 0)
        return systemError("Cannot watch folder " + folder, errno);
    ++users_[watch];
    return watch;
}

void Inotify::release(int watch) {
    const auto user = users_.find(watch);
    if (user == users_.end() || --user->second > 0)
        return;
    users_.erase(user);
    ::inotify_rm_watch(descriptor_.get(), watch); // fails when the kernel was first; nothing is lost then
}

bool Inotify::read(const Handler &handler) {
    std::array<char, 65536> buffer;
    ssize_t size = 0;
    do {
        size = ::read(descriptor_.get(), buffer.data(), buffer.size());
    } while (size < 0 && errno == EINTR);
    if (size <= 0)
        return false;

    uint64_t position = readPosition_;
    readPosition_ += static_cast<uint64_t>(size);
    std::string_view rest(buffer.data(), static_cast<size_t>(size));
    while (rest.size() >= sizeof(inotify_event)) {
        inotify_event header{};
        std::memcpy(&header, rest.data(), sizeof header);
        rest.remove_prefix(sizeof header);
        const auto padded = rest.substr(0, header.len);
        rest.remove_prefix(padded.size());
        if ((header.mask & IN_IGNORED) != 0)
            users_.erase(header.wd);
        handler({header.wd, header.mask, padded.substr(0, padded.find('\0')), position});
        position += sizeof header + padded.size();
    }
    return true;
}

uint64_t Inotify::endPosition() const {
    int queued = 0;
    if (::ioctl(descriptor_.get(), FIONREAD, &queued) != 0)
        queued = 0;
    return readPosition_ + static_cast<uint64_t>(queued);
}

} // namespace moxel
