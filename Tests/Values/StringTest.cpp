// Text: UTF-8, UTF-16 and what is neither.
#include "Values/String.h"
#include "Values/UnicodeText.h"

#include <gtest/gtest.h>

namespace moxel {
namespace {

using namespace std::string_literals;
using namespace std::string_view_literals;

TEST(String, NullIsNotTheEmptyString) {
    const String null;
    EXPECT_FALSE(null);
    EXPECT_FALSE(String(static_cast<const char *>(nullptr)));
    EXPECT_TRUE(String(""));
    EXPECT_FALSE(null == String(""));
    EXPECT_TRUE(null == String(nullptr));
    EXPECT_EQ(null.view(), "");
    EXPECT_STREQ(null.c_str(), "");
    EXPECT_EQ(null.length(), 0u);
    EXPECT_EQ(String("").length(), 0u);
    EXPECT_EQ(String(std::string_view()).view(), "");
}

TEST(String, TextEndsWithAZeroByte) {
    const String text("abc"sv.substr(0, 2));
    EXPECT_STREQ(text.c_str(), "ab");
    EXPECT_EQ(text.view().data()[2], '\0');
}

TEST(String, HoldsZeroCharacters) {
    const String text("a\0b"s);
    EXPECT_EQ(text.view(), "a\0b"sv);
    EXPECT_EQ(text.length(), 3u);
    EXPECT_FALSE(text == String("a"));
}

TEST(String, CopiesShareTheirStorage) {
    const String text("text");
    String copy;
    copy = text;
    EXPECT_EQ(copy.node(), text.node());
    EXPECT_NE(String("text").node(), text.node());
    EXPECT_EQ(String("text"), text);
}

TEST(String, LengthCountsUTF16Units) {
    EXPECT_EQ(String("abcdefghijklmnop").length(), 16u);
    EXPECT_EQ(String("é").length(), 1u);
    EXPECT_EQ(String("abcdefghé€").length(), 10u);
    EXPECT_EQ(String("😀").length(), 2u);
    EXPECT_EQ(String("\xEF\xBF\xBF").length(), 1u);
    EXPECT_EQ(String("\xF4\x8F\xBF\xBF").length(), 2u);
}

TEST(String, ConvertsToAndFromUTF16) {
    const std::u16string units = u"aé€\uFFFF😀\0z"s;
    const String text = String::fromUTF16(units);
    EXPECT_EQ(text.view(), "aé€\uFFFF😀\0z"sv);
    EXPECT_EQ(text.length(), units.size());
    EXPECT_EQ(text.utf16(), units);
    EXPECT_TRUE(text.isWellFormed());
    EXPECT_EQ(String::fromUTF16({}).view(), "");
}

TEST(String, KeepsSurrogatesThatStandAlone) {
    for (const std::u16string &units :
         {u"\xD800"s, u"\xDFFF"s, u"a\xD83D"s, u"\xDE00\xD83D"s, u"\xD83D\xD83D\xDE00"s}) {
        const String text = String::fromUTF16(units);
        EXPECT_EQ(text.utf16(), units);
        EXPECT_EQ(text.length(), units.size());
        EXPECT_FALSE(text.isWellFormed());
    }
    EXPECT_EQ(String::fromUTF16(u"\xD800"s).view(), "\xED\xA0\x80");
}

TEST(String, EveryUTF16UnitRoundTrips) {
    std::u16string units;
    for (unsigned unit = 0; unit <= 0xFFFF; ++unit)
        units += static_cast<char16_t>(unit);
    EXPECT_EQ(String::fromUTF16(units).utf16(), units);
}

TEST(String, IllFormedSequencesBecomeReplacementCharacters) {
    const std::pair<std::string_view, std::string_view> cases[] = {
        {"\x80", "\uFFFD"},
        {"a\xC3", "a\uFFFD"},
        {"\xC3z", "\uFFFDz"},
        {"\xC0\x80", "\uFFFD\uFFFD"},                     // overlong
        {"\xE0\x80\x80", "\uFFFD\uFFFD\uFFFD"},           // overlong
        {"\xED\xA0\x80", "\uFFFD\uFFFD\uFFFD"},           // surrogate
        {"\xF4\x90\x80\x80", "\uFFFD\uFFFD\uFFFD\uFFFD"}, // beyond U+10FFFF
        {"\xF0\x9F\x98", "\uFFFD"},                       // cut off
        {"\xE2\x82z", "\uFFFDz"},
        {"\xFF\xFE", "\uFFFD\uFFFD"},
        {"abcdefgh\xFFijklmnop", "abcdefgh\uFFFDijklmnop"},
    };
    for (const auto &[bytes, expected] : cases) {
        const String text(bytes);
        EXPECT_EQ(text.view(), expected);
        EXPECT_EQ(text.length(), text.utf16().size());
        EXPECT_TRUE(text.isWellFormed());
        EXPECT_FALSE(String::fromUTF8(bytes)) << expected;
    }
}

TEST(String, StrictUTF8IsTakenAsItIs) {
    const std::string_view text = "aé€😀\xED\x9F\xBF\xEE\x80\x80\xF4\x8F\xBF\xBF";
    EXPECT_EQ(String::fromUTF8(text).view(), text);
    EXPECT_EQ(String(text).view(), text);
    EXPECT_TRUE(String::fromUTF8(""));
}

TEST(UnicodeText, SortsByUTF16Units) {
    // In this order by UTF-16 units; code points would put the fourth before the third.
    const std::u16string sorted[] = {
        u"", u"a", u"\xD7FF", u"\xD83D", u"\xD83D\xDE00", u"\xD83D\xE000", u"\xDE00", u"\xE000", u"\xFFFF"};
    for (const std::u16string &a : sorted)
        for (const std::u16string &b : sorted) {
            const std::string aBytes = String::fromUTF16(a).string();
            const std::string bBytes = String::fromUTF16(b).string();
            EXPECT_EQ(detail::precedesInUTF16(aBytes, bBytes), a < b);
        }
}

} // namespace
} // namespace moxel
