// printf-like text with "%@" for values, checked when it is compiled.
#pragma once

#include "../Platform/Export.h"
#include "Value.h"

#include <concepts>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

namespace moxel {

/// One argument of format().
class MOXEL_EXPORT FormatArgument {
  public:
    /// Which kinds of argument there are.
    enum class Type : uint8_t { integer, real, text, pointer, value };

    /// An integer.
    template <std::integral I>
    FormatArgument(I integer) noexcept
        : type_(Type::integer), content_{.integer = static_cast<uint64_t>(static_cast<int64_t>(integer))} {}
    /// A real number.
    template <std::floating_point F>
    FormatArgument(F real) noexcept : type_(Type::real), content_{.real = static_cast<double>(real)} {}
    /// Text; "(null)" for null.
    FormatArgument(const char *text) noexcept
        : type_(Type::text), text_(text ? std::string_view(text) : "(null)") {}
    /// Text.
    FormatArgument(std::string_view text) noexcept : type_(Type::text), text_(text) {}
    /// Text.
    FormatArgument(const std::string &text) noexcept : type_(Type::text), text_(text) {}
    FormatArgument(std::nullptr_t) noexcept : type_(Type::pointer) {}
    /// An address.
    FormatArgument(const void *pointer) noexcept : type_(Type::pointer), content_{.pointer = pointer} {}
    /// A value, for "%@".
    FormatArgument(const Value &value) noexcept : type_(Type::value), value_(value) {}
    /// A text, for "%@".
    FormatArgument(const String &value) noexcept : type_(Type::value), value_(value) {}

    /// Which of the accessors below holds.
    [[nodiscard]] Type type() const noexcept { return type_; }
    /// An integer's bits.
    [[nodiscard]] uint64_t integer() const noexcept { return content_.integer; }
    /// A real number.
    [[nodiscard]] double real() const noexcept { return content_.real; }
    /// An address.
    [[nodiscard]] const void *pointer() const noexcept { return content_.pointer; }
    /// A text.
    [[nodiscard]] std::string_view text() const noexcept { return text_; }
    /// A value.
    [[nodiscard]] const Value &value() const noexcept { return value_; }

  private:
    union Content {
        uint64_t integer; ///< Signed numbers extended to 64 bits.
        double real;
        const void *pointer;
    };

