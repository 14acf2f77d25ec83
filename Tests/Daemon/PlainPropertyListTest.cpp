// Property lists from files: the XML and the binary form, as others write them and as the daemon does.
#include "Moxel Daemon/Archive/PlainPropertyList.h"
#include "Support/BinaryFile.h"
#include "Support/Python.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

namespace moxel::daemon {
namespace {

using ::testing::HasSubstr;

Result<Value> readText(std::string_view text) {
    return readPropertyList({reinterpret_cast<const uint8_t *>(text.data()), text.size()});
}

Result<Value> readXML(std::string_view content) {
    return readText("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">" +
                    std::string(content) + "</plist>\n");
}

Value valueOf(std::string_view content) {
    Result<Value> value = readXML(content);
    EXPECT_TRUE(value.ok()) << value.error().message;
    return value.ok() ? *value : Value();
}

std::string errorOf(const Result<Value> &value) { return value.ok() ? "no error" : value.error().message; }

/// Everything that a property list holds, made by Python.
constexpr const char *makeEverything = R"(
import plistlib, sys, datetime
everything = {'text': 'Gr\u00fc\u00dfe \U0001f39b <&>', 'true': True, 'false': False, 'small': -5,
              'big': 2**64 - 1, 'least': -2**63, 'real': 2.5, 'data': bytes(range(256)),
              'date': datetime.datetime(2026, 1, 31, 23, 59, 58), 'list': ['a', [], {}, ''],
              'nested': {'deeper': {'deepest': 'x' * 1000}}}
form = {'xml': plistlib.FMT_XML, 'binary': plistlib.FMT_BINARY}[sys.argv[1]]
sys.stdout.buffer.write(plistlib.dumps(everything, fmt=form, sort_keys=False))
)";

Value everything() {
    Data bytes(256);
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<uint8_t>(i);
    return Dictionary{{"text", "Gr\xC3\xBC\xC3\x9F"
                               "e \xF0\x9F\x8E\x9B <&>"},
                      {"true", true},
                      {"false", false},
                      {"small", -5},
                      {"big", UINT64_MAX},
                      {"least", INT64_MIN},
                      {"real", 2.5},
                      {"data", bytes},
                      {"date", dateValue(791596798)},
                      {"list", Array{"a", Array{}, Dictionary{}, ""}},
                      {"nested", Dictionary{{"deeper", Dictionary{{"deepest", std::string(1000, 'x')}}}}}};
}

TEST(DaemonPropertyList, ReadsBothFormsAsPythonWritesThem) {
    if (!test::hasPython())
        GTEST_SKIP() << "no python3";
    for (const char *form : {"xml", "binary"}) {
        const test::SubprocessResult written = test::runPython(makeEverything, {}, {form});
        ASSERT_EQ(written.exitCode, 0);
        const Result<Value> read = readText(written.output);
        ASSERT_TRUE(read.ok()) << form << ": " << read.error().message;
        EXPECT_EQ(*read, everything()) << form;
        EXPECT_EQ(read->as<Dictionary>()->entries().front().key, "text") << "the order is lost";
    }
}

TEST(DaemonPropertyList, PythonReadsWhatIsWritten) {
    if (!test::hasPython())
        GTEST_SKIP() << "no python3";
    const Result<Data> bytes = writePropertyList(everything());
    ASSERT_TRUE(bytes.ok());
    const std::string text(bytes->begin(), bytes->end());
    const test::SubprocessResult read =
        test::runPython("import plistlib, sys\nprint(list(plistlib.load(sys.stdin.buffer).items()))", text);
    EXPECT_THAT(read.output, HasSubstr("('big', 18446744073709551615), ('least', -9223372036854775808)"));
    EXPECT_THAT(read.output, HasSubstr("('date', datetime.datetime(2026, 1, 31, 23, 59, 58))"));
    EXPECT_EQ(*readPropertyList(*bytes), everything());
}

TEST(DaemonPropertyList, ReadsScalarsOfEveryNotation) {
    EXPECT_EQ(valueOf("<integer> +0x1F </integer>"), Value(31));
    EXPECT_EQ(valueOf("<integer>-12</integer>"), Value(-12));
    EXPECT_EQ(valueOf("<real>-1.5e3</real>"), Value(-1500.0));
    EXPECT_EQ(valueOf("<real>-infinity</real>"), Value(-std::numeric_limits<double>::infinity()));
    EXPECT_TRUE(std::isnan(*valueOf("<real>nan</real>").as<double>()));
    EXPECT_EQ(valueOf("<data>\n\tAQID\n\tBA==\n</data>"), Value(Data{1, 2, 3, 4}));
    EXPECT_EQ(valueOf("<data/>"), Value(Data{}));
    EXPECT_EQ(valueOf("<string/>"), Value(""));
    EXPECT_EQ(valueOf("<string><![CDATA[<x>]]>&lt;</string>"), Value("<x><"));
    EXPECT_EQ(valueOf("<!-- c --><array> <true/> <!-- c --> <false></false> </array>"),
              Value(Array{true, false}));
    EXPECT_EQ(valueOf("<date>2001-01-01T00:00:01Z</date>"), dateValue(1));
    EXPECT_EQ(valueOf("<date>1999-12-31T23:59:59Z</date>"), dateValue(-31622401));
}

TEST(DaemonPropertyList, OfTwoValuesUnderOneKeyTheLastCounts) {
    EXPECT_EQ(valueOf("<dict><key>a</key><true/><key>b</key><string/><key>a</key><false/></dict>"),
              Value(Dictionary{{"b", ""}, {"a", false}}));
}

TEST(DaemonPropertyList, RefusesXMLThatIsNoPropertyList) {
    for (const char *content : {"",
                                "text",
                                "<true/><true/>",
                                "<dict><true/></dict>",
                                "<dict><key>a</key></dict>",
                                "<dict><key>a</key><key>b</key></dict>",
                                "<array><key>a</key></array>",
                                "<key>a</key>",
                                "<unknown/>",
                                "<string><true/></string>",
                                "<dict>text</dict>",
                                "<integer>1x</integer>",
                                "<integer></integer>",
                                "<integer>18446744073709551616</integer>",
                                "<real>one</real>",
                                "<real></real>",
                                "<date>yesterday</date>",
                                "<date>2026-02-30T00:00:00Z</date>",
                                "<date>2026-01-01T24:00:00Z</date>",
                                "<data>?</data>",
                                "<true>yes</true>",
                                "<plist><true/></plist>",
                                "<string>",
                                "<string>&unknown;</string>"})
        EXPECT_FALSE(readXML(content).ok()) << content;
    for (const char *text : {"", "<dict/>", "<html><plist/></html>", "( 1, 2 )", "bplist00", "\xFF\xFE\x00"})
        EXPECT_FALSE(readText(text).ok()) << text;
}

TEST(DaemonPropertyList, ErrorsNameTheLine) {
    EXPECT_THAT(errorOf(readXML("\n\n<unknown/>")), HasSubstr("line 4: an unknown element"));
}

TEST(DaemonPropertyList, RefusesEntitiesOfTheDocumentsOwn) {
    const std::string bomb = "<!DOCTYPE plist [<!ENTITY a \"aaaaaaaaaa\"><!ENTITY b \"&a;&a;&a;\">]>"
                             "<plist><string>&b;</string></plist>";
    EXPECT_THAT(errorOf(readText(bomb)), HasSubstr("entity"));
    const std::string outside = "<!DOCTYPE plist [<!ENTITY a SYSTEM \"file:///etc/passwd\">]>"
                                "<plist><string>&a;</string></plist>";
    EXPECT_THAT(errorOf(readText(outside)), HasSubstr("entity"));
}

TEST(DaemonPropertyList, NestingIsLimited) {
    const auto nested = [](size_t depth) {
        std::string text;
        for (size_t i = 0; i < depth; ++i)
            text += "<array>";
        for (size_t i = 0; i < depth; ++i)
            text += "</array>";
        return text;
    };
    Result<Value> deepest = readXML(nested(Value::depthLimit));
    ASSERT_TRUE(deepest.ok());
    EXPECT_THAT(errorOf(readXML(nested(Value::depthLimit + 1))), HasSubstr("nested too deep"));
    EXPECT_FALSE(readXML(nested(500000)).ok());
    EXPECT_TRUE(writePropertyList(*deepest).ok());
    EXPECT_EQ(*readPropertyList(*writePropertyList(*deepest)), *deepest);
    EXPECT_FALSE(writePropertyList(Array{Value(Array{*deepest})}).ok());
}

TEST(DaemonPropertyList, BinaryListsThatHoldThemselvesAreRefused) {
    const test::BinaryFile file{{test::raw({0xA2, 0, 0})}};
    EXPECT_FALSE(readText(file.bytes()).ok());
}

TEST(DaemonPropertyList, SharedObjectsDoNotMultiplyWithoutLimit) {
    // Each of 40 arrays holds the next one twice: 2^40 values.
    test::BinaryFile file;
    for (unsigned i = 1; i < 40; ++i)
        file.objects.push_back(test::raw({0xA2, i, i}));
    file.objects.push_back(test::raw({0x09}));
    EXPECT_FALSE(readText(file.bytes()).ok());
}

TEST(DaemonPropertyList, ArchiveReferencesAndNullsHaveNoPlaceInFiles) {
    EXPECT_FALSE(readText(test::BinaryFile{{test::raw({0x80, 1})}}.bytes()).ok());
    EXPECT_FALSE(writePropertyList(Array{Value()}).ok());
    EXPECT_FALSE(writePropertyList(Record{"MxlApplication", {}}).ok());
}

TEST(DaemonPropertyList, ManyKeysTakeNoLongerThanTheyShould) {
    std::string text = "<dict>";
    for (int i = 0; i < 200000; ++i)
        text += "<key>" + std::to_string(i) + "</key><true/>";
    const Value value = valueOf(text + "</dict>");
    ASSERT_TRUE(value.as<Dictionary>());
    EXPECT_EQ(value.as<Dictionary>()->size(), 200000U);
}

TEST(DaemonPropertyList, TooLongAListIsRefused) {
    EXPECT_THAT(errorOf(readXML(std::string(propertyListSizeLimit, ' '))), HasSubstr("too long"));
}

TEST(DaemonPropertyList, AnyBytesGiveAValueOrAnError) {
    const Data binary = *writePropertyList(everything());
    const std::string xml =
        "<?xml version=\"1.0\"?><plist><dict><key>a</key><array><integer>1</integer>"
        "<data>AQID</data><date>2026-01-31T23:59:59Z</date><real>1.5</real></array></dict></plist>";
    std::mt19937 random(1);
    for (const std::string &original : {std::string(binary.begin(), binary.end()), xml}) {
        for (int round = 0; round < 3000; ++round) {
            std::string text = original;
            for (int change = 0; change <= round % 4; ++change)
                text[random() % text.size()] = static_cast<char>(random());
            text.resize(text.size() - (round % 5 == 0 ? random() % text.size() : 0));
            (void)readText(text);
        }
    }
}

} // namespace
} // namespace moxel::daemon
