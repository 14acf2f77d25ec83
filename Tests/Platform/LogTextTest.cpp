// Escaping of text of unknown origin, and the UTF-8 walk under it.
#include "Platform/LogText.h"
#include "Platform/Utf8.h"

#include <gtest/gtest.h>

namespace moxel {
namespace {

TEST(PrintableText, LeavesOrdinaryTextInEveryScriptAlone) {
    EXPECT_EQ(printableText("plain, caf\xC3\xA9, \xE6\x97\xA5\xE6\x9C\xAC, \xF0\x9F\x99\x82 \\n"),
              "plain, caf\xC3\xA9, \xE6\x97\xA5\xE6\x9C\xAC, \xF0\x9F\x99\x82 \\n");
    EXPECT_EQ(printableText(""), "");
}

TEST(PrintableText, EscapesEveryControlCharacter) {
    EXPECT_EQ(printableText(std::string_view("\0\a\n\r\t\x1b\x1f\x7f", 8)),
              "\\x00\\x07\\n\\r\\t\\x1b\\x1f\\x7f");
    EXPECT_EQ(printableText("\xC2\x80\xC2\x9F\xC2\xA0"), "\\xc2\\x80\\xc2\\x9f\xC2\xA0");
}

TEST(PrintableText, EscapesBytesThatAreNotUtf8) {
    EXPECT_EQ(printableText("\x9B"
                            "31m"),
              "\\x9b31m");
    EXPECT_EQ(printableText("\xC3(\xE6\x97"), "\\xc3(\\xe6\\x97");
    EXPECT_EQ(printableText("\xED\xA0\x80\xC0\x80"), "\\xed\\xa0\\x80\\xc0\\x80");
}

TEST(Utf8, TellsWellFormedFromIllFormed) {
    EXPECT_TRUE(isUtf8(""));
    EXPECT_TRUE(isUtf8("a\xC3\xA9\xF4\x8F\xBF\xBD"));
    EXPECT_TRUE(isUtf8(std::string_view("\0", 1)));
    for (const char *bad : {"\x80", "\xC3", "a\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xFF"})
        EXPECT_FALSE(isUtf8(bad)) << printableText(bad);
}

TEST(Utf8, IllFormedByteIsTakenAlone) {
    const auto character = firstUtf8Character("\xE6\x97z");
    EXPECT_FALSE(character.isWellFormed());
    EXPECT_EQ(character.bytes.size(), 1u);
}

} // namespace
} // namespace moxel
