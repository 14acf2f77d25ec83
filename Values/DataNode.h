// The heap form of Data.
#pragma once

#include "Node.h"

#include <cstdint>
#include <span>
#include <vector>

namespace moxel::detail {

class DataNode final : public Node {
  public:
    explicit DataNode(std::vector<uint8_t> bytes) noexcept : Node(Kind::data), bytes_(std::move(bytes)) {}

    [[nodiscard]] std::span<const uint8_t> bytes() const noexcept { return bytes_; }

  private:
    const std::vector<uint8_t> bytes_;
};

} // namespace moxel::detail
