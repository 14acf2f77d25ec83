// A file in the making, which takes its place in one step.
#pragma once

#include "Platform/Linux/Descriptor.h"
#include "Platform/Result.h"

#include <cstdint>
#include <span>
#include <string>

namespace moxel {

/// Lies in the folder under one of a few names of its own and is locked while it exists, so that what stands
/// under such a name unlocked was left by a process that stopped. Lives on one thread.
class TemporaryFile {
  public:
    /// A new empty file (mode 0600). `folder` stays open as long as the file.
    [[nodiscard]] static Result<TemporaryFile> create(int folder);
    /// Removes the file unless it took its place.
    ~TemporaryFile();
    TemporaryFile(TemporaryFile &&other) noexcept;
    TemporaryFile &operator=(TemporaryFile &&) = delete;

    /// Returns when the bytes are on the disk.
    [[nodiscard]] Result<void> write(std::span<const uint8_t> bytes) const;
    /// Takes the place of what has that name. Returns when that is on the disk.
    [[nodiscard]] Result<void> renameTo(const std::string &name);

  private:
    TemporaryFile(int folder, std::string name, Descriptor descriptor)
        : folder_(folder), name_(std::move(name)), descriptor_(std::move(descriptor)) {}

    int folder_;
    std::string name_; ///< Empty once there is nothing to remove.
    Descriptor descriptor_;
};

} // namespace moxel
