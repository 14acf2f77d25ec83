#include "Number.h"

#include <charconv>

namespace moxel::tool {

std::optional<int64_t> numberFromText(std::string_view text, int64_t lowest, int64_t highest) {
    const bool isNegative = text.starts_with('-');
    text.remove_prefix(isNegative ? 1 : 0);
    const bool isHexadecimal = text.starts_with("0x");
    text.remove_prefix(isHexadecimal ? 2 : 0);
    int64_t number = 0;
    const char *const end = text.data() + text.size();
    if (text.starts_with('-'))
        return std::nullopt;
    const auto [at, error] = std::from_chars(text.data(), end, number, isHexadecimal ? 16 : 10);
    if (error != std::errc() || at != end)
        return std::nullopt;
    number = isNegative ? -number : number;
    return number >= lowest && number <= highest ? std::optional(number) : std::nullopt;
}

} // namespace moxel::tool
