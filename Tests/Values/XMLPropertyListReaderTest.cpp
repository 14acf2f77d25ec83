// Property lists in XML form, read.
#include "Support/CommaLocale.h"
#include "Support/PropertyLists.h"

#include <gmock/gmock.h>

namespace moxel {
namespace {

using test::asBytes;
using test::CommaLocale;
using test::ExactText;
using test::outcomeOf;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

std::string outcome(std::string_view text, Mutability mutability = Mutability::immutable) {
    return outcomeOf(readXMLPropertyList(asBytes(text), mutability));
}

/// What a document reads to whose root is this element.
std::string outcomeOfElement(const std::string &element) {
    return outcome("<plist version=\"1.0\">" + element + "</plist>");
}

/// ASCII text in wider units.
std::string widened(std::string_view text, size_t width, bool isBigEndian) {
    std::string wide;
    for (const char c : text) {
        std::string unit(width, '\0');
        unit[isBigEndian ? width - 1 : 0] = c;
        wide += unit;
    }
    return wide;
}

TEST(XMLPropertyListReader, ReadsScalars) {
    EXPECT_EQ(outcomeOfElement("<true/>"), "true");
    EXPECT_EQ(outcomeOfElement("<false></false>"), "false");
    EXPECT_EQ(outcomeOfElement("<integer>42</integer>"), "42");
    EXPECT_EQ(outcomeOfElement("<real>1.5</real>"), "real(1.5)");
    EXPECT_EQ(outcomeOfElement("<string>text</string>"), R"("text")");
    EXPECT_EQ(outcomeOfElement("<string/>"), R"("")");
    EXPECT_EQ(outcomeOfElement("<date>2001-01-01T00:00:01Z</date>"), "date(1)");
    EXPECT_EQ(outcomeOfElement("<data>AQID</data>"), "<010203>");
    EXPECT_EQ(outcomeOfElement("<data/>"), "<>");
}

TEST(XMLPropertyListReader, ReadsContainers) {
    EXPECT_EQ(outcomeOfElement("<array/>"), "[]");
    EXPECT_EQ(outcomeOfElement("<dict></dict>"), "{}");
    EXPECT_EQ(outcomeOfElement("<array><true/><array><string>x</string></array><dict/></array>"),
              R"([true, ["x"], {}])");
    EXPECT_EQ(outcomeOfElement(
                  "<dict>\n <key>b</key> <array/>\n\t<key>a</key>\r\n<dict><key/><true/></dict></dict>"),
              R"({"b": [], "a": {"": true}})");
}

TEST(XMLPropertyListReader, NeedsNoPlistElement) {
    EXPECT_EQ(outcome("<array><true/></array>"), "[true]");
    EXPECT_EQ(outcome("<string>x</string>"), R"("x")");
}

TEST(XMLPropertyListReader, PlistElementsHoldOneValue) {
    EXPECT_EQ(outcome("<plist/>"), "null");
    EXPECT_EQ(outcome("<plist><plist><true/></plist></plist>"), "true");
    EXPECT_EQ(outcomeOfElement("<array><plist><true/></plist></array>"), "[true]");
    EXPECT_THAT(outcomeOfElement("<true/><true/>"), HasSubstr("<plist> holds 2 values"));
    EXPECT_THAT(outcomeOfElement("<array><plist/></array>"), HasSubstr("<plist> holds 0 values"));
}

TEST(XMLPropertyListReader, ReadsIntegersOf64Bits) {
    EXPECT_EQ(outcomeOfElement("<integer> \n-7\t</integer>"), "-7");
    EXPECT_EQ(outcomeOfElement("<integer>+7</integer>"), "7");
    EXPECT_EQ(outcomeOfElement("<integer>007</integer>"), "7");
    EXPECT_EQ(outcomeOfElement("<integer>0x1F</integer>"), "31");
    EXPECT_EQ(outcomeOfElement("<integer>-0X1f</integer>"), "-31");
    EXPECT_EQ(outcomeOfElement("<integer>18446744073709551615</integer>"), "18446744073709551615");
    EXPECT_EQ(outcomeOfElement("<integer>-9223372036854775808</integer>"), "-9223372036854775808");
    EXPECT_EQ(outcomeOfElement("<integer>0xFFFFFFFFFFFFFFFF</integer>"), "18446744073709551615");
}

TEST(XMLPropertyListReader, RefusesOtherIntegers) {
    for (const char *text : {"", " ", "-", "0x", "1 2", "1.0", "1e3", "18446744073709551616",
                             "-9223372036854775809", "0x10000000000000000", "--1", "seven", "1F", "- 1"})
        EXPECT_THAT(outcomeOfElement("<integer>" + std::string(text) + "</integer>"),
                    HasSubstr("<integer> holds something else"))
            << text;
}

TEST(XMLPropertyListReader, ReadsReals) {
    EXPECT_EQ(outcomeOfElement("<real> -0.25 </real>"), "real(-0.25)");
    EXPECT_EQ(outcomeOfElement("<real>1e3</real>"), "real(1000)");
    EXPECT_EQ(outcomeOfElement("<real>+.5E-1</real>"), "real(0.050000000000000003)");
    EXPECT_EQ(outcomeOfElement("<real>7.</real>"), "real(7)");
    EXPECT_EQ(outcomeOfElement("<real>-0</real>"), "real(-0)");
    EXPECT_EQ(outcomeOfElement("<real>nan</real>"), "real(nan)");
    EXPECT_EQ(outcomeOfElement("<real>+infinity</real>"), "real(inf)");
    EXPECT_EQ(outcomeOfElement("<real>-INF</real>"), "real(-inf)");
    EXPECT_EQ(outcomeOfElement("<real>1e999</real>"), "real(inf)");
    EXPECT_EQ(outcomeOfElement("<real>4.9406564584124654e-324</real>"), "real(4.9406564584124654e-324)");
}

TEST(XMLPropertyListReader, RefusesOtherReals) {
    for (const char *text : {"", ".", "e1", "1e", "1e+", "0x1p3", "1,5", "1.5.2", "nan(1)", "infinit", "1 2"})
        EXPECT_THAT(outcomeOfElement("<real>" + std::string(text) + "</real>"),
                    HasSubstr("<real> holds something else"))
            << text;
}

TEST(XMLPropertyListReader, ReadsRealsInAnyLocale) {
    const CommaLocale locale;
    if (!locale.isSet())
        GTEST_SKIP() << "no locale with a decimal comma can be made";
    EXPECT_EQ(readXMLPropertyList(asBytes("<real>1.5</real>"), Mutability::immutable).value(), Value(1.5));
    EXPECT_FALSE(readXMLPropertyList(asBytes("<real>1,5</real>"), Mutability::immutable));
}

TEST(XMLPropertyListReader, ReadsDates) {
    EXPECT_EQ(outcomeOfElement("<date>1970-01-01T00:00:00Z</date>"), "date(-978307200)");
    EXPECT_EQ(outcomeOfElement("<date>2004-10-26T10:33:33Z</date>"), "date(120479613)");
    EXPECT_EQ(outcomeOfElement("<date>2000-02-29T23:59:59Z</date>"), "date(-26438401)");
    EXPECT_EQ(outcomeOfElement("<date>0000-12-30T00:00:00Z</date>"), "date(-63114076800)");
    EXPECT_EQ(outcomeOfElement("<date>-0001-12-31T00:00:00Z</date>"), "date(-63145612800)");
    EXPECT_EQ(outcomeOfElement("<date>10000-01-01T00:00:00Z</date>"), "date(252423993600)");
    EXPECT_EQ(outcomeOfElement("<date>\n2016-12-31T23:59:60Z </date>"), "date(504921600)");
}

TEST(XMLPropertyListReader, RefusesOtherDates) {
    for (const char *text :
         {"", "2004-10-26", "2004-10-26T10:33:33", "2004-10-26 10:33:33Z", "2004-13-01T00:00:00Z",
          "2004-00-01T00:00:00Z", "2004-02-30T00:00:00Z", "2001-02-29T00:00:00Z", "2004-01-00T00:00:00Z",
          "2004-01-01T24:00:00Z", "2004-01-01T00:60:00Z", "2004-01-01T00:00:61Z", "2004-1-1T00:00:00Z",
          "2004-01-01T00:00:00.5Z", "123456789-01-01T00:00:00Z", "2004-01-01T00:00:00ZZ",
          "04-01-01T00:00:00Z"})
        EXPECT_THAT(outcomeOfElement("<date>" + std::string(text) + "</date>"),
                    HasSubstr("<date> holds something else"))
            << text;
}

TEST(XMLPropertyListReader, ReadsBase64WithWhiteSpace) {
    EXPECT_EQ(outcomeOfElement("<data>\n\tAQ ID\r\n\t+/8=\n</data>"), "<010203fbff>");
    EXPECT_EQ(outcomeOfElement("<data>AQ==</data>"), "<01>");
}

TEST(XMLPropertyListReader, RefusesOtherBase64) {
    for (const char *text :
         {"A", "AQ", "AQI", "AQ=", "A===", "====", "AQ==AQ==", "AQ=I", "A?ID", "AQID-", "AQIDA"})
        EXPECT_THAT(outcomeOfElement("<data>" + std::string(text) + "</data>"),
                    HasSubstr("<data> holds something else"))
            << text;
}

TEST(XMLPropertyListReader, BooleansHoldNothing) {
    EXPECT_EQ(outcomeOfElement("<true> </true>"), "true");
    EXPECT_THAT(outcomeOfElement("<true>yes</true>"), HasSubstr("<true> holds something else"));
}

TEST(XMLPropertyListReader, JoinsTextEntitiesSectionsAndComments) {
    EXPECT_EQ(
        outcomeOfElement(
            "<string>a&amp;b<![CDATA[<c>&amp;]]><!-- no -->d&#xE9;&#128512;\n&lt;&gt;&quot;&apos;</string>"),
        "\"a&b<c>&amp;d\u00E9\U0001F600\\x0a<>\\\"'\"");
    EXPECT_EQ(outcomeOfElement("<!-- a --><array><!-- b --><?pi x?><true/></array><!-- c -->"), "[true]");
    EXPECT_EQ(outcomeOfElement("<integer>1<!-- no -->2</integer>"), "12");
}

TEST(XMLPropertyListReader, WhiteSpaceInStringsIsKept) {
    EXPECT_EQ(outcomeOfElement("<string> a\tb\r\nc </string>"), R"(" a\x09b\x0ac ")");
    EXPECT_EQ(outcomeOfElement("<string>&#13;</string>"), R"("\x0d")");
}

TEST(XMLPropertyListReader, RefusesTextBetweenElements) {
    EXPECT_THAT(outcomeOfElement("<array>x<true/></array>"), HasSubstr("text stands in <array>"));
    EXPECT_THAT(outcomeOfElement("<dict><key>k</key><true/>x</dict>"), HasSubstr("text stands in <dict>"));
    EXPECT_THAT(outcomeOfElement("x"), HasSubstr("text stands in <plist>"));
}

TEST(XMLPropertyListReader, RefusesElementsInTheWrongPlace) {
    EXPECT_THAT(outcomeOfElement("<dict><true/></dict>"), HasSubstr("<true> stands where a key belongs"));
    EXPECT_THAT(outcomeOfElement("<dict><key>a</key><key>b</key></dict>"),
                HasSubstr("<key> stands where a value belongs"));
    EXPECT_THAT(outcomeOfElement("<array><key>a</key></array>"),
                HasSubstr("<key> stands where a value belongs"));
    EXPECT_THAT(outcomeOfElement("<key>a</key>"), HasSubstr("<key> stands where a value belongs"));
    EXPECT_THAT(outcomeOfElement("<dict><key>a</key></dict>"), HasSubstr("a key has no value"));
    EXPECT_THAT(outcomeOfElement("<string><true/></string>"), HasSubstr("<true> stands in <string>"));
    EXPECT_THAT(outcomeOfElement("<key><string/></key>"), HasSubstr("<key>"));
}

TEST(XMLPropertyListReader, RefusesUnknownElements) {
    EXPECT_THAT(outcomeOfElement("<set/>"), HasSubstr("unknown element <set>"));
    EXPECT_THAT(outcomeOfElement("<Array/>"), HasSubstr("unknown element <Array>"));
    EXPECT_THAT(outcomeOfElement("<strings/>"), HasSubstr("unknown element"));
    EXPECT_THAT(outcomeOfElement("<" + std::string(1000, 'a') + "/>"), HasSubstr("unknown element"));
}

TEST(XMLPropertyListReader, NamesLineAndColumn) {
    EXPECT_THAT(outcome("\n\n<?xml version=\"1.0\"?>\n<plist>\n  <set/></plist>"),
                HasSubstr("at line 5, column 2"));
    EXPECT_THAT(outcome("<plist>\n<array></plist>"), AllOf(HasSubstr("mismatched tag"), HasSubstr("line 2")));
}

TEST(XMLPropertyListReader, RefusesDocumentsThatAreNotXML) {
    for (const char *text :
         {"", "   ", "<plist>", "<plist></array>", "<plist/>x", "<plist/><plist/>", "plist",
          "<plist a='1' a='2'/>", "<plist>&</plist>", "<plist><string>\x01</string></plist>",
          "<plist><string>\xED\xA0\x80</string></plist>", "<plist><string>\xFF</string></plist>"})
        EXPECT_THAT(outcome(text), StartsWith("error: XML property list: ")) << text;
}

TEST(XMLPropertyListReader, OfEqualKeysTheLastCounts) {
    const char *text = "<dict><key>k</key><true/><key>l</key><true/><key>k</key><false/></dict>";
    EXPECT_EQ(outcome(text), R"({"k": false, "l": true})");
    EXPECT_EQ(outcome(text, Mutability::mutableContainers), R"({"k": false, "l": true})");
}

TEST(XMLPropertyListReader, ReadsUIDs) {
    EXPECT_EQ(outcome("<dict><key>CF$UID</key><integer>7</integer></dict>"), "uid(7)");
    EXPECT_EQ(outcome("<dict><key>CF$UID</key><integer>18446744073709551615</integer></dict>"),
              "uid(18446744073709551615)");
    EXPECT_EQ(outcome("<array><dict><key>CF$UID</key><integer>0</integer></dict></array>",
                      Mutability::mutableContainers),
              "[uid(0)]");
}

TEST(XMLPropertyListReader, OtherDictionariesAreNotUIDs) {
    EXPECT_EQ(outcome("<dict><key>CF$UID</key><integer>-1</integer></dict>"), R"({"CF$UID": -1})");
    EXPECT_EQ(outcome("<dict><key>CF$UID</key><string>1</string></dict>"), R"({"CF$UID": "1"})");
    EXPECT_EQ(outcome("<dict><key>CF$UID</key><integer>1</integer><key>a</key><true/></dict>"),
              R"({"CF$UID": 1, "a": true})");
}

TEST(XMLPropertyListReader, ContainersAreMutableOnRequest) {
    const Result<Value> read =
        readXMLPropertyList(asBytes("<dict><key>k</key><array/></dict>"), Mutability::mutableContainers);
    ASSERT_TRUE(read);
    ASSERT_TRUE(read->asMutableDictionary());
    MutableArray array = read->asDictionary()["k"].asMutableArray();
    ASSERT_TRUE(array);
    array.append(1);
    EXPECT_EQ(ExactText::of(*read), R"({"k": [1]})");
    EXPECT_FALSE(readXMLPropertyList(asBytes("<array/>"), Mutability::immutable)->asMutableArray());
}

TEST(XMLPropertyListReader, SharesKeysThatRecur) {
    const Result<Value> read = readXMLPropertyList(
        asBytes("<array><dict><key>k</key><true/></dict><dict><key>k</key><true/></dict></array>"),
        Mutability::immutable);
    ASSERT_TRUE(read);
    const Array array = read->asArray();
    EXPECT_EQ(array[0].asDictionary().entries()[0].key.node(),
              array[1].asDictionary().entries()[0].key.node());
}

TEST(XMLPropertyListReader, ReadsUTF16AndUTF32WithAndWithoutMark) {
    for (const char *declaration : {"", "<?xml version=\"1.0\" encoding=\"UTF-16\"?>",
                                    "<?xml version=\"1.0\" encoding=\"UTF-32LE\"?>"}) {
        const std::string text = std::string(declaration) + "<plist><string>x</string></plist>";
        for (const size_t width : {2u, 4u}) {
            for (const bool isBigEndian : {false, true}) {
                std::string mark = isBigEndian ? std::string("\xFE\xFF") : std::string("\xFF\xFE");
                if (width == 4)
                    mark = isBigEndian ? std::string(2, '\0') + mark : mark + std::string(2, '\0');
                EXPECT_EQ(outcome(widened(text, width, isBigEndian)), R"("x")")
                    << text << width << isBigEndian;
                EXPECT_EQ(outcome(mark + widened(text, width, isBigEndian)), R"("x")")
                    << text << width << isBigEndian;
            }
        }
    }
}

TEST(XMLPropertyListReader, ReadsPairsOfSurrogates) {
    const std::string before = widened("<string>", 2, true);
    const std::string after = widened("</string>", 2, true);
    EXPECT_EQ(outcome(before + "\xD8\x3D\xDE\x30" + after), "\"\U0001F630\"");
    EXPECT_THAT(outcome(before + "\xD8\x3D" + after), HasSubstr("is not a character"));
    EXPECT_THAT(outcome(before + "\xDE\x30" + after), HasSubstr("code unit 8 is not a character"));
}

TEST(XMLPropertyListReader, RefusesUTF32BeyondUnicode) {
    const std::string before = widened("<string>", 4, true);
    const std::string after = widened("</string>", 4, true);
    EXPECT_EQ(outcome(before + std::string("\x00\x10\xFF\xFD", 4) + after), "\"\U0010FFFD\"");
    EXPECT_THAT(outcome(before + std::string("\x00\x11\x00\x00", 4) + after),
                HasSubstr("is not a character"));
    EXPECT_THAT(outcome(before + std::string("\x00\x00\xD8\x00", 4) + after),
                HasSubstr("is not a character"));
    EXPECT_THAT(outcome(before + after + "\x01"), HasSubstr("ends inside a character"));
}

TEST(XMLPropertyListReader, ReadsDeclaredSingleByteEncodings) {
    EXPECT_EQ(outcome("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><string>\xE9</string>"), "\"\u00E9\"");
    EXPECT_EQ(outcome("<?xml version=\"1.0\" encoding=\"US-ASCII\"?><string>e</string>"), R"("e")");
    EXPECT_EQ(outcome("<?xml version=\"1.0\" encoding=\"utf-8\"?><string>\u00E9</string>"), "\"\u00E9\"");
    EXPECT_EQ(outcome("\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><string>\u00E9</string>"),
              "\"\u00E9\"");
    EXPECT_THAT(outcome("<?xml version=\"1.0\" encoding=\"x-unheard-of\"?><string/>"),
                HasSubstr("unknown encoding"));
    EXPECT_THAT(outcome("<?xml version=\"1.0\" encoding=\"UTF-16\"?><string/>"), HasSubstr("encoding"));
}

TEST(XMLPropertyListReader, RefusesEntitiesThatAreDeclared) {
    EXPECT_THAT(outcome("<!DOCTYPE plist [<!ENTITY e \"text\">]><string>&e;</string>"),
                HasSubstr("entity \"e\" is declared"));
    EXPECT_THAT(outcome("<!DOCTYPE plist [<!ENTITY % e \"text\">]><string/>"),
                HasSubstr("entity \"e\" is declared"));
    EXPECT_THAT(outcome("<!DOCTYPE plist [<!ENTITY e SYSTEM \"file:///etc/passwd\">]><string>&e;</string>"),
                HasSubstr("entity \"e\" is declared"));
}

TEST(XMLPropertyListReader, RefusesEntitiesThatAreUnknown) {
    EXPECT_THAT(outcome("<string>&e;</string>"), HasSubstr("undefined entity"));
    // With a DTD that is not read, XML lets a reader skip them. Text would be lost.
    EXPECT_THAT(outcome("<!DOCTYPE plist SYSTEM \"file:///nonexistent.dtd\"><string>a&e;b</string>"),
                HasSubstr("unknown entity \"e\""));
}

TEST(XMLPropertyListReader, NeverOpensADTD) {
    EXPECT_EQ(outcome("<!DOCTYPE plist SYSTEM \"file:///nonexistent/folder/plist.dtd\"><string>x</string>"),
              R"("x")");
}

TEST(XMLPropertyListReader, ToleratesFewDeclarationsOfAttributes) {
    std::string declarations;
    for (int i = 0; i < 16; ++i)
        declarations += "<!ATTLIST true a" + std::to_string(i) + " CDATA \"x\">";
    EXPECT_EQ(outcome("<!DOCTYPE plist [<!ELEMENT plist ANY>" + declarations + "]><true b=\"1\"/>"), "true");
    declarations += "<!ATTLIST true b CDATA \"x\">";
    EXPECT_THAT(outcome("<!DOCTYPE plist [" + declarations + "]><true/>"), HasSubstr("too many attributes"));
}

} // namespace
} // namespace moxel
