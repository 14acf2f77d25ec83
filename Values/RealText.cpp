// Reals as printf prints them.
#include "RealText.h"

#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace moxel::detail {

namespace {

/// Text in the locale of the moment.
std::string localText(double real, char conversion, int precision) {
    const char format[] = {'%', '.', '*', conversion, '\0'};
    std::string text(24, '\0');
    for (;;) {
        const int size = std::snprintf(text.data(), text.size() + 1, format, precision, real);
        const bool fits = static_cast<size_t>(size) <= text.size();
        text.resize(static_cast<size_t>(size));
        if (fits)
            return text;
    }
}

/// The same text with a point where the locale, which the application may set, has something else.
std::string withPoint(std::string text) {
    constexpr std::string_view others = "+-0123456789abcdefghijklmnopqrstuvwxyz";
    const size_t from = text.find_first_not_of(others);
    if (from != std::string::npos) {
        const size_t to = text.find_first_of(others, from);
        text[from] = '.';
        text.erase(from + 1, to - from - 1);
    }
    return text;
}

} // namespace

std::string realText(double real, char conversion, int precision) {
    return withPoint(localText(real, conversion, precision));
}

std::string shortestRealText(double real) {
    if (std::isnan(real))
        return "nan";
    // 'g' drops zeros at the end, so that a normal number that fewer digits express shows them at DBL_DIG.
    int digits = std::fpclassify(real) == FP_SUBNORMAL ? 1 : DBL_DIG;
    std::string text = localText(real, 'g', digits);
    while (digits < DBL_DECIMAL_DIG && std::strtod(text.c_str(), nullptr) != real)
        text = localText(real, 'g', ++digits);
    return withPoint(std::move(text));
}

} // namespace moxel::detail
