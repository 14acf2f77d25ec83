// A folder's lock is the system's advisory lock on the folder itself.
#include "Platform/FolderLock.h"

#include "Platform/Linux/Descriptor.h"

#include <cerrno>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>

namespace moxel {

struct FolderLock::Implementation {
    Descriptor folder;
};

FolderLock::FolderLock(std::unique_ptr<Implementation> implementation)
    : implementation_(std::move(implementation)) {}
FolderLock::~FolderLock() = default;
FolderLock::FolderLock(FolderLock &&) noexcept = default;
FolderLock &FolderLock::operator=(FolderLock &&) noexcept = default;

Result<FolderLock> FolderLock::take(const std::string &folder, std::chrono::milliseconds limit) {
    constexpr std::chrono::milliseconds interval{5};
    const auto deadline = std::chrono::steady_clock::now() + limit;
    Descriptor opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!opened)
        return systemError("Cannot open the folder " + folder, errno);
    // Nothing tells that the lock is free, but for a wait without a limit: whoever holds it may be stopped.
    while (::flock(opened.get(), LOCK_EX | LOCK_NB) != 0 && (errno == EWOULDBLOCK || errno == EINTR)) {
        if (std::chrono::steady_clock::now() >= deadline)
            return Error{"another process keeps the folder " + folder, EBUSY};
        std::this_thread::sleep_for(interval);
    }
    return FolderLock(std::make_unique<Implementation>(Implementation{std::move(opened)}));
}

} // namespace moxel
