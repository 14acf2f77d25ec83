// printf-like text.
#include "Values/Format.h"
#include "Support/CommaLocale.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace moxel {
namespace {

using test::CommaLocale;

/// What the C library prints.
template <class... Arguments>
std::string printed(const std::string &text, Arguments... arguments) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
    std::string result(static_cast<size_t>(std::snprintf(nullptr, 0, text.c_str(), arguments...)), '\0');
    std::snprintf(result.data(), result.size() + 1, text.c_str(), arguments...);
#pragma GCC diagnostic pop
    return result;
}

/// What this library prints, the format not known when the test is compiled.
template <class Argument>
std::string formatted(const std::string &text, const Argument &argument) {
    const FormatArgument list[] = {FormatArgument(argument)};
    return formatArguments(text, list);
}

const std::string flagSets[] = {"", "-", "0", "-0", "0-"};
const std::string widths[] = {"", "1", "2", "8", "12", "30"};
const std::string precisions[] = {"", ".", ".0", ".1", ".3", ".12", ".25"};

/// Every layout of a conversion, without its length mark and letter.
std::vector<std::string> layouts() {
    std::vector<std::string> layouts;
    for (const std::string &flags : flagSets)
        for (const std::string &width : widths)
            for (const std::string &precision : precisions)
                layouts.push_back(std::string("<%").append(flags).append(width).append(precision));
    return layouts;
}

TEST(Format, IntegersPrintAsTheCLibraryPrintsThem) {
    const int64_t values[] = {
        0,         1,          -1,        7,         -7,         42,           127,     128,
        255,       -128,       32767,     32768,     65535,      -32768,       1000000, INT32_MAX,
        INT32_MIN, 0xFFFFFFFF, INT64_MAX, INT64_MIN, 0x6D76506F, -123456789012};
    for (const std::string &layout : layouts())
        for (const char letter : std::string("diuxX"))
            for (const int64_t value : values) {
                const auto check = [&, value](const std::string &mark, auto argument) {
                    const std::string text = layout + mark + letter + ">";
                    ASSERT_EQ(formatted(text, value), printed(text, argument)) << text << " of " << value;
                };
                check("", static_cast<int>(value));
                check("h", static_cast<int>(static_cast<short>(value)));
                check("hh", static_cast<int>(static_cast<signed char>(value)));
                check("l", static_cast<long>(value));
                check("ll", static_cast<long long>(value));
                check("z", static_cast<ssize_t>(value));
            }
}

TEST(Format, RealsPrintAsTheCLibraryPrintsThem) {
    const double values[] = {0.0,
                             -0.0,
                             1.0,
                             -1.5,
                             0.1,
                             1e-5,
                             123456.789,
                             1e6,
                             1e20,
                             1e300,
                             2.5,
                             3.5,
                             -1e-300,
                             HUGE_VAL,
                             -HUGE_VAL,
                             999999.5,
                             std::numeric_limits<double>::denorm_min()};
    for (const std::string &layout : layouts())
        for (const char letter : std::string("fg"))
            for (const double value : values) {
                const std::string text = layout + letter + ">";
                ASSERT_EQ(formatted(text, value), printed(text, value)) << text << " of " << value;
            }
    EXPECT_EQ(format("%f", std::nan("")), "nan");
    EXPECT_EQ(format("%05.1f|%-7g|", std::nan(""), 1.5f), "  nan|1.5    |");
}

TEST(Format, TextPrintsAsTheCLibraryPrintsIt) {
    for (const std::string &layout : layouts()) {
        if (layout.find('0') == 2 || layout.find("-0") != std::string::npos)
            continue; // C leaves the flag 0 undefined for text.
        for (const char *value : {"", "a", "text", "a longer text that exceeds all widths"}) {
            const std::string text = layout + "s>";
            ASSERT_EQ(formatted(text, value), printed(text, value)) << text;
        }
    }
}

TEST(Format, CharactersPrintAsTheCLibraryPrintsThem) {
    for (const std::string text : {"%c", "<%5c>", "<%-5c>"})
        for (const int value : {65, 0x141, 255, -56})
            EXPECT_EQ(formatted(text, value), printed(text, value));
    EXPECT_EQ(format("%c", 0), std::string(1, '\0'));
    EXPECT_EQ(format("%c%c%c%c", 0x6D, 0x76, 0x50, 0x6F), "mvPo");
}

