// Keeps a folder's files to one writer among several processes.
#pragma once

#include "Result.h"

#include <chrono>
#include <memory>
#include <string>

namespace moxel {

/// Held while it lives, against every other holder of the same folder, in this process or another. The system
/// lets go of it when the process ends, however it ends. It binds only those who ask for it.
class FolderLock {
  public:
    /// Waits at most that long; an error with the code EBUSY then. Where the file system knows no locks the
    /// result holds nothing. Any thread.
    [[nodiscard]] static Result<FolderLock> take(const std::string &folder, std::chrono::milliseconds limit);

    ~FolderLock();
    FolderLock(FolderLock &&) noexcept;
    FolderLock &operator=(FolderLock &&) noexcept;

  private:
    struct Implementation;
    explicit FolderLock(std::unique_ptr<Implementation> implementation);

    std::unique_ptr<Implementation> implementation_;
};

} // namespace moxel
