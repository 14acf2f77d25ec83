// Tells the forms of property lists apart.
#include "PropertyList.h"

#include "TextEncoding.h"

#include <algorithm>
#include <string_view>

namespace moxel {

namespace {

constexpr bool isLetter(char c) noexcept { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

/// The ASCII characters at the start of a text, once its encoding is known. Enough to tell the forms apart.
std::string beginningOf(std::span<const uint8_t> bytes) {
    const detail::DetectedEncoding detected = detail::detectTextEncoding(bytes);
    std::string beginning;
    for (const uint8_t byte : bytes.subspan(detected.markSize)) {
        const bool isSpace = byte == ' ' || (byte >= '\t' && byte <= '\r');
        // In UTF-16 and UTF-32 the zero bytes between ASCII characters are no text.
        if (byte == 0 || (isSpace && beginning.empty()))
            continue;
        beginning += static_cast<char>(byte);
        if (beginning.size() == 16)
            break;
    }
    return beginning;
}

/// Old-style text may begin with '<' as well, for data: <0fbd77>, <[...]>, <*I5>. A tag begins with a word
/// that is not all hexadecimal digits.
bool looksLikeXML(std::string_view beginning) {
    if (!beginning.starts_with('<'))
        return false;
    if (beginning.starts_with("<?") || beginning.starts_with("<!"))
        return true;
    const std::string_view name = beginning.substr(1);
    const auto end = std::ranges::find_if_not(name, isLetter);
    return std::any_of(name.begin(), end,
                       [](char c) { return (c > 'f' && c <= 'z') || (c > 'F' && c <= 'Z'); });
}

Result<PropertyList> withFormat(Result<Value> root, PropertyListFormat format) {
    if (!root)
        return root.error();
    return PropertyList{std::move(*root), format};
}

} // namespace

Result<PropertyList> readPropertyList(std::span<const uint8_t> bytes, Mutability mutability) {
    constexpr std::string_view binaryMagic = "bplist";
    if (bytes.empty())
        return Error{"property list: no bytes"};
    if (bytes.size() >= binaryMagic.size() &&
        std::equal(binaryMagic.begin(), binaryMagic.end(), bytes.begin()))
        return withFormat(readBinaryPropertyList(bytes, mutability), PropertyListFormat::binary);
    if (looksLikeXML(beginningOf(bytes)))
        return withFormat(readXMLPropertyList(bytes, mutability), PropertyListFormat::xml);
    return withFormat(readOpenStepPropertyList(bytes, mutability), PropertyListFormat::openStep);
}

} // namespace moxel
