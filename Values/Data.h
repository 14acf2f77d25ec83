// Immutable bytes, shared by reference.
#pragma once

#include "../Platform/Export.h"
#include "Node.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace moxel {

/// Bytes or null. Copying costs one counter. Threads: like Value.
class MOXEL_EXPORT Data {
  public:
    Data() noexcept = default;
    Data(std::nullptr_t) noexcept {}
    /// Copies the bytes.
    explicit Data(std::span<const uint8_t> bytes);
    /// Takes the bytes over.
    explicit Data(std::vector<uint8_t> &&bytes);

    explicit operator bool() const noexcept { return static_cast<bool>(node_); }

    /// Empty for null.
    [[nodiscard]] std::span<const uint8_t> bytes() const noexcept;
    [[nodiscard]] size_t size() const noexcept { return bytes().size(); }

    /// Same bytes; null equals only null.
    friend bool operator==(const Data &a, const Data &b) noexcept;

    /// The shared storage, for identity.
    [[nodiscard]] const detail::Node *node() const noexcept { return node_.get(); }

  private:
    friend class Value;
    explicit Data(Ref<const detail::Node> node) noexcept : node_(std::move(node)) {}

    Ref<const detail::Node> node_;
};

} // namespace moxel
