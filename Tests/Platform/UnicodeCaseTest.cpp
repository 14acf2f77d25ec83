// Lower case in every script.
#include "Platform/UnicodeCase.h"

#include <gtest/gtest.h>

namespace moxel {
namespace {

TEST(Lowercase, MapsAscii) {
    EXPECT_EQ(lowercase("ABC xyz [\\]^_ @Z`{ 019"), "abc xyz [\\]^_ @z`{ 019");
    EXPECT_EQ(lowercase(""), "");
}

TEST(Lowercase, MapsOtherScriptsCharacterByCharacter) {
    EXPECT_EQ(lowercase("\u00C4\u00D6\u00DC\u00DF"), "\u00E4\u00F6\u00FC\u00DF");
    EXPECT_EQ(lowercase("\u0391\u03A9 \u0416 \u0531"), "\u03B1\u03C9 \u0436 \u0561");
    EXPECT_EQ(lowercase("\U00010400"), "\U00010428");
    EXPECT_EQ(lowercase("\u65E5\u672C"), "\u65E5\u672C");
}

TEST(Lowercase, UsesNoContext) {
    EXPECT_EQ(lowercase("\u03A3\u03A3"), "\u03C3\u03C3"); // no final sigma
}

TEST(Lowercase, ResultMayBeShorterThanItsSource) {
    EXPECT_EQ(lowercase("\u212A\u2126"), "k\u03C9"); // Kelvin and ohm signs
}

TEST(Lowercase, KeepsBytesThatAreNotUtf8) {
    EXPECT_EQ(lowercase("A\xFF"
                        "B\xC3"
                        "C\xE6\x97"),
              "a\xFF"
              "b\xC3"
              "c\xE6\x97");
    EXPECT_EQ(lowercase(std::string_view("A\0B", 3)), std::string_view("a\0b", 3));
}

} // namespace
} // namespace moxel
