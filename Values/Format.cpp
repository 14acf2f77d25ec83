// printf-like text with "%@" for values.
#include "Format.h"

#include "RealText.h"

#include <algorithm>
#include <cassert>
#include <cmath>

namespace moxel {

namespace {

using detail::FormatConversion;

/// A number or text before it is padded: zeros go between the two halves.
struct Field {
    std::string_view prefix; ///< Sign or "0x".
    std::string digits;
    bool takesZeros = true; ///< Whether the flag '0' pads it.
};

std::string digitsOf(uint64_t number, unsigned base, bool isUpperCase) {
    const std::string_view characters = isUpperCase ? "0123456789ABCDEF" : "0123456789abcdef";
    std::string reversed;
    for (; number != 0; number /= base)
        reversed += characters[number % base];
    return {reversed.rbegin(), reversed.rend()};
}

/// The low bits of an integer.
uint64_t cut(uint64_t integer, unsigned bits) {
    return bits == 64 ? integer : integer & ((uint64_t{1} << bits) - 1);
}

Field integerField(const FormatConversion &conversion, uint64_t integer) {
    Field field;
    integer = cut(integer, conversion.integerBits);
    const bool isSigned = conversion.letter == 'd' || conversion.letter == 'i';
    if (isSigned && integer >> (conversion.integerBits - 1) != 0) {
        field.prefix = "-";
        integer = cut(0 - integer, conversion.integerBits);
    }
    const bool isHexadecimal = conversion.letter == 'x' || conversion.letter == 'X';
    field.digits = digitsOf(integer, isHexadecimal ? 16 : 10, conversion.letter == 'X');
    const size_t minDigits = conversion.precision < 0 ? 1 : static_cast<size_t>(conversion.precision);
    field.digits.insert(0, minDigits - std::min(minDigits, field.digits.size()), '0');
    field.takesZeros = conversion.precision < 0;
    return field;
}

Field realField(const FormatConversion &conversion, double real) {
    Field field;
    const int precision = conversion.precision < 0 ? 6 : conversion.precision;
    field.prefix = std::signbit(real) ? "-" : "";
    field.digits = detail::realText(std::fabs(real), conversion.letter, precision);
    field.takesZeros = std::isfinite(real);
    return field;
}

Field textField(const FormatConversion &conversion, std::string_view text) {
    const bool isCut = conversion.letter == 's' && conversion.precision >= 0;
    return {"", std::string(isCut ? text.substr(0, static_cast<size_t>(conversion.precision)) : text), false};
}

Field fieldOf(const FormatConversion &conversion, const FormatArgument &argument) {
    switch (argument.type()) {
    case FormatArgument::Type::integer:
        if (conversion.letter == 'c')
            return {"", std::string(1, static_cast<char>(argument.integer())), false};
        return integerField(conversion, argument.integer());
    case FormatArgument::Type::real:
        return realField(conversion, argument.real());
    case FormatArgument::Type::pointer: {
        const auto address = reinterpret_cast<uintptr_t>(argument.pointer());
        return {"0x", address == 0 ? "0" : digitsOf(address, 16, false)};
    }
    case FormatArgument::Type::text:
        return textField(conversion, argument.text());
    case FormatArgument::Type::value:
        return textField(conversion, argument.value().description());
    }
    return {}; // For compilers that do not count the cases.
}

void appendField(std::string &text, const FormatConversion &conversion, const Field &field) {
    const size_t size = field.prefix.size() + field.digits.size();
    const size_t padding = conversion.width - std::min(conversion.width, size);
    const bool isZeroPadded = conversion.isZeroPadded && !conversion.isLeftAligned && field.takesZeros;
    if (!conversion.isLeftAligned && !isZeroPadded)
        text.append(padding, ' ');
    text += field.prefix;
    if (isZeroPadded)
        text.append(padding, '0');
    text += field.digits;
    if (conversion.isLeftAligned)
        text.append(padding, ' ');
}

} // namespace

std::string formatArguments(std::string_view text, std::span<const FormatArgument> arguments) {
    std::string result;
    size_t next = 0;
    for (size_t at = text.find('%'); at != std::string_view::npos; at = text.find('%')) {
        result += text.substr(0, at);
        text.remove_prefix(at + 1);
        if (text.starts_with('%')) {
            result += '%';
            text.remove_prefix(1);
            continue;
        }
        const FormatConversion conversion = detail::parseFormatConversion(text);
        assert(next < arguments.size());
        appendField(result, conversion, fieldOf(conversion, arguments[next++]));
    }
    return result += text;
}

} // namespace moxel
