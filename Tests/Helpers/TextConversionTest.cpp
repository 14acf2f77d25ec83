// Conversions between strings and the text forms of the HID interface.
#include "Helpers/TextConversion.h"

#include <gtest/gtest.h>

namespace moxel {
namespace {

TEST(TextConversion, UTF32KeepsEveryCharacterAndMarksLoneSurrogates) {
    EXPECT_EQ(utf32FromUTF16(u"aä€😀"), U"aä€😀");
    const char16_t broken[] = {0xD83D, u'x', 0xDE00, 0xD83D};
    EXPECT_EQ(utf32FromUTF16({broken, 4}), U"?x??");
}

TEST(TextConversion, StringFromUTF32RoundTrips) {
    EXPECT_EQ(stringFromUTF32(U"aä€😀"), String("aä€😀"));
    const char32_t bad[] = {0x110000, 0xD800, U'x', 0};
    EXPECT_EQ(stringFromUTF32(bad), String("\uFFFD\uFFFDx"));
    EXPECT_EQ(stringFromUTF32(U""), String(""));
}

TEST(TextConversion, TrimsSpacesAtBothEndsOnly) {
    EXPECT_EQ(stringByTrimmingWhitespace("  Moxel \t"), String("Moxel"));
    EXPECT_EQ(stringByTrimmingWhitespace("\u00A0\u2003a b\u3000"), String("a b"));
    EXPECT_EQ(stringByTrimmingWhitespace(" \t "), String(""));
    EXPECT_EQ(stringByTrimmingWhitespace(""), String(""));
}

TEST(TextConversion, PrefixCountsUTF16UnitsAndBytes) {
    EXPECT_EQ(prefixOfUTF8("abcdef", 3, 100), "abc");
    EXPECT_EQ(prefixOfUTF8("äöü", 2, 100), "äö");
    EXPECT_EQ(prefixOfUTF8("a😀b", 2, 100), "a") << "a character of two units is not cut";
    EXPECT_EQ(prefixOfUTF8("a😀b", 3, 100), "a😀");
    EXPECT_EQ(prefixOfUTF8("äöü", 10, 3), "ä\xC3") << "the limit of bytes cuts";
    EXPECT_EQ(prefixOfUTF8("", 3, 3), "");
}

} // namespace
} // namespace moxel
