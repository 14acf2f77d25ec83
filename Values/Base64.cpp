// Bytes as base64 text.
#include "Base64.h"

#include <array>

namespace moxel::detail {

namespace {

constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr uint8_t isSpace = 64;
constexpr uint8_t isPadding = 65;
constexpr uint8_t isForeign = 66;

/// Six bits of every character of the alphabet, or what else the character is.
constexpr std::array<uint8_t, 256> meanings = [] {
    std::array<uint8_t, 256> table{};
    table.fill(isForeign);
    for (size_t i = 0; i < alphabet.size(); ++i)
        table[static_cast<uint8_t>(alphabet[i])] = static_cast<uint8_t>(i);
    for (const char c : {' ', '\t', '\n', '\r', '\v', '\f'})
        table[static_cast<uint8_t>(c)] = isSpace;
    table['='] = isPadding;
    return table;
}();

} // namespace

std::optional<std::vector<uint8_t>> bytesFromBase64(std::string_view text) {
    std::vector<uint8_t> bytes;
    bytes.reserve(text.size() / 4 * 3);
    uint32_t bits = 0;
    size_t characters = 0;
    size_t padding = 0;
    for (const char c : text) {
        const uint8_t meaning = meanings[static_cast<uint8_t>(c)];
        if (meaning == isSpace)
            continue;
        if (meaning == isForeign || (meaning != isPadding && padding > 0))
            return std::nullopt;
        padding += meaning == isPadding ? 1 : 0;
        bits = bits << 6 | (meaning == isPadding ? 0u : meaning);
        if (++characters % 4 != 0)
            continue;
        for (const int shift : {16, 8, 0})
            bytes.push_back(static_cast<uint8_t>(bits >> shift));
    }
    if (characters % 4 != 0 || padding > 2)
        return std::nullopt;
    bytes.resize(bytes.size() - padding);
    return bytes;
}

void appendBase64(std::string &text, std::span<const uint8_t> bytes) {
    const size_t start = text.size();
    text.resize(start + (bytes.size() + 2) / 3 * 4, '=');
    char *at = text.data() + start;
    const auto append = [&at](uint32_t bits, int characters) {
        for (int shift = 18; characters-- > 0; shift -= 6)
            *at++ = alphabet[bits >> shift & 63];
    };
    size_t i = 0;
    for (; i + 3 <= bytes.size(); i += 3)
        append(static_cast<uint32_t>(bytes[i] << 16 | bytes[i + 1] << 8 | bytes[i + 2]), 4);
    if (bytes.size() - i == 2)
        append(static_cast<uint32_t>(bytes[i] << 16 | bytes[i + 1] << 8), 3);
    else if (bytes.size() - i == 1)
        append(static_cast<uint32_t>(bytes[i] << 16), 2);
}

} // namespace moxel::detail
