// Property lists of other writers, from a corpus of files that is not part of the repository. The environment
// variable MOXEL_CORPUS names its folder.
#include "Support/PropertyLists.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <iterator>
#include <map>

namespace moxel {
namespace {

using test::asBytes;
using test::ExactText;
using test::outcomeOf;
using ::testing::HasSubstr;

/// What a file reads to: its exact text, or of a long one the length and the hash, or a part of the error.
struct Expectation {
    const char *file;
    const char *form; ///< "error: " when the file is malformed.
    const char *content;
};

// clang-format off
// The values come from Python's plistlib and from GNUstep; of files that neither reads, from the files themselves.
constexpr Expectation expectations[] = {
    {"cpython/cpython.bin.plist", "binary", "1599 bytes, 85a57e882abc2dee"},
    {"cpython/cpython.xml.plist", "xml", "1599 bytes, 85a57e882abc2dee"},
    {"edge/cfpl-array.plain.plist", "openStep", R"(["object"])"},
    {"edge/cfpl-array1.plain.plist", "openStep", R"(["val1", "val 2", "123", {"a b": "b c", "c": "d"}])"},
    {"edge/cfpl-binary.plain.plist", "openStep", R"(<000a>)"},
    {"edge/cfpl-date.plain.plist", "error: ", "'=' is missing"},
    {"edge/cfpl-dictionary.plain.plist", "openStep", R"({"a": "b"})"},
    {"edge/cfpl-dictionary1.plain.plist", "openStep", R"({"a": "b", "complex key": {"a": "b", "d": ["de fg"]}})"},
    {"edge/cfpl-false.plain.plist", "openStep", R"("false")"},
    {"edge/cfpl-int_1_byte.plain.plist", "openStep", R"("1")"},
    {"edge/cfpl-int_4_bytes.plain.plist", "openStep", R"("65536")"},
    {"edge/cfpl-int_8_bytes.plain.plist", "openStep", R"("4294967296")"},
    {"edge/cfpl-int_8_bytes_unsigned.plain.plist", "openStep", R"("9223372036854775808")"},
    {"edge/cfpl-int_signed.plain.plist", "openStep", R"("-1")"},
    {"edge/cfpl-real.plain.plist", "openStep", R"(["1.32", "-1.32"])"},
    {"edge/cfpl-string_ascii_long.plain.plist", "openStep", "578 bytes, e476bfa3deabf025"},
    {"edge/cfpl-string_ascii_short.plain.plist", "openStep", R"("data")"},
    {"edge/cfpl-true.plain.plist", "openStep", R"("true")"},
    {"edge/dd-infinity-binary.plist", "binary", R"({"a": real(inf), "b": real(-inf)})"},
    {"edge/dd-infinity-xml.plist", "xml", R"({"a": real(inf), "b": real(-inf)})"},
    {"edge/dd-issue22-emoji-xml.plist", "xml", R"({"emojiString": "Test Test, 😰❔👍👎🔥"})"},
    {"edge/dd-issue22-emoji.plist", "binary", R"({"emojiString": "Test Test, 😰❔👍👎🔥"})"},
    {"edge/dd-issue49.plist", "openStep", R"({})"},
    {"edge/dd-test-ascii-utf-16be.plist", "openStep", R"({"path": "JÔÖú@2x.jpg", "Key QÔÖª@2x 䌡": "QÔÖú@2x 啕.jpg", "quoted": "もじれつ", "not_quoted": "クオート無し", "with_escapes": "\"\\\":\x0a拡張文字ｷﾀｱｱｱ", "with_u_escapes": " 幸"})"},
    {"edge/dd-test-ascii-utf-16le.plist", "openStep", R"({"path": "JÔÖú@2x.jpg", "Key QÔÖª@2x 䌡": "QÔÖú@2x 啕.jpg", "quoted": "もじれつ", "not_quoted": "クオート無し", "with_escapes": "\"\\\":\x0a拡張文字ｷﾀｱｱｱ", "with_u_escapes": " 幸"})"},
    {"edge/dd-test-ascii-utf-32be.plist", "openStep", R"({"path": "JÔÖú@2x.jpg", "Key QÔÖª@2x 䌡": "QÔÖú@2x 啕.jpg", "quoted": "もじれつ", "not_quoted": "クオート無し", "with_escapes": "\"\\\":\x0a拡張文字ｷﾀｱｱｱ", "with_u_escapes": " 幸"})"},
    {"edge/dd-test-ascii-utf-32le.plist", "openStep", R"({"path": "JÔÖú@2x.jpg", "Key QÔÖª@2x 䌡": "QÔÖú@2x 啕.jpg", "quoted": "もじれつ", "not_quoted": "クオート無し", "with_escapes": "\"\\\":\x0a拡張文字ｷﾀｱｱｱ", "with_u_escapes": " 幸"})"},
    {"edge/dd-test-ascii-utf-8.plist", "openStep", R"({"path": "JÔÖú@2x.jpg", "Key QÔÖª@2x 䌡": "QÔÖú@2x 啕.jpg", "quoted": "もじれつ", "not_quoted": "クオート無し", "with_escapes": "\"\\\":\x0a拡張文字ｷﾀｱｱｱ", "with_u_escapes": " 幸"})"},
    {"edge/dd-test-ascii.plist", "openStep", R"({"key&B": "value&B==", "key2": "strangestring\\\"", "key3": "strangestring\\"})"},
    {"edge/dd-test-gzipinputstream-issue.plist", "binary", "8816 bytes, 67006caa385cfe48"},
    {"edge/dd-test-xml-utf-16be-bom.plist", "xml", R"({"keyA": "valueA", "key&B": "value&B ✅", "date": date(344164890), "data": <000000041041082082>, "array": [true, false, 87, real(3.1415899999999999)]})"},
    {"edge/dd-test-xml-utf-16be.plist", "xml", R"({"keyA": "valueA", "key&B": "value&B ✅", "date": date(344164890), "data": <000000041041082082>, "array": [true, false, 87, real(3.1415899999999999)]})"},
    {"edge/dd-test-xml-utf-16le-bom.plist", "xml", R"({"keyA": "valueA", "key&B": "value&B ✅", "date": date(344164890), "data": <000000041041082082>, "array": [true, false, 87, real(3.1415899999999999)]})"},
    {"edge/dd-test-xml-utf-16le.plist", "xml", R"({"keyA": "valueA", "key&B": "value&B ✅", "date": date(344164890), "data": <000000041041082082>, "array": [true, false, 87, real(3.1415899999999999)]})"},
    {"edge/dd-test-xml-utf-32be-bom.plist", "xml", R"({"keyA": "valueA", "key&B": "value&B ✅", "date": date(344164890), "data": <000000041041082082>, "array": [true, false, 87, real(3.1415899999999999)]})"},
    {"edge/dd-test-xml-utf-32be.plist", "xml", R"({"keyA": "valueA", "key&B": "value&B ✅", "date": date(344164890), "data": <000000041041082082>, "array": [true, false, 87, real(3.1415899999999999)]})"},
    {"edge/dd-test-xml-utf-32le-bom.plist", "xml", R"({"keyA": "valueA", "key&B": "value&B ✅", "date": date(344164890), "data": <000000041041082082>, "array": [true, false, 87, real(3.1415899999999999)]})"},
    {"edge/dd-test-xml-utf-32le.plist", "xml", R"({"keyA": "valueA", "key&B": "value&B ✅", "date": date(344164890), "data": <000000041041082082>, "array": [true, false, 87, real(3.1415899999999999)]})"},
    {"edge/dd-test1-ascii-gnustep-base64.plist", "openStep", R"({"keyA": "valueA", "key&B": "value&B", "date": date(344164890), "data": <aaaabbbbcccc>, "array": [true, false, 87, real(3.1415899999999999)]})"},
    {"edge/dd-test1-ascii-gnustep.plist", "openStep", R"({"keyA": "valueA", "key&B": "value&B", "date": date(344164890), "data": <000000041041082082>, "array": [true, false, 87, real(3.1415899999999999)]})"},
    {"edge/dd-test1-ascii-multiline-handling.plist", "openStep", R"({"keyA": "valueA", "key&B": "Multi\x0a\x09   line\x0a\x09   string", "date": "2011-11-28T09:21:30Z", "data": <000000041041082082>, "array": ["YES", "NO", "87", "3.14159"]})"},
    {"edge/dd-test1-ascii.plist", "openStep", R"({"keyA": "valueA", "key&B": "value&B", "date": "2011-11-28T09:21:30Z", "data": <000000041041082082>, "array": ["YES", "NO", "87", "3.14159"]})"},
    {"edge/dd-test1-binary.plist", "binary", R"({"keyA": "valueA", "key&B": "value&B", "date": date(344164890), "data": <000000041041082082>, "array": [true, false, 87, real(3.1415899999999999)]})"},
    {"edge/dd-test1.plist", "xml", R"({"keyA": "valueA", "key&B": "value&B", "date": date(344164890), "data": <000000041041082082>, "array": [true, false, 87, real(3.1415899999999999)]})"},
    {"edge/dd-testNegative-bin.plist", "binary", R"({"number": -1234, "number4": -9223372036854775808, "number3": real(-3.1231242342300001), "number2": 9223372036854775807, "number5": real(2.3525353535435342e+19), "number6": real(-999992312312312.25)})"},
    {"edge/dd-testNegative-xml.plist", "xml", R"({"number": -1234, "number2": 9223372036854775807, "number3": real(-3.1231242342300001), "number4": -9223372036854775808, "number5": real(2.3525353535435342e+19), "number6": real(-999992312312312.25)})"},
    {"edge/gnustep-non_ascii_utf16.plist", "openStep", R"({"ascii": "ascii", "NågotMindreAscii": "foo", "Quoted non-ascii åäö": "åäö"})"},
    {"edge/gnustep-non_ascii_utf16.strings", "openStep", R"({"ascii": "ascii", "NågotMindreAscii": "foo", "Quoted non-ascii åäö": "åäö"})"},
    {"edge/gnustep-non_ascii_utf8.plist", "openStep", R"({"ascii": "ascii", "NÃ¥gotMindreAscii": "foo", "Quoted non-ascii Ã¥Ã¤Ã¶": "Ã¥Ã¤Ã¶"})"},
    {"edge/gnustep-non_ascii_utf8.strings", "openStep", R"({"ascii": "ascii", "NÃ¥gotMindreAscii": "foo", "Quoted non-ascii Ã¥Ã¤Ã¶": "Ã¥Ã¤Ã¶"})"},
    {"edge/gnustep-non_baseplane_utf8.plist", "xml", R"({"the_key": "£ ∞ ƶ 👨‍👩‍👧‍👦 ﷄﶻﷃﶱﶰﶨ x"})"},
    {"edge/goplist-s01.plist", "xml", R"({"copyright": "©"})"},
    {"edge/goplist-s02.plist", "xml", R"({"name": "value"})"},
    {"edge/goplist-s03.plist", "xml", R"({"": "value"})"},
    {"edge/goplist-s04.plist", "xml", R"({"": "value"})"},
    {"edge/goplist-s05.plist", "error: ", "invalid token"},
    {"edge/goplist-s06.plist", "error: ", "invalid token"},
    {"edge/goplist-s07.plist", "error: ", "invalid token"},
    {"edge/goplist-s08.plist", "error: ", "junk after document element"},
    {"edge/goplist-s09.plist", "error: ", "unclosed token"},
    {"edge/goplist-s10.plist", "error: ", "invalid token"},
    {"edge/goplist-s11.plist", "xml", R"({"test": "libplist"})"},
    {"edge/libplist-1.plist", "xml", "243 bytes, 4798913dd3819fd8"},
    {"edge/libplist-2.plist", "xml", "7777 bytes, 5e4a497ac089c15c"},
    {"edge/libplist-7.plist", "xml", R"({"Time1": date(311260455), "Time2": date(237013443), "Time3": date(-4165314208), "Time4": date(6268237811)})"},
    {"edge/libplist-amp.plist", "error: ", "invalid token"},
    {"edge/libplist-cdata.plist", "xml", R"({"cdata&key": "string with cdata content:  !\"#$%&'()*+,-./0123456789:;<=>?@ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\]^_`abcdefghijklmnopqrstuvwxyz{|}~ !!!"})"},
    {"edge/libplist-data.bplist", "binary", "7327 bytes, 12437fd76430220c"},
    {"edge/libplist-dictref1byte.bplist", "binary", R"({"A": "B"})"},
    {"edge/libplist-dictref2bytes.bplist", "binary", R"({"A": "B"})"},
    {"edge/libplist-dictref3bytes.bplist", "binary", R"({"A": "B"})"},
    {"edge/libplist-dictref4bytes.bplist", "binary", R"({"A": "B"})"},
    {"edge/libplist-dictref5bytes.bplist", "binary", R"({"A": "B"})"},
    {"edge/libplist-dictref6bytes.bplist", "binary", R"({"A": "B"})"},
    {"edge/libplist-dictref7bytes.bplist", "binary", R"({"A": "B"})"},
    {"edge/libplist-dictref8bytes.bplist", "binary", R"({"A": "B"})"},
    {"edge/libplist-empty_keys.plist", "xml", R"({"": "empty key with comment"})"},
    {"edge/libplist-entities.plist", "xml", "908 bytes, 0e9e6e1b2586381f"},
    {"edge/libplist-hex.plist", "xml", R"(7932961166869)"},
    {"edge/libplist-o1.ostep", "openStep", "236 bytes, 0ef98eae2258a4da"},
    {"edge/libplist-o2.ostep", "openStep", "400 bytes, ae33c8ef254021c9"},
    {"edge/libplist-o3.ostep", "openStep", R"([{"AFirstKey": "A First Value", "ASecondKey": "A Second Value"}, {"CFirstKey": "C First Value", "CSecondKey": "C Second Corrected Value"}])"},
    {"edge/libplist-off1byte.bplist", "binary", R"({"A": "B"})"},
    {"edge/libplist-off2bytes.bplist", "binary", R"({"A": "B"})"},
    {"edge/libplist-off3bytes.bplist", "binary", R"({"A": "B"})"},
    {"edge/libplist-off4bytes.bplist", "binary", R"({"A": "B"})"},
    {"edge/libplist-off5bytes.bplist", "binary", R"({"A": "B"})"},
    {"edge/libplist-off6bytes.bplist", "binary", R"({"A": "B"})"},
    {"edge/libplist-off7bytes.bplist", "binary", R"({"A": "B"})"},
    {"edge/libplist-off8bytes.bplist", "binary", R"({"A": "B"})"},
    {"edge/libplist-offxml.plist", "xml", R"({"A": "B"})"},
    {"edge/libplist-order.bplist", "binary", R"({"test": [1, 1], "foo": [[1], {"test": "foo"}, [1], [1]]})"},
    {"edge/libplist-order.plist", "xml", R"({"test": [1, 1], "foo": [[1], {"test": "foo"}, [1], [1]]})"},
    {"edge/libplist-signed.bplist", "binary", R"(-1)"},
    {"edge/libplist-signed.plist", "xml", R"(-1)"},
    {"edge/libplist-signedunsigned.bplist", "binary", R"([-1, 18446744073709551615, 9223372036854775807, -9223372036854775808, 9223372036854775808])"},
    {"edge/libplist-signedunsigned.plist", "xml", R"([-1, 18446744073709551615, 9223372036854775807, -9223372036854775808, 9223372036854775808])"},
    {"edge/libplist-test.strings", "openStep", "326 bytes, be431199a3b7a72c"},
    {"edge/libplist-uid.bplist", "binary", R"(uid(7))"},
    {"edge/libplist-unsigned.bplist", "binary", R"(18446744073709551615)"},
    {"edge/libplist-unsigned.plist", "xml", R"(18446744073709551615)"},
    {"edge/plaso-com.apple.security.KCN.plist", "xml", "223 bytes, a81fe0db6f6a1971"},
    {"edge/plaso-empty.plist", "xml", R"(null)"},
    {"edge/plaso-leading_whitespace.plist", "xml", "5279 bytes, 4d29c1d099ccbbe6"},
    {"edge/teclib-uid-list.plist", "binary", R"({"test": uid(1)})"},
    {"edge/teclib-uid-list.xml", "xml", R"({"test": uid(1)})"},
    {"openstep-text/pb-array_encoding_hint-test.plist", "openStep", R"([])"},
    {"openstep-text/pb-array_mixed-test.plist", "openStep", R"(["", "testing"])"},
    {"openstep-text/pb-array_qstrings-test.plist", "openStep", R"(["hello world!", "this is a test", "Of quoted strings"])"},
    {"openstep-text/pb-array_strings-test.plist", "openStep", R"(["obj1", "obj2", "obj3"])"},
    {"openstep-text/pb-bom-utf-16-Localizable.strings", "openStep", "6523 bytes, 38e7b63ed142a88f"},
    {"openstep-text/pb-data_encoding_hint-test.plist", "openStep", R"(<42>)"},
    {"openstep-text/pb-dict_encoding_hint-test.plist", "openStep", R"({})"},
    {"openstep-text/pb-dict_string_values-test.plist", "openStep", R"({"a": "a", "b": "b", "c": "c", "d": "d"})"},
    {"openstep-text/pb-empty_encoding_hint-test.plist", "openStep", R"({})"},
    {"openstep-text/pb-empty_plist-test.plist", "error: ", "no bytes"},
    {"openstep-text/pb-qstring_encoding_hint-test.plist", "openStep", R"("quoted string with encoding hint")"},
    {"openstep-text/pb-raw_array-test.plist", "openStep", R"([])"},
    {"openstep-text/pb-raw_data-test.plist", "openStep", R"(<42>)"},
    {"openstep-text/pb-raw_dict-test.plist", "openStep", R"({})"},
    {"openstep-text/pb-raw_qstring-test.plist", "openStep", R"("this is a quoted string")"},
    {"openstep-text/pb-raw_string-test.plist", "openStep", R"("unquoted_string")"},
    {"openstep-text/pb-string_encoding_hint-test.plist", "openStep", R"("unquoted_string_with_encoding_hint")"},
    {"openstep-text/pb-xcode_proj-test.plist", "openStep", "15945 bytes, bbf08868c9ad5fbd"},
    {"openstep-text/project.pbxproj", "openStep", "10879 bytes, 2bbf5ee0e7834246"},
    {"swift-foundation/Generic_XML_Properties.plist", "xml", R"({"array1": ["arr0", 42, false, date(-781099200), <aabbccdd00112233>], "item1": "value1", "item2": "value2"})"},
    {"swift-foundation/Generic_XML_Properties_Binary.plist", "binary", R"({"array1": ["arr0", 42, false, date(-781099200), <aabbccdd00112233>], "item1": "value1", "item2": "value2"})"},
    {"swift-foundation/corelibs-Test.plist", "xml", R"({"Foo": "Bar", "emptyValue": "", "Baz": ["hello", "property", "lists"]})"},
    {"swift-foundation/json-pass1-utf8.plist", "xml", "385 bytes, 1b2620bd0a6ad7c7"},
    {"swift-foundation/json-pass13.plist", "xml", R"({"a": 1})"},
    {"swift-foundation/json-pass14.plist", "xml", R"({"a2": {"x": {"abcdef/": "c"}}, "abcdefg": {"y": {"abcdef/": "a", "abcdefg": "b"}}})"},
    {"swift-foundation/json-pass2.plist", "xml", "201 bytes, 0f905b9277433e83"},
    {"swift-foundation/json-pass3.plist", "xml", "470 bytes, c00a197fd4436ce0"},
    {"swift-foundation/json-pass4.plist", "xml", "2972 bytes, 1c9e60f26a0250e2"},
    {"swift-foundation/json-pass5.plist", "xml", "241 bytes, 48925030fdf32bd1"},
    {"swift-foundation/json-pass6.plist", "xml", "372 bytes, 30734e8a76654ed7"},
    {"swift-foundation/json5-numbers.plist", "xml", R"({"a": real(0.0123), "b": real(0.0123), "c": 10, "d": 10})"},
    {"swift-foundation/json5-strings.plist", "xml", R"({"Hello": "World", "Hello2": "World2", "Hello3": "World3", "hex1": "hiz", "hex2": "hizzza"})"},
    {"swift-foundation/test_oldStylePlist_getSlashedChars_octal.plist", "openStep", "3503 bytes, 97743fae8ed3a459"},
    {"swift-foundation/test_oldStylePlist_getSlashedChars_octal_expected.plist", "binary", "3503 bytes, 97743fae8ed3a459"},
};
// clang-format on

