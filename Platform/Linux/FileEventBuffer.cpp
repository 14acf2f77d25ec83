// Merging of neighbouring events of one path.
#include "Platform/Linux/FileEventBuffer.h"

#include "Platform/FileEvents.h"

#include <numeric>
#include <utility>

namespace moxel {

namespace {

// A file that was made, filled and given its attributes is one change. What has been removed or renamed, and
// what comes after that, is another.
bool canMerge(uint32_t earlier, uint32_t later) {
    constexpr uint32_t changes = fileEventModified | fileEventMetadataChanged;
    return earlier == later || ((earlier & ~(fileEventCreated | changes)) == 0 && (later & ~changes) == 0);
}

} // namespace

void FileEventBuffer::add(const std::string &path, uint32_t flags) {
    if (!isEmpty() && paths_.back() == path && canMerge(flags_.back(), flags)) {
        flags_.back() |= flags;
        return;
    }
    paths_.push_back(path);
    flags_.push_back(flags);
}

FileEventBuffer::Batch FileEventBuffer::take() {
    Batch batch{std::exchange(paths_, {}), std::exchange(flags_, {}), {}};
    batch.identifiers.resize(batch.flags.size());
    std::iota(batch.identifiers.begin(), batch.identifiers.end(), lastIdentifier_ + 1);
    lastIdentifier_ += batch.identifiers.size();
    return batch;
}

} // namespace moxel
