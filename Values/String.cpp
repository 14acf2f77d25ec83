// Immutable text.
#include "String.h"

#include "StringNode.h"
#include "UnicodeText.h"

namespace moxel {

namespace {

using detail::StringNode;

const StringNode &nodeOf(const Ref<const detail::Node> &node) noexcept {
    return static_cast<const StringNode &>(*node);
}

Ref<const detail::Node> makeNode(std::string_view validUTF8, size_t utf16Length) {
    Ref<StringNode> node = StringNode::withSize(validUTF8.size(), utf16Length, true);
    validUTF8.copy(node->text(), validUTF8.size());
    return node;
}

} // namespace

String::String(const char *utf8) {
    if (utf8)
        *this = String(std::string_view(utf8));
}

String::String(std::string_view utf8) {
    const detail::TextShape shape = detail::scanUTF8(utf8);
    // An ill-formed sequence counts as the U+FFFD that replaces it, so the length holds for both.
    node_ = shape.isValid ? makeNode(utf8, shape.utf16Length)
                          : makeNode(detail::repairedUTF8(utf8), shape.utf16Length);
}

String String::fromUTF8(std::string_view utf8) {
    const detail::TextShape shape = detail::scanUTF8(utf8);
    return shape.isValid ? String(makeNode(utf8, shape.utf16Length)) : String();
}

String String::fromUTF16(std::span<const char16_t> units) {
    const detail::UTF8Size size = detail::sizeInUTF8(units);
    Ref<StringNode> node = StringNode::withSize(size.bytes, units.size(), !size.hasLoneSurrogate);
    detail::encodeUTF8(units, node->text());
    return String(Ref<const detail::Node>(node));
}

std::string_view String::view() const noexcept { return node_ ? nodeOf(node_).view() : std::string_view(); }

const char *String::c_str() const noexcept { return node_ ? nodeOf(node_).view().data() : ""; }

size_t String::length() const noexcept { return node_ ? nodeOf(node_).utf16Length() : 0; }

std::u16string String::utf16() const { return detail::decodedUTF16(view()); }

bool String::isWellFormed() const noexcept { return !node_ || nodeOf(node_).isWellFormed(); }

} // namespace moxel