/// 64-bit FNV-1a.
uint64_t hashOf(std::string_view text) {
    uint64_t hash = 0xCBF29CE484222325;
    for (const char c : text)
        hash = (hash ^ static_cast<uint8_t>(c)) * 0x100000001B3;
    return hash;
}

std::string summaryOf(const std::string &text) {
    char summary[64];
    std::snprintf(summary, sizeof summary, "%zu bytes, %016llx", text.size(),
                  static_cast<unsigned long long>(hashOf(text)));
    return summary;
}

const char *nameOf(PropertyListFormat format) {
    switch (format) {
    case PropertyListFormat::binary:
        return "binary";
    case PropertyListFormat::xml:
        return "xml";
    case PropertyListFormat::openStep:
        return "openStep";
    }
    return "";
}

class PropertyListCorpus : public ::testing::Test {
  protected:
    void SetUp() override {
        const char *folder = std::getenv("MOXEL_CORPUS"); // NOLINT(concurrency-mt-unsafe)
        if (!folder)
            GTEST_SKIP() << "MOXEL_CORPUS does not name a folder";
        folder_ = std::filesystem::path(folder) / "plists";
        for (const auto &entry : std::filesystem::recursive_directory_iterator(folder_)) {
            const std::string name = entry.path().lexically_relative(folder_).string();
            if (!entry.is_regular_file() || name == "INDEX.md")
                continue;
            std::ifstream file(entry.path(), std::ios::binary);
            files_[name] = std::string(std::istreambuf_iterator<char>(file), {});
        }
    }

