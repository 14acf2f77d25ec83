#include "HexDump.h"

#include "Values/Format.h"

#include <algorithm>

namespace moxel::tool {

namespace {

constexpr size_t rowSize = 16;

std::string characters(std::span<const uint8_t> row) {
    std::string text;
    for (const uint8_t byte : row)
        text += byte >= 0x20 && byte < 0x7F ? static_cast<char>(byte) : '.';
    return text;
}

} // namespace

std::string plainHex(std::span<const uint8_t> bytes) {
    constexpr char digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const uint8_t byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 0xF];
    }
    return text;
}

std::string spacedHex(std::span<const uint8_t> bytes) {
    constexpr char digits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(bytes.size() * 3);
    for (const uint8_t byte : bytes) {
        if (!text.empty())
            text += ' ';
        text += digits[byte >> 4];
        text += digits[byte & 0xF];
    }
    return text;
}

std::string hexDump(std::span<const uint8_t> bytes, const std::string &indentation, size_t limit) {
    const size_t shown = std::min(bytes.size(), limit);
    std::string text;
    for (size_t offset = 0; offset < shown; offset += rowSize) {
        const auto row = bytes.subspan(offset, std::min(rowSize, shown - offset));
        text += format("%s%08zx  %-47s  %s\n", indentation, offset, spacedHex(row), characters(row));
    }
    if (shown < bytes.size())
        text += format("%s... and %zu bytes more\n", indentation, bytes.size() - shown);
    return text;
}

} // namespace moxel::tool
