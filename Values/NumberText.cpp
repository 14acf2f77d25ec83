// Reads numbers as property lists spell them.
#include "NumberText.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <limits>
#include <locale.h>
#include <locale>

namespace moxel::detail {

namespace {

/// Gives this thread the "C" locale for a while: an application may have chosen one with a decimal comma.
class CLocaleScope {
  public:
    CLocaleScope() noexcept : previous_(uselocale(cLocale())) {}
    ~CLocaleScope() { uselocale(previous_); }
    CLocaleScope(const CLocaleScope &) = delete;
    CLocaleScope &operator=(const CLocaleScope &) = delete;

  private:
    static locale_t cLocale() noexcept {
        static const locale_t locale = newlocale(LC_ALL_MASK, "C", nullptr);
        return locale;
    }

    const locale_t previous_;
};

constexpr bool isDigit(char c) noexcept { return c >= '0' && c <= '9'; }

constexpr char lowercase(char c) noexcept { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }

bool equalsIgnoringCase(std::string_view text, std::string_view lowercaseText) noexcept {
    return std::ranges::equal(text, lowercaseText, {}, lowercase);
}

/// Takes a sign off the text; true when it is a minus.
bool takeSign(std::string_view &text) noexcept {
    const bool isNegative = text.starts_with('-');
    if (isNegative || text.starts_with('+'))
        text.remove_prefix(1);
    return isNegative;
}

/// Takes digits off the text; false when there are none.
bool takeDigits(std::string_view &text) noexcept {
    const auto end = std::ranges::find_if_not(text, isDigit);
    const auto count = static_cast<size_t>(end - text.begin());
    text.remove_prefix(count);
    return count > 0;
}

/// Digits with a point before, between or after them, then an exponent or none. Keeps out what strtod() takes
/// beyond that, as hexadecimal.
bool isDecimal(std::string_view text) noexcept {
    takeSign(text);
    bool hasDigits = takeDigits(text);
    if (text.starts_with('.')) {
        text.remove_prefix(1);
        hasDigits = takeDigits(text) || hasDigits;
    }
    if (hasDigits && !text.empty() && lowercase(text[0]) == 'e') {
        text.remove_prefix(1);
        takeSign(text);
        hasDigits = takeDigits(text);
    }
    return hasDigits && text.empty();
}

} // namespace

std::string_view trimmed(std::string_view text) noexcept {
    const auto isSpace = [](char c) { return c == ' ' || (c >= '\t' && c <= '\r'); };
    while (!text.empty() && isSpace(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isSpace(text.back()))
        text.remove_suffix(1);
    return text;
}

Value integerFromText(std::string_view text) {
    const bool isNegative = takeSign(text);
    const bool isHexadecimal = text.starts_with("0x") || text.starts_with("0X");
    if (isHexadecimal)
        text.remove_prefix(2);
    uint64_t magnitude = 0;
    const char *const end = text.data() + text.size();
    const auto [parsed, error] = std::from_chars(text.data(), end, magnitude, isHexadecimal ? 16 : 10);
    if (error != std::errc() || parsed != end)
        return {};
    constexpr auto largest = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
    if (isNegative)
        return magnitude <= largest + 1 ? Value(static_cast<int64_t>(0 - magnitude)) : Value();
    return magnitude <= largest ? Value(static_cast<int64_t>(magnitude)) : Value(magnitude);
}

std::optional<double> realFromText(std::string_view text) {
    if (isDecimal(text)) {
        const std::string terminated(text);
        const CLocaleScope scope;
        return std::strtod(terminated.c_str(), nullptr);
    }
    const double sign = takeSign(text) ? -1 : 1;
    if (equalsIgnoringCase(text, "nan"))
        return std::numeric_limits<double>::quiet_NaN();
    if (equalsIgnoringCase(text, "inf") || equalsIgnoringCase(text, "infinity"))
        return sign * std::numeric_limits<double>::infinity();
    return std::nullopt;
}

} // namespace moxel::detail
