// Property lists in XML form, written.
#include "Support/CommaLocale.h"
#include "Support/DeepValue.h"
#include "Support/PropertyLists.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <limits>

namespace moxel {
namespace {

using test::asBytes;
using test::CommaLocale;
using test::dataOf;
using test::doublingArrays;
using test::doublingDictionaries;
using test::ExactText;
using test::outcomeOf;
using test::SelfHoldingArray;
using test::xmlOf;
using ::testing::HasSubstr;

constexpr std::string_view head = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                  "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                                  "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
                                  "<plist version=\"1.0\">\n";

/// What stands between the plist tags.
std::string content(const Value &root) {
    const std::string text = xmlOf(root);
    EXPECT_TRUE(text.starts_with(head));
    EXPECT_TRUE(text.ends_with("</plist>\n"));
    return text.substr(head.size(), text.size() - head.size() - 9);
}

std::string errorOf(const Value &root) {
    const Result<std::string> text = writeXMLPropertyList(root);
    return text ? "no error" : text.error().message;
}

TEST(XMLPropertyListWriter, WritesTheFormOfFoundation) {
    EXPECT_EQ(xmlOf(Dictionary{{"list", Array{1, Array(std::vector<Value>()),
                                              Dictionary(std::vector<Dictionary::Entry>())}},
                               {"bytes", dataOf({'<', 'b', 'i', 'n', '>'})}}),
              R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
	<key>list</key>
	<array>
		<integer>1</integer>
		<array/>
		<dict/>
	</array>
	<key>bytes</key>
	<data>
	PGJpbj4=
	</data>
</dict>
</plist>
)");
}

TEST(XMLPropertyListWriter, WritesScalars) {
    EXPECT_EQ(content(true), "<true/>\n");
    EXPECT_EQ(content(false), "<false/>\n");
    EXPECT_EQ(content(INT64_MIN), "<integer>-9223372036854775808</integer>\n");
    EXPECT_EQ(content(UINT64_MAX), "<integer>18446744073709551615</integer>\n");
    EXPECT_EQ(content("x"), "<string>x</string>\n");
    EXPECT_EQ(content(""), "<string></string>\n");
    EXPECT_EQ(content(Data(std::vector<uint8_t>())), "<data>\n</data>\n");
}

TEST(XMLPropertyListWriter, WritesTheShortestRealsThatReadBack) {
    EXPECT_EQ(content(600.0), "<real>600</real>\n");
    EXPECT_EQ(content(0.1), "<real>0.1</real>\n");
    EXPECT_EQ(content(0.1 + 0.2), "<real>0.30000000000000004</real>\n");
    EXPECT_EQ(content(-0.0), "<real>-0</real>\n");
    EXPECT_EQ(content(5e-324), "<real>5e-324</real>\n");
    EXPECT_EQ(content(std::numeric_limits<double>::max()), "<real>1.7976931348623157e+308</real>\n");
    EXPECT_EQ(content(std::numeric_limits<double>::infinity()), "<real>+infinity</real>\n");
    EXPECT_EQ(content(-std::numeric_limits<double>::infinity()), "<real>-infinity</real>\n");
    EXPECT_EQ(content(std::numeric_limits<double>::quiet_NaN()), "<real>nan</real>\n");
}

TEST(XMLPropertyListWriter, WritesTheSameInEveryLocale) {
    const CommaLocale locale;
    if (!locale.isSet())
        GTEST_SKIP() << "no locale with a decimal comma can be made";
    EXPECT_EQ(content(1.5), "<real>1.5</real>\n");
}

TEST(XMLPropertyListWriter, WritesDates) {
    EXPECT_EQ(content(Date{120479613}), "<date>2004-10-26T10:33:33Z</date>\n");
    EXPECT_EQ(content(Date{120479613.75}), "<date>2004-10-26T10:33:33Z</date>\n");
    EXPECT_EQ(content(Date{-0.25}), "<date>2000-12-31T23:59:59Z</date>\n");
    EXPECT_EQ(content(Date{-63114076800}), "<date>0000-12-30T00:00:00Z</date>\n");
    EXPECT_EQ(content(Date{-63145612800}), "<date>-0001-12-31T00:00:00Z</date>\n");
    EXPECT_EQ(content(Date{252423993600}), "<date>10000-01-01T00:00:00Z</date>\n");
}

TEST(XMLPropertyListWriter, DatesOfAllCenturiesReadBack) {
    for (double seconds = -2.9e15; seconds < 2.9e15; seconds += 1.1e13) {
        const double whole = std::floor(seconds);
        const Result<Value> read = readXMLPropertyList(asBytes(xmlOf(Date{whole})), Mutability::immutable);
        ASSERT_TRUE(read) << read.error().message;
        ASSERT_EQ(read->asDate().secondsSince2001, whole);
    }
}

TEST(XMLPropertyListWriter, RefusesDatesBeyondTheCalendar) {
    for (const double seconds : {3e15, -3e15, 1e300, std::numeric_limits<double>::infinity(),
                                 std::numeric_limits<double>::quiet_NaN()})
        EXPECT_THAT(errorOf(Array{Date{seconds}}),
                    HasSubstr("a date that the calendar does not reach stands at index 0"));
}

TEST(XMLPropertyListWriter, BreaksDataAt76Columns) {
    const Value data = Data(std::vector<uint8_t>(60, 0xFF));
    EXPECT_EQ(content(data), "<data>\n" + std::string(76, '/') + "\n////\n</data>\n");
    EXPECT_EQ(content(Array{data}), "<array>\n\t<data>\n\t" + std::string(68, '/') + "\n\t" +
                                        std::string(12, '/') + "\n\t</data>\n</array>\n");
    const Value exact = Data(std::vector<uint8_t>(57, 0xFF));
    EXPECT_EQ(content(exact), "<data>\n" + std::string(76, '/') + "\n</data>\n");
}

TEST(XMLPropertyListWriter, DeepDataIsIndentedByEightTabs) {
    Value value = Data(std::vector<uint8_t>(18, 0xFF));
    for (int i = 0; i < 10; ++i)
        value = Array{value};
    const std::string line = "\n" + std::string(8, '\t') + std::string(12, '/');
    EXPECT_THAT(content(value), HasSubstr("\n" + std::string(10, '\t') + "<data>" + line + line + "\n" +
                                          std::string(10, '\t') + "</data>\n"));
}

TEST(XMLPropertyListWriter, LinesAreIndentedByAtMost32Tabs) {
    Value value = true;
    for (int i = 0; i < 100; ++i)
        value = Array{value};
    EXPECT_THAT(content(value), HasSubstr("\n" + std::string(32, '\t') + "<true/>\n"));
}

TEST(XMLPropertyListWriter, EscapesMarkup) {
    EXPECT_EQ(content("a<b>&\"c'"), "<string>a&lt;b&gt;&amp;\"c'</string>\n");
    EXPECT_EQ(content(Dictionary{{"<&>", "x"}}),
              "<dict>\n\t<key>&lt;&amp;&gt;</key>\n\t<string>x</string>\n</dict>\n");
    EXPECT_EQ(content("a\tb\nc\rd"), "<string>a\tb\nc&#13;d</string>\n");
}

TEST(XMLPropertyListWriter, KeepsCharactersOfAllPlanes) {
    const char *text = "\u00E9\uD7FF\uE000\uFFFD\uFDD0\U0001F600\U0010FFFF\x7F";
    EXPECT_EQ(content(text), "<string>" + std::string(text) + "</string>\n");
}

TEST(XMLPropertyListWriter, RefusesCharactersThatXMLCannotHold) {
    EXPECT_THAT(errorOf(Array{"x", "a\x01"}),
                HasSubstr("XML cannot hold the character U+0001, which stands at index 1"));
    EXPECT_THAT(errorOf(Dictionary{{"k", String(std::string_view("\0", 1))}}),
                HasSubstr("the character U+0000, which stands under the key \"k\""));
    EXPECT_THAT(errorOf("\uFFFE"), HasSubstr("U+FFFE"));
    EXPECT_THAT(errorOf("\uFFFF"), HasSubstr("U+FFFF"));
    EXPECT_THAT(errorOf(Dictionary{{"\x1F", 1}}), HasSubstr("U+001F"));
    const char16_t alone[] = {u'a', 0xDABC, u'b'};
    EXPECT_THAT(errorOf(String::fromUTF16(alone)), HasSubstr("U+DABC"));
}

TEST(XMLPropertyListWriter, WritesUIDsAsKeyedArchivesHaveThem) {
    EXPECT_EQ(content(Array{UID{7}}),
              "<array>\n\t<dict>\n\t\t<key>CF$UID</key>\n\t\t<integer>7</integer>\n\t</dict>\n</array>\n");
    EXPECT_EQ(outcomeOf(readXMLPropertyList(asBytes(xmlOf(UID{UINT64_MAX})), Mutability::immutable)),
              "uid(18446744073709551615)");
}

TEST(XMLPropertyListWriter, RefusesNullAndContainersThatHoldThemselves) {
    EXPECT_THAT(errorOf(nullptr), HasSubstr("null"));
    EXPECT_THAT(errorOf(Dictionary{{"a", Array{nullptr}}}),
                HasSubstr("null cannot be written; it stands at index 0"));
    const SelfHoldingArray array;
    EXPECT_THAT(errorOf(Dictionary{{"k", array.value()}}), HasSubstr("a container holds itself"));
}

TEST(XMLPropertyListWriter, WritesASharedContainerWhereverItStands) {
    const Array shared{1};
    const std::string text = "\t<array>\n\t\t<integer>1</integer>\n\t</array>\n";
    EXPECT_EQ(content(Array{shared, shared}), "<array>\n" + text + text + "</array>\n");
}

TEST(XMLPropertyListWriter, RefusesWhatExpandsBeyondMeasure) {
    EXPECT_THAT(errorOf(doublingArrays(62)), HasSubstr("shared parts repeat for more than 64 MiB"));
    EXPECT_THAT(errorOf(doublingDictionaries(62)), HasSubstr("shared parts repeat for more than 64 MiB"));
    const String longText(std::string(1 << 20, 'x'));
    EXPECT_THAT(errorOf(Array(std::vector<Value>(1000, longText))), HasSubstr("at index 66"));
    const String longKey(std::string(1 << 20, 'k'));
    EXPECT_THAT(errorOf(Array(std::vector<Value>(1000, Dictionary{{longKey, 1}}))), HasSubstr("repeat"));
    std::vector<Value> dictionaries;
    for (int i = 0; i < 1000; ++i)
        dictionaries.push_back(Dictionary{{longKey, i}});
    EXPECT_THAT(errorOf(Array(dictionaries)), HasSubstr("repeat"));
}

TEST(XMLPropertyListWriter, TextThatIsNotSharedMayHaveAnySize) {
    std::vector<Value> values;
    for (int i = 0; i < 80; ++i)
        values.push_back(Data(std::vector<uint8_t>(1 << 20)));
    EXPECT_GT(xmlOf(Array(std::move(values))).size(), size_t{80} << 20);
}

} // namespace
} // namespace moxel