    std::filesystem::path folder_;
    std::map<std::string, std::string> files_; ///< Contents by name.
};

TEST_F(PropertyListCorpus, EveryFileHasAnExpectation) {
    for (const auto &[name, content] : files_)
        EXPECT_NE(std::ranges::find(expectations, name, &Expectation::file), std::end(expectations)) << name;
}

TEST_F(PropertyListCorpus, EveryFileReadsAsExpected) {
    for (const Expectation &expected : expectations) {
        SCOPED_TRACE(expected.file);
        ASSERT_TRUE(files_.contains(expected.file));
        const Result<PropertyList> list = readPropertyList(asBytes(files_[expected.file]));
        if (std::string_view(expected.form) == "error: ") {
            ASSERT_FALSE(list) << ExactText::of(list->root);
            EXPECT_THAT(list.error().message, HasSubstr(expected.content));
            continue;
        }
        ASSERT_TRUE(list) << list.error().message;
        EXPECT_STREQ(nameOf(list->format), expected.form);
        const std::string text = ExactText::of(list->root);
        if (text != expected.content) {
            EXPECT_EQ(summaryOf(text), expected.content) << text;
        }
    }
}

TEST_F(PropertyListCorpus, EveryFileComesBackTheSame) {
    for (const auto &[name, content] : files_) {
        SCOPED_TRACE(name);
        const Result<PropertyList> list = readPropertyList(asBytes(content));
        if (!list || !list->root)
            continue;
        const std::string text = ExactText::of(list->root);
        const Result<Data> binary = writeBinaryPropertyList(list->root);
        ASSERT_TRUE(binary) << binary.error().message;
        EXPECT_EQ(outcomeOf(readPropertyList(binary->bytes())), text);
        const Result<std::string> xml = writeXMLPropertyList(list->root);
        if (xml) {
            EXPECT_EQ(outcomeOf(readPropertyList(asBytes(*xml))), text);
        } else {
            EXPECT_THAT(xml.error().message, HasSubstr("XML cannot hold the character"));
        }
    }
}

