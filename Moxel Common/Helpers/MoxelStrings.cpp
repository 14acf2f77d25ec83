#include <Moxel/MoxelStrings.h>

#include "Platform/UnicodeCase.h"
#include "Values/DeepCopy.h"
#include "Values/UnicodeText.h"

#include <algorithm>
#include <array>
#include <compare>
#include <cstring>
#include <new>
#include <string>
#include <utility>
#include <vector>

namespace moxel {

namespace {

constexpr std::array<std::array<char, 2>, 256> hexTable = [] {
    constexpr std::string_view digits = "0123456789abcdef";
    std::array<std::array<char, 2>, 256> table{};
    for (size_t byte = 0; byte < table.size(); ++byte)
        table[byte] = {digits[byte >> 4], digits[byte & 15]};
    return table;
}();

/// Value of a hexadecimal digit; 0 for every other byte.
constexpr std::array<uint8_t, 256> map = [] {
    std::array<uint8_t, 256> table{};
    for (uint8_t digit = 0; digit < 10; ++digit)
        table[static_cast<size_t>('0' + digit)] = digit;
    for (uint8_t digit = 0; digit < 6; ++digit) {
        table[static_cast<size_t>('A' + digit)] = static_cast<uint8_t>(10 + digit);
        table[static_cast<size_t>('a' + digit)] = static_cast<uint8_t>(10 + digit);
    }
    return table;
}();

uint8_t digitValue(char character) { return map[static_cast<uint8_t>(character)]; }

/// UTF-8 with '?' in place of surrogates that stand alone.
std::string lossyUTF8(const String &string) {
    if (string.isWellFormed())
        return string.string();
    std::string text;
    const std::string_view source = string.view();
    for (size_t at = 0; at < source.size();) {
        const detail::CodePoint character =
            detail::decodeUTF8(source.substr(at), detail::Surrogates::rejected);
        text += character.isWellFormed ? source.substr(at, character.bytes) : "?";
        at += character.isWellFormed
                  ? character.bytes
                  : detail::decodeUTF8(source.substr(at), detail::Surrogates::accepted).bytes;
    }
    return text;
}

constexpr bool isDigit(char character) { return character >= '0' && character <= '9'; }

/// Takes a run of ASCII digits off the front, without its leading zeros.
std::string_view takeNumber(std::string_view &text) {
    const size_t length = static_cast<size_t>(std::ranges::find_if_not(text, isDigit) - text.begin());
    std::string_view number = text.substr(0, length);
    text.remove_prefix(length);
    number.remove_prefix(std::min(number.find_first_not_of('0'), number.size()));
    return number;
}

std::strong_ordering compareNumbers(std::string_view a, std::string_view b) {
    return a.size() != b.size() ? a.size() <=> b.size() : a <=> b;
}

constexpr bool isIllegalInFileNames(char16_t unit) {
    return std::u16string_view(u"\"*/:?@\\|").find(unit) != std::u16string_view::npos;
}

ComparisonResult toResult(std::strong_ordering order) {
    return std::is_lt(order)   ? ComparisonResult::ascending
           : std::is_gt(order) ? ComparisonResult::descending
                               : ComparisonResult::same;
}

} // namespace

Value copyDeepMutable(const Value &object) {
    Result<Value> copy = deepMutableCopy(object);
    return copy.ok() ? *std::move(copy) : Value();
}

String hexString(const Data &data) try {
    const auto count = static_cast<uint16_t>(data.size());
    std::string text(size_t{count} * 2, '\0');
    for (size_t i = 0; i < count; ++i)
        std::memcpy(&text[i * 2], hexTable[data.bytes()[i]].data(), 2);
    return text;
} catch (const std::bad_alloc &) {
    return nullptr;
}

Data binaryData(const String &string) try {
    const auto count = static_cast<uint16_t>(string.length() >> 1);
    const std::string_view digits = string.view(); // At least as many bytes as the text has UTF-16 units.
    std::vector<uint8_t> bytes(count);
    for (size_t i = 0; i < count; ++i)
        bytes[i] = static_cast<uint8_t>(digitValue(digits[2 * i]) << 4 | digitValue(digits[2 * i + 1]));
    return Data(std::move(bytes));
} catch (const std::bad_alloc &) {
    return nullptr;
}

String stringWithPascalString(const uint8_t *pascalString) {
    if (!pascalString || pascalString[0] == 0)
        return nullptr;
    return String::fromUTF8({reinterpret_cast<const char *>(pascalString + 1), pascalString[0]});
}

void getPascalString(const String &string, uint8_t *buffer) { getPascalString(string, buffer, 255); }

void getPascalString(const String &string, uint8_t *buffer, int32_t maxLength) {
    const std::string text = lossyUTF8(string);
    const size_t count = std::min(static_cast<uint32_t>(text.size()), static_cast<uint32_t>(maxLength));
    std::copy_n(reinterpret_cast<const uint8_t *>(text.data()), count, buffer + 1);
    buffer[0] = static_cast<uint8_t>(count);
}

AttributedString getHyperlink(const String &string, bool highlighted) {
    const Dictionary systemFont{{"family", "system-ui"}, {"size", "system"}};
    const Dictionary color{{"space", "calibratedRGB"},
                           {"red", highlighted ? 1.0 : 0.1},
                           {"green", 0.1},
                           {"blue", highlighted ? 0.1 : 1.0},
                           {"alpha", 1.0}};
    return {string,
            {{"NSUnderline", 1},
             {"NSLink", string},
             {"NSFont", systemFont},
             {"NSColor", color},
             {"NSParagraphStyle", MutableDictionary::withCapacity(0)}}};
}

ComparisonResult caseInsensitiveNumericCompare(const String &string, const String &other) {
    const std::string lowerString = lowercase(string.view());
    const std::string lowerOther = lowercase(other.view());
    std::string_view left = lowerString;
    std::string_view right = lowerOther;
    while (!left.empty() && !right.empty()) {
        std::strong_ordering order = std::strong_ordering::equal;
        if (isDigit(left.front()) && isDigit(right.front())) {
            const std::string_view leftNumber = takeNumber(left);
            order = compareNumbers(leftNumber, takeNumber(right));
        } else {
            // Bytes of UTF-8 compare as their characters do.
            order = static_cast<uint8_t>(left.front()) <=> static_cast<uint8_t>(right.front());
            left.remove_prefix(1);
            right.remove_prefix(1);
        }
        if (std::is_neq(order))
            return toResult(order);
    }
    return toResult(left.size() <=> right.size());
}

String stringByReplacingIllegalCharacters(const String &string) try {
    if (!string)
        return nullptr;
    std::u16string units = string.utf16();
    std::ranges::replace_if(units, isIllegalInFileNames, u'-');
    return String::fromUTF16(units);
} catch (const std::bad_alloc &) {
    return nullptr;
}

} // namespace moxel