TEST(Format, IntegersAreCutToTheirLengthMark) {
    EXPECT_EQ(format("%i", int64_t{0x1FFFFFFFF}), "-1");
    EXPECT_EQ(format("%u", UINT64_MAX), "4294967295");
    EXPECT_EQ(format("%lx", -1), "ffffffffffffffff");
    EXPECT_EQ(format("%lx", 0xFFFFFFFFu), "ffffffff");
    EXPECT_EQ(format("%llX", UINT64_MAX), "FFFFFFFFFFFFFFFF");
    EXPECT_EQ(format("%08X", uint8_t{0xAB}), "000000AB");
    EXPECT_EQ(format("%x", int8_t{-1}), "ffffffff");
    EXPECT_EQ(format("%hhx", -1), "ff");
    EXPECT_EQ(format("%i", true), "1");
    EXPECT_EQ(format("%-5d|%02d|%lu", 42, 7, size_t{9}), "42   |07|9");
}

TEST(Format, PointersPrintInHexadecimal) {
    int variable = 0;
    EXPECT_EQ(format("%p", &variable), printed("%p", static_cast<void *>(&variable)));
    EXPECT_EQ(format("%p", static_cast<const void *>(nullptr)), "0x0");
    EXPECT_EQ(format("%p", nullptr), "0x0");
    EXPECT_EQ(format("<%6p>", nullptr), "<   0x0>");
}

TEST(Format, ValuesPrintTheirDescription) {
    EXPECT_EQ(format("%@ and %@", Value(5), Array{1}), "5 and (\n    1\n)");
    EXPECT_EQ(format("%@", Value()), "(null)");
    EXPECT_EQ(format("%@", String()), "(null)");
    EXPECT_EQ(format("%@", String("a b")), "a b");
    EXPECT_EQ(format("%@", Dictionary()), "(null)");
    EXPECT_EQ(format("%@", "text"), "text");
    EXPECT_EQ(format("<%6@>", String("abc")), "<   abc>");
}

TEST(Format, TextOfEveryType) {
    EXPECT_EQ(format("%s %s %s", "a", std::string("b"), std::string_view("c")), "a b c");
    EXPECT_EQ(format("%s", static_cast<const char *>(nullptr)), "(null)");
    char buffer[] = "buffer";
    EXPECT_EQ(format("%s", buffer), "buffer");
    EXPECT_EQ(format("%s", std::string("a\0b", 3)), std::string("a\0b", 3));
}

TEST(Format, LiteralTextStands) {
    EXPECT_EQ(format("nothing"), "nothing");
    EXPECT_EQ(format(""), "");
    EXPECT_EQ(format("100%%"), "100%");
    EXPECT_EQ(format("%%%d%%d", 5), "%5%d");
}

TEST(Format, LongTextIsNotCut) {
    const std::string longText(100'000, 'x');
    EXPECT_EQ(format("<%s>", longText), "<" + longText + ">");
    EXPECT_EQ(format("%f", 1e308).size(), printed("%f", 1e308).size());
    EXPECT_EQ(format("%.400f", 0.5), printed("%.400f", 0.5));
}

TEST(Format, DoesNotFollowTheLocale) {
    const CommaLocale locale;
    if (!locale.isSet())
        GTEST_SKIP() << "no locale with a decimal comma, nor the means to make one";
    ASSERT_EQ(printed("%.1f", 1.5), "1,5");
    EXPECT_EQ(format("%.1f %g %8.2f %d", 1.5, 2.25, -1234567.5, 1000000), "1.5 2.25 -1234567.50 1000000");
}

template <class... Arguments>
constexpr bool fits(std::string_view text) {
    const FormatArgument::Type types[] = {detail::formatTypeOf<Arguments>..., {}};
    return detail::formatFits(text, std::span(types, sizeof...(Arguments)));
}

// What the compiler accepts and refuses.
static_assert(fits<>("plain"));
static_assert(fits<>("%%"));
static_assert(fits<int, const char *, double, void *>("%d %s %f %p"));
static_assert(fits<Value, String, Dictionary, const char *>("%@%@%@%@"));
static_assert(fits<bool, char, uint64_t, int8_t>("%i%c%llX%hhx"));
static_assert(fits<int>("%-08.3ld"));
static_assert(!fits<>("%d"));
static_assert(!fits<>("100%"));
static_assert(!fits<int>("plain"));
static_assert(!fits<int>("%s"));
static_assert(!fits<const char *>("%d"));
static_assert(!fits<int>("%f"));
static_assert(!fits<double>("%d"));
static_assert(!fits<Value>("%d"));
static_assert(!fits<Value>("%s"));
static_assert(!fits<int>("%@"));
static_assert(!fits<int>("%5"));
static_assert(!fits<int>("%y"));
static_assert(!fits<int>("%n"));
static_assert(!fits<int>("%l5d"));
static_assert(!fits<int, int>("%*d"));
static_assert(!fits<int, int>("%d"));

} // namespace
} // namespace moxel