TEST_F(PropertyListCorpus, BytesOfFoundationAreWrittenAgain) {
    for (const char *name :
         {"cpython/cpython.bin.plist", "swift-foundation/Generic_XML_Properties_Binary.plist"}) {
        const std::string &content = files_[name];
        const Result<Value> read = readBinaryPropertyList(asBytes(content), Mutability::immutable);
        ASSERT_TRUE(read) << name;
        EXPECT_EQ(test::asText(test::binaryOf(*read)), content) << name;
    }
    for (const char *name : {"cpython/cpython.xml.plist", "swift-foundation/Generic_XML_Properties.plist"}) {
        const std::string &content = files_[name];
        const Result<Value> read = readXMLPropertyList(asBytes(content), Mutability::immutable);
        ASSERT_TRUE(read) << name;
        EXPECT_EQ(test::xmlOf(*read), content) << name;
    }
}

TEST_F(PropertyListCorpus, TruncatedFilesDoNoHarm) {
    for (const auto &[name, content] : files_) {
        for (size_t size = 0; size < std::min<size_t>(content.size(), 4096); ++size) {
            const Result<PropertyList> list = readPropertyList(asBytes(content).first(size));
            if (list && list->format == PropertyListFormat::binary)
                ADD_FAILURE() << name << " reads when cut to " << size << " bytes";
        }
    }
}

} // namespace
} // namespace moxel
