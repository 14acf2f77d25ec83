// The encodings in which property lists come as text.
#include "TextEncoding.h"

#include "UnicodeText.h"

#include <algorithm>
#include <array>

namespace moxel::detail {

namespace {

struct Mark {
    std::array<uint8_t, 4> bytes;
    DetectedEncoding detected;
};

/// UTF-32 comes first: its little-endian mark begins with that of UTF-16.
constexpr Mark marks[] = {
    {{0x00, 0x00, 0xFE, 0xFF}, {TextEncoding::utf32BigEndian, 4}},
    {{0xFF, 0xFE, 0x00, 0x00}, {TextEncoding::utf32LittleEndian, 4}},
    {{0xEF, 0xBB, 0xBF}, {TextEncoding::bytes, 3}},
    {{0xFE, 0xFF}, {TextEncoding::utf16BigEndian, 2}},
    {{0xFF, 0xFE}, {TextEncoding::utf16LittleEndian, 2}},
};

/// Reads code units of one width and byte order.
class UnitReader {
  public:
    UnitReader(std::span<const uint8_t> bytes, size_t width, bool isBigEndian) noexcept
        : bytes_(bytes), width_(width), isBigEndian_(isBigEndian) {}

    [[nodiscard]] size_t count() const noexcept { return bytes_.size() / width_; }
    [[nodiscard]] bool isWhole() const noexcept { return bytes_.size() % width_ == 0; }
    [[nodiscard]] uint32_t operator[](size_t index) const noexcept {
        uint32_t unit = 0;
        for (size_t i = 0; i < width_; ++i)
            unit = unit << 8 | bytes_[index * width_ + (isBigEndian_ ? i : width_ - 1 - i)];
        return unit;
    }

  private:
    std::span<const uint8_t> bytes_;
    size_t width_;
    bool isBigEndian_;
};

/// Converts all units; pairs of surrogates only in UTF-16.
Result<std::string_view> convert(const UnitReader &units, bool isUTF16, std::string &text) {
    if (!units.isWhole())
        return Error{"the text ends inside a character"};
    text.clear();
    text.reserve(units.count());
    for (size_t i = 0; i < units.count(); ++i) {
        uint32_t character = units[i];
        if (isUTF16 && isHighSurrogate(character) && i + 1 < units.count() && isLowSurrogate(units[i + 1]))
            character = joinedSurrogates(character, units[++i]);
        if (isSurrogate(character) || character > 0x10FFFF)
            return Error{"code unit " + std::to_string(i) + " is not a character"};
        appendUTF8(text, character);
    }
    return std::string_view(text);
}

} // namespace

DetectedEncoding detectTextEncoding(std::span<const uint8_t> bytes) noexcept {
    for (const Mark &mark : marks)
        if (bytes.size() >= mark.detected.markSize &&
            std::equal(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(mark.detected.markSize),
                       mark.bytes.begin()))
            return mark.detected;
    const auto isZero = [&](size_t index) { return index < bytes.size() && bytes[index] == 0; };
    const bool isFour = bytes.size() >= 4;
    if (isFour && isZero(0) && isZero(1) && isZero(2))
        return {TextEncoding::utf32BigEndian, 0};
    if (isFour && !isZero(0) && isZero(1) && isZero(2) && isZero(3))
        return {TextEncoding::utf32LittleEndian, 0};
    if (bytes.size() >= 2 && isZero(0) != isZero(1))
        return {isZero(0) ? TextEncoding::utf16BigEndian : TextEncoding::utf16LittleEndian, 0};
    return {TextEncoding::bytes, 0};
}

Result<std::string_view> decodedText(std::span<const uint8_t> bytes, std::string &storage) {
    const DetectedEncoding detected = detectTextEncoding(bytes);
    bytes = bytes.subspan(detected.markSize);
    switch (detected.encoding) {
    case TextEncoding::utf16BigEndian:
        return convert(UnitReader(bytes, 2, true), true, storage);
    case TextEncoding::utf16LittleEndian:
        return convert(UnitReader(bytes, 2, false), true, storage);
    case TextEncoding::utf32BigEndian:
        return convert(UnitReader(bytes, 4, true), false, storage);
    case TextEncoding::utf32LittleEndian:
        return convert(UnitReader(bytes, 4, false), false, storage);
    case TextEncoding::bytes:
        break;
    }
    return std::string_view(reinterpret_cast<const char *>(bytes.data()), bytes.size());
}

} // namespace moxel::detail
