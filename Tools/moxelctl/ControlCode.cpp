#include "ControlCode.h"

#include "Number.h"
#include "Values/Format.h"

#include <algorithm>

namespace moxel::tool {

namespace {

bool isPrintable(char character) { return character >= 0x20 && character < 0x7F; }

} // namespace

std::optional<uint32_t> controlCodeFromText(const std::string &text) {
    if (text.size() == 4 && !text.starts_with("0x") && std::ranges::all_of(text, isPrintable)) {
        uint32_t code = 0;
        for (const char character : text)
            code = code << 8 | static_cast<uint8_t>(character);
        return code;
    }
    const std::optional<int64_t> number = numberFromText(text, 0, 0xFFFFFFFF);
    return number ? std::optional(static_cast<uint32_t>(*number)) : std::nullopt;
}

std::string textFromControlCode(uint32_t code) {
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8)
        text += static_cast<char>(code >> shift & 0xFF);
    return std::ranges::all_of(text, isPrintable) ? text : format("0x%08X", code);
}

} // namespace moxel::tool
