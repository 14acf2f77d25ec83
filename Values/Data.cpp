// Immutable bytes.
#include "Data.h"

#include "DataNode.h"

#include <algorithm>

namespace moxel {

using detail::DataNode;

Data::Data(std::span<const uint8_t> bytes)
    : node_(makeRef<DataNode>(std::vector<uint8_t>(bytes.begin(), bytes.end()))) {}

Data::Data(std::vector<uint8_t> &&bytes) : node_(makeRef<DataNode>(std::move(bytes))) {}

std::span<const uint8_t> Data::bytes() const noexcept {
    return node_ ? static_cast<const DataNode &>(*node_).bytes() : std::span<const uint8_t>();
}

bool operator==(const Data &a, const Data &b) noexcept {
    return a.node_ == b.node_ || (a.node_ && b.node_ && std::ranges::equal(a.bytes(), b.bytes()));
}

} // namespace moxel
