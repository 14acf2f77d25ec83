// File events on their way to the receiver, in order, with equal neighbours merged.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace moxel {

/// One thread.
class FileEventBuffer {
  public:
    void add(const std::string &path, uint32_t flags);

    [[nodiscard]] bool isEmpty() const { return flags_.empty(); }
    [[nodiscard]] size_t size() const { return flags_.size(); }

    /// What has been gathered, in the form in which the receiver gets it.
    struct Batch {
        std::vector<std::string> paths;
        std::vector<uint32_t> flags;
        std::vector<uint64_t> identifiers;
    };
    /// Empties the buffer.
    [[nodiscard]] Batch take();

  private:
    std::vector<std::string> paths_;
    std::vector<uint32_t> flags_;
    uint64_t lastIdentifier_ = 0;
};

} // namespace moxel