    Type type_;
    Content content_{};
    std::string_view text_;
    Value value_;
};

/// What format() does with a format that has been checked already.
[[nodiscard]] MOXEL_EXPORT std::string formatArguments(std::string_view text,
                                                       std::span<const FormatArgument> arguments);

namespace detail {

/// A conversion of a format: %[flags][width][.precision][length]letter
struct FormatConversion {
    bool isLeftAligned = false; ///< Flag '-'.
    bool isZeroPadded = false;  ///< Flag '0'.
    size_t width = 0;
    int precision = -1;        ///< -1 when none is given.
    unsigned integerBits = 32; ///< From the length mark: hh 8, h 16, l ll z 64.
    char letter = '\0';        ///< '\0' when the format ends too early.
};

/// Reads the conversion behind a '%' at the start of the text and removes it from there.
constexpr FormatConversion parseFormatConversion(std::string_view &text) {
    FormatConversion conversion;
    const auto take = [&text](char c) {
        const bool isThere = text.starts_with(c);
        text.remove_prefix(isThere ? 1 : 0);
        return isThere;
    };
    const auto number = [&text] {
        int value = 0;
        for (; !text.empty() && text[0] >= '0' && text[0] <= '9'; text.remove_prefix(1))
            value = value < 100'000 ? value * 10 + (text[0] - '0') : value;
        return value;
    };
    while (text.starts_with('-') || text.starts_with('0')) {
        conversion.isLeftAligned = conversion.isLeftAligned || text[0] == '-';
        conversion.isZeroPadded = conversion.isZeroPadded || text[0] == '0';
        text.remove_prefix(1);
    }
    conversion.width = static_cast<size_t>(number());
    if (take('.'))
        conversion.precision = number();
    if (take('h'))
        conversion.integerBits = take('h') ? 8 : 16;
    else if (take('z'))
        conversion.integerBits = 64;
    else if (take('l')) {
        take('l');
        conversion.integerBits = 64;
    }
    if (!text.empty()) {
        conversion.letter = text[0];
        text.remove_prefix(1);
    }
    return conversion;
}

template <class T>
inline constexpr FormatArgument::Type formatTypeOf = [] {
    using D = std::decay_t<T>;
    if constexpr (std::is_integral_v<D>)
        return FormatArgument::Type::integer;
    else if constexpr (std::is_floating_point_v<D>)
        return FormatArgument::Type::real;
    else if constexpr (std::is_convertible_v<D, std::string_view> && !std::is_null_pointer_v<D>)
        return FormatArgument::Type::text;
    else if constexpr (std::is_pointer_v<D> || std::is_null_pointer_v<D>)
        return FormatArgument::Type::pointer;
    else
        return FormatArgument::Type::value;
}();

/// Whether a conversion letter takes an argument of that type. "%@" takes text as well as values.
constexpr bool conversionTakes(char letter, FormatArgument::Type type) {
    switch (letter) {
    case 'd':
    case 'i':
    case 'u':
    case 'x':
    case 'X':
    case 'c':
        return type == FormatArgument::Type::integer;
    case 'f':
    case 'g':
        return type == FormatArgument::Type::real;
    case 's':
        return type == FormatArgument::Type::text;
    case 'p':
        return type == FormatArgument::Type::pointer;
    case '@':
        return type == FormatArgument::Type::value || type == FormatArgument::Type::text;
    default:
        return false;
    }
}

/// Whether the conversions of a format fit arguments of these types, one each.
constexpr bool formatFits(std::string_view text, std::span<const FormatArgument::Type> types) {
    size_t next = 0;
    for (size_t at = text.find('%'); at != std::string_view::npos; at = text.find('%')) {
        text.remove_prefix(at + 1);
        if (text.starts_with('%')) {
            text.remove_prefix(1);
            continue;
        }
        const char letter = parseFormatConversion(text).letter;
        if (next == types.size() || !conversionTakes(letter, types[next++]))
            return false;
    }
    return next == types.size();
}

/// Never defined: reaching it makes the compiler name the mistake.
void formatDoesNotFitItsArguments();

} // namespace detail

/// A format whose conversions fit arguments of these types; anything else does not compile.
/// Conversions: d i u x X c f g s p @ and %%, with flags 0 and -, a width, a precision, and the length marks
/// hh h l ll z.
template <class... Arguments>
class FormatString {
  public:
    /// Does not compile when the text does not fit the arguments.
    template <std::convertible_to<const char *> T>
    consteval FormatString(const T &text) : text_(text) {
        const FormatArgument::Type types[] = {detail::formatTypeOf<Arguments>..., {}};
        if (!detail::formatFits(text_, std::span(types, sizeof...(Arguments))))
            detail::formatDoesNotFitItsArguments();
    }
    /// The text itself.
    [[nodiscard]] constexpr std::string_view text() const { return text_; }

  private:
    std::string_view text_;
};

namespace detail {

struct Formatter {
    template <class... Arguments>
    [[nodiscard]] std::string operator()(FormatString<std::type_identity_t<Arguments>...> text,
                                         const Arguments &...arguments) const {
        const FormatArgument list[] = {FormatArgument(arguments)..., FormatArgument(0)};
        return formatArguments(text.text(), std::span(list, sizeof...(Arguments)));
    }
};

} // namespace detail

/// format("%s: %@", text, value): text from a format. Integers are cut or extended to the width that the
/// length mark names, as printf does, and "%@" prints a value's description, "(null)" for null. The same in
/// every locale. An object rather than a function, so that an argument of type std::string does not bring
/// std::format into the choice.
inline constexpr detail::Formatter format;

} // namespace moxel
