// Property lists in old-style text form, read.
#include "Support/CommaLocale.h"
#include "Support/PropertyLists.h"

#include <gmock/gmock.h>

namespace moxel {
namespace {

using test::asBytes;
using test::CommaLocale;
using test::ExactText;
using test::outcomeOf;
using ::testing::HasSubstr;

std::string outcome(std::string_view text, Mutability mutability = Mutability::immutable) {
    return outcomeOf(readOpenStepPropertyList(asBytes(text), mutability));
}

std::u16string unitsOf(std::string_view text) {
    const Result<Value> read = readOpenStepPropertyList(asBytes(text), Mutability::immutable);
    EXPECT_TRUE(read) << read.error().message;
    return read ? read->asString().utf16() : std::u16string();
}

TEST(OpenStepPropertyListReader, ReadsStringsWithoutQuotes) {
    EXPECT_EQ(outcome("abc"), R"("abc")");
    EXPECT_EQ(outcome(" aZ09_$/:.- \n"), R"("aZ09_$/:.-")");
    EXPECT_EQ(outcome("(http://x/y, \u00E9t\u00E9)"), "[\"http://x/y\", \"\u00E9t\u00E9\"]");
    EXPECT_EQ(outcome("(-1, 1.5, YES)"), R"(["-1", "1.5", "YES"])");
}

TEST(OpenStepPropertyListReader, ReadsQuotedStrings) {
    EXPECT_EQ(outcome(R"("")"), R"("")");
    EXPECT_EQ(outcome(R"("a 'b' // c")"), R"("a 'b' // c")");
    EXPECT_EQ(outcome(R"('a "b" {;}')"), R"("a \"b\" {;}")");
    EXPECT_EQ(outcome("\"two\nlines\""), R"("two\x0alines")");
    EXPECT_EQ(outcome(std::string_view("\"a\0b\"", 5)), R"("a\x00b")");
}

TEST(OpenStepPropertyListReader, ReadsEscapes) {
    EXPECT_EQ(outcome(R"("\a\b\f\n\r\t\v")"), R"("\x07\x08\x0c\x0a\x0d\x09\x0b")");
    EXPECT_EQ(outcome(R"("\"\'\\\q\/")"), R"("\"'\\q/")");
    EXPECT_EQ(outcome(R"('\'\"')"), R"("'\"")");
    EXPECT_EQ(outcome("\"a\\\nb\\\u00E9\""), "\"a\\x0ab\u00E9\"");
}

TEST(OpenStepPropertyListReader, ReadsOctalEscapesInTheNextStepEncoding) {
    EXPECT_EQ(unitsOf(R"("\0\7\12\101\1018\60")"), std::u16string({0, 7, 10, u'A', u'A', u'8', u'0'}));
    EXPECT_EQ(unitsOf(R"("\200\341\256\373\375")"), std::u16string({0xA0, 0xC6, 0xFB01, 0xDF, 0xFF}));
    EXPECT_EQ(unitsOf(R"("\376\377")"), std::u16string({0xFFFD, 0xFFFD}));
    // Nine bits are cut to eight.
    EXPECT_EQ(unitsOf(R"("\501\763")"), std::u16string({u'A', 0xFA}));
}

TEST(OpenStepPropertyListReader, ReadsUnicodeEscapes) {
    EXPECT_EQ(unitsOf(R"("\U00e9\u20AC\U41\U9x")"), std::u16string({0xE9, 0x20AC, u'A', 9, u'x'}));
    EXPECT_EQ(unitsOf(R"("\U12345")"), std::u16string({0x1234, u'5'}));
    EXPECT_EQ(outcome(R"("\Ud83d\ude30")"), "\"\U0001F630\"");
    EXPECT_EQ(unitsOf(R"("\ude30\Ud83d")"), std::u16string({0xDE30, 0xD83D}));
    EXPECT_THAT(outcome(R"("\Ux")"), HasSubstr("lacks its hexadecimal digits"));
    EXPECT_THAT(outcome(R"("\U")"), HasSubstr("lacks its hexadecimal digits"));
}

TEST(OpenStepPropertyListReader, ReadsData) {
    EXPECT_EQ(outcome("<0fbd77 1c>"), "<0fbd771c>");
    EXPECT_EQ(outcome("< 0F\n\tbd >"), "<0fbd>");
    EXPECT_EQ(outcome("<>"), "<>");
    EXPECT_EQ(outcome("(<42>, <>)"), "[<42>, <>]");
    for (const char *text : {"<0>", "<0f b>", "<0 f>", "<0g>", "<--1>", "<0x1f>"})
        EXPECT_THAT(outcome(text), HasSubstr("pairs of hexadecimal digits")) << text;
    EXPECT_THAT(outcome("<0f"), HasSubstr("'>' is missing"));
}

TEST(OpenStepPropertyListReader, ReadsBase64) {
    EXPECT_EQ(outcome("<[AQID]>"), "<010203>");
    EXPECT_EQ(outcome("<[AQ ID\nAQ==]>"), "<01020301>");
    EXPECT_EQ(outcome("<[]>"), "<>");
    EXPECT_THAT(outcome("<[AQI]>"), HasSubstr("malformed base64"));
    EXPECT_THAT(outcome("<[>"), HasSubstr("pairs of hexadecimal digits"));
}

TEST(OpenStepPropertyListReader, ReadsTypedValues) {
    EXPECT_EQ(outcome("<*I5>"), "5");
    EXPECT_EQ(outcome("<*I-9223372036854775808>"), "-9223372036854775808");
    EXPECT_EQ(outcome("<*I18446744073709551615>"), "18446744073709551615");
    EXPECT_EQ(outcome("<*R1.5>"), "real(1.5)");
    EXPECT_EQ(outcome("<*R-1e-3>"), "real(-0.001)");
    EXPECT_EQ(outcome("<*Rinf>"), "real(inf)");
    EXPECT_EQ(outcome("<*BY>"), "true");
    EXPECT_EQ(outcome("<*BN>"), "false");
    EXPECT_EQ(outcome("<*D2004-10-26 10:33:33 +0000>"), "date(120479613)");
    EXPECT_EQ(outcome("<*D2004-10-26 10:33:33 +0130>"), "date(120474213)");
    EXPECT_EQ(outcome("<*D2004-10-26 10:33:33 -0130>"), "date(120485013)");
    EXPECT_EQ(outcome("<*I\"5\">"), "5");
}

TEST(OpenStepPropertyListReader, RefusesOtherTypedValues) {
    for (const char *text :
         {"<*>", "<*I>", "<*I1.5>", "<*I18446744073709551616>", "<*I 5>", "<*R>", "<*Rx>", "<*R1,5>", "<*B>",
          "<*BX>", "<*BYES>", "<*D>", "<*D2004-10-26>", "<*D2004-10-26 10:33:33>",
          "<*D2004-13-26 10:33:33 +0000>", "<*D2004-10-26T10:33:33Z>", "<*X1>", "<*\"\">"})
        EXPECT_THAT(outcome(text), HasSubstr("malformed typed value")) << text;
}

TEST(OpenStepPropertyListReader, ReadsTypedRealsInAnyLocale) {
    const CommaLocale locale;
    if (!locale.isSet())
        GTEST_SKIP() << "no locale with a decimal comma can be made";
    EXPECT_EQ(readOpenStepPropertyList(asBytes("<*R1.5>"), Mutability::immutable).value(), Value(1.5));
}

TEST(OpenStepPropertyListReader, ReadsArrays) {
    EXPECT_EQ(outcome("()"), "[]");
    EXPECT_EQ(outcome("( a, 'b' ,\"c\",<01>,(),{} )"), R"(["a", "b", "c", <01>, [], {}])");
    EXPECT_EQ(outcome("(a,)"), R"(["a"])");
}

TEST(OpenStepPropertyListReader, RefusesMalformedArrays) {
    EXPECT_THAT(outcome("(a b)"), HasSubstr("',' or ')' is missing"));
    EXPECT_THAT(outcome("(a;)"), HasSubstr("',' or ')' is missing"));
    EXPECT_THAT(outcome("(,a)"), HasSubstr("unexpected character"));
    EXPECT_THAT(outcome("(a,,b)"), HasSubstr("unexpected character"));
    EXPECT_THAT(outcome("(a"), HasSubstr("',' or ')' is missing"));
    EXPECT_THAT(outcome("(a,"), HasSubstr("an array is not closed"));
    EXPECT_THAT(outcome("("), HasSubstr("an array is not closed"));
    EXPECT_THAT(outcome("(}"), HasSubstr("unexpected character"));
    EXPECT_THAT(outcome("+"), HasSubstr("unexpected character"));
}

TEST(OpenStepPropertyListReader, ReadsDictionaries) {
    EXPECT_EQ(outcome("{}"), "{}");
    EXPECT_EQ(outcome("{ b = 1; \"a a\" = { c = (d, e); }; 'x' = <00>; }"),
              R"({"b": "1", "a a": {"c": ["d", "e"]}, "x": <00>})");
    EXPECT_EQ(outcome("{a=b;c;\"d e\";}"), R"({"a": "b", "c": "c", "d e": "d e"})");
}

TEST(OpenStepPropertyListReader, TheLastSemicolonMayBeMissing) {
    EXPECT_EQ(outcome("{a = b}"), R"({"a": "b"})");
    EXPECT_EQ(outcome("{a = (b); c = d }"), R"({"a": ["b"], "c": "d"})");
    EXPECT_EQ(outcome("a = b"), R"({"a": "b"})");
}

TEST(OpenStepPropertyListReader, RefusesMalformedDictionaries) {
    EXPECT_THAT(outcome("{a = b c = d;}"), HasSubstr("';' or the end of the dictionary is missing"));
    EXPECT_THAT(outcome("{a b;}"), HasSubstr("'=' is missing"));
    EXPECT_THAT(outcome("{a}"), HasSubstr("'=' is missing"));
    EXPECT_THAT(outcome("{a = ;}"), HasSubstr("unexpected character"));
    EXPECT_THAT(outcome("{= b;}"), HasSubstr("unexpected character"));
    EXPECT_THAT(outcome("{;}"), HasSubstr("unexpected character"));
    EXPECT_THAT(outcome("{(a) = b;}"), HasSubstr("unexpected character"));
    EXPECT_THAT(outcome("{a = b;"), HasSubstr("a dictionary is not closed"));
    EXPECT_THAT(outcome("{a = "), HasSubstr("the text ends where something is missing"));
    EXPECT_THAT(outcome("{"), HasSubstr("a dictionary is not closed"));
    EXPECT_THAT(outcome("{a = b;)"), HasSubstr("unexpected character"));
}

TEST(OpenStepPropertyListReader, OfEqualKeysTheLastCounts) {
    EXPECT_EQ(outcome("{k = 1; l = 2; k = 3;}"), R"({"k": "3", "l": "2"})");
}

TEST(OpenStepPropertyListReader, ReadsDictionariesWithoutBraces) {
    EXPECT_EQ(outcome("a = b;"), R"({"a": "b"})");
    EXPECT_EQ(outcome("/* one */ \"a b\" = \"c\";\n\nd = (e);\n f;\n g = {h = i;};"),
              R"({"a b": "c", "d": ["e"], "f": "f", "g": {"h": "i"}})");
    EXPECT_THAT(outcome("a = b; }"), HasSubstr("unexpected character"));
    EXPECT_THAT(outcome("a = b; )"), HasSubstr("unexpected character"));
    EXPECT_THAT(outcome("a b"), HasSubstr("'=' is missing"));
}

TEST(OpenStepPropertyListReader, NoEntriesAtAllAreAnEmptyDictionary) {
    EXPECT_EQ(outcome(""), "{}");
    EXPECT_EQ(outcome(" \n\t"), "{}");
    EXPECT_EQ(outcome("// nothing\n/* at all */"), "{}");
    EXPECT_EQ(outcome("\xEF\xBB\xBF"), "{}");
}

TEST(OpenStepPropertyListReader, RefusesTextAfterTheEnd) {
    EXPECT_THAT(outcome("(a) b"), HasSubstr("more text after the end"));
    EXPECT_THAT(outcome("{} {}"), HasSubstr("more text after the end"));
    EXPECT_THAT(outcome("<00> ="), HasSubstr("more text after the end"));
    EXPECT_EQ(outcome("(a) // b"), R"(["a"])");
}

TEST(OpenStepPropertyListReader, SkipsCommentsAndWhiteSpace) {
    EXPECT_EQ(outcome("/**/(/* , */a // )\n,/*/b/*/c)"), R"(["a", "c"])");
    EXPECT_EQ(outcome("(a,// x\rb)"), R"(["a", "b"])");
    EXPECT_EQ(outcome("\v\f\r\u2028\u2029(a\u2028,\u2029b // x\u2028)"), R"(["a", "b"])");
    EXPECT_EQ(outcome("// !$*UTF8*$!\n{a = b;}"), R"({"a": "b"})");
    EXPECT_EQ(outcome("(a/b, a//b, a/ /*c*/, /d)"), R"(["a/b", "a//b", "a/", "/d"])");
    EXPECT_THAT(outcome("(a) /* b"), HasSubstr("a comment is not closed"));
    EXPECT_THAT(outcome("/*/"), HasSubstr("a comment is not closed"));
}

TEST(OpenStepPropertyListReader, RefusesStringsThatAreNotClosed) {
    EXPECT_THAT(outcome("\"abc"), HasSubstr("a string is not closed"));
    EXPECT_THAT(outcome("\"abc\\"), HasSubstr("ends inside an escape"));
    EXPECT_THAT(outcome("\"abc\\\""), HasSubstr("a string is not closed"));
    EXPECT_THAT(outcome("'abc\""), HasSubstr("a string is not closed"));
}

TEST(OpenStepPropertyListReader, NamesTheLine) {
    EXPECT_THAT(outcome("(a,\n b,\n +)"), HasSubstr("unexpected character at line 3"));
    EXPECT_THAT(outcome("{\n\n\"abc"), HasSubstr("a string is not closed; it begins at line 3"));
    EXPECT_THAT(outcome("{\n a = \"\xFF\"; }"), HasSubstr("ill-formed UTF-8 at line 2"));
}

TEST(OpenStepPropertyListReader, RefusesIllFormedUTF8) {
    for (const char *text : {"\"\xFF\"", "\xC0\x80", "\"\xED\xA0\x80\"", "(\xE2\x82)", "// \x80\n()"})
        EXPECT_THAT(outcome(text), HasSubstr("ill-formed UTF-8")) << text;
}

TEST(OpenStepPropertyListReader, ReadsUTF16WithAndWithoutMark) {
    EXPECT_EQ(outcome(std::string_view("\xFE\xFF\0\"\0\xE9\0\"", 8)), "\"\u00E9\"");
    EXPECT_EQ(outcome(std::string_view("\xFF\xFE\"\0\xE9\0\"\0", 8)), "\"\u00E9\"");
    EXPECT_EQ(outcome(std::string_view("\0\"\0\xE9\0\"", 6)), "\"\u00E9\"");
    EXPECT_EQ(outcome(std::string_view("\"\0\xE9\0\"\0", 6)), "\"\u00E9\"");
    EXPECT_THAT(outcome(std::string_view("\"\0\xE9\0\"", 5)), HasSubstr("ends inside a character"));
}

TEST(OpenStepPropertyListReader, ContainersAreMutableOnRequest) {
    for (const char *text : {"{k = ();}", "k = ();"}) {
        const Result<Value> read = readOpenStepPropertyList(asBytes(text), Mutability::mutableContainers);
        ASSERT_TRUE(read);
        ASSERT_TRUE(read->asMutableDictionary());
        MutableArray array = read->asDictionary()["k"].asMutableArray();
        ASSERT_TRUE(array);
        array.append(1);
        EXPECT_EQ(ExactText::of(*read), R"({"k": [1]})");
    }
    EXPECT_TRUE(readOpenStepPropertyList(asBytes(""), Mutability::mutableContainers)->asMutableDictionary());
    EXPECT_FALSE(readOpenStepPropertyList(asBytes("{}"), Mutability::immutable)->asMutableDictionary());
}

} // namespace
} // namespace moxel
