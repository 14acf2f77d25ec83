// Immutable text, shared by reference.
#pragma once

#include "../Platform/Export.h"
#include "Node.h"

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace moxel {

/// Text or null. Held as UTF-8; a surrogate that stands alone in a UTF-16 source is kept as its three-byte
/// form, so every UTF-16 text round-trips. May hold zero characters. Copying costs one counter. Threads: like
/// Value.
class MOXEL_EXPORT String {
  public:
    String() noexcept = default;
    String(std::nullptr_t) noexcept {}
    /// From UTF-8; every ill-formed sequence becomes U+FFFD. A null pointer gives null.
    String(const char *utf8);
    /// From UTF-8; every ill-formed sequence becomes U+FFFD.
    String(std::string_view utf8);
    /// From UTF-8; every ill-formed sequence becomes U+FFFD.
    String(const std::string &utf8) : String(std::string_view(utf8)) {}

    /// From UTF-8; null when it is ill-formed.
    [[nodiscard]] static String fromUTF8(std::string_view utf8);
    /// From UTF-16 code units in native order.
    [[nodiscard]] static String fromUTF16(std::span<const char16_t> units);

    explicit operator bool() const noexcept { return static_cast<bool>(node_); }

    /// The text's bytes, followed by a zero byte that does not count; empty for null.
    [[nodiscard]] std::string_view view() const noexcept;
    /// The text's bytes.
    [[nodiscard]] std::string string() const { return std::string(view()); }
    /// The text's bytes with a zero behind them; empty for null.
    [[nodiscard]] const char *c_str() const noexcept;

    /// Length in UTF-16 code units.
    [[nodiscard]] size_t length() const noexcept;
    /// The text in UTF-16 code units.
    [[nodiscard]] std::u16string utf16() const;
    /// False when a surrogate stands alone, so that strict UTF-8 cannot express the text.
    [[nodiscard]] bool isWellFormed() const noexcept;

    /// Same characters; null equals only null.
    friend bool operator==(const String &a, const String &b) noexcept {
        return a.node_ == b.node_ || (a.node_ && b.node_ && a.view() == b.view());
    }

    /// The shared storage, for identity.
    [[nodiscard]] const detail::Node *node() const noexcept { return node_.get(); }

  private:
    friend class Value;
    explicit String(Ref<const detail::Node> node) noexcept : node_(std::move(node)) {}

    Ref<const detail::Node> node_;
};

} // namespace moxel
