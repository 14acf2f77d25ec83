// Property lists that are broken, hostile or very deep.
#include "Support/BinaryFile.h"
#include "Support/PropertyLists.h"

#include <gmock/gmock.h>
#include <set>

namespace moxel {
namespace {

using test::asBytes;
using test::asText;
using test::bigEndian;
using test::BinaryFile;
using test::binaryOf;
using test::dataOf;
using test::outcomeOf;
using test::raw;
using test::xmlOf;
using ::testing::HasSubstr;

constexpr size_t deep = 1'000'000;

Value sample() {
    const Array shared{1, "x"};
    return Dictionary{{"integers", Array{1, -1, 300, 70000, UINT64_MAX}},
                      {"real", 1.5},
                      {"date", Date{1}},
                      {"uid", UID{7}},
                      {"text", "\u00E9 and a string of more than fifteen characters"},
                      {"data", dataOf({1, 2, 3})},
                      {"shared", Array{shared, shared, true, false}}};
}

constexpr std::string_view oldStyleSample =
    "// !$*UTF8*$!\n{ a = (b, \"c \\\"d\\U00e9\\101\", 'e'); /* f */ \"g h\" = <0fbd77 1c>; i = <*I5>; j = "
    "<*R1.5>;\n"
    " k = <*D2004-10-26 10:33:33 +0000>; l = <[AQID]>; m = {n = \u00E9; o;}; }";

/// Reads in both ways, and writes what comes out in both forms: none of it may do harm. Returns what came
/// out.
Result<PropertyList> readAndWrite(std::string_view text) {
    const Result<PropertyList> list = readPropertyList(asBytes(text));
    EXPECT_EQ(outcomeOf(readPropertyList(asBytes(text), Mutability::mutableContainers)), outcomeOf(list));
    if (!list) {
        EXPECT_NE(list.error().message, "");
        return list;
    }
    const Result<Data> binary = writeBinaryPropertyList(list->root);
    if (binary) {
        EXPECT_EQ(outcomeOf(readPropertyList(binary->bytes())), outcomeOf(list));
    }
    const Result<std::string> xml = writeXMLPropertyList(list->root);
    if (xml) {
        EXPECT_TRUE(readPropertyList(asBytes(*xml)));
    }
    return list;
}

void flipEveryBit(std::string text) {
    for (char &byte : text) {
        for (int bit = 0; bit < 8; ++bit) {
            byte = static_cast<char>(byte ^ (1 << bit));
            (void)readAndWrite(text);
            byte = static_cast<char>(byte ^ (1 << bit));
        }
    }
}

TEST(PropertyListRobustness, TruncatedBinaryIsRefused) {
    const std::string text = asText(binaryOf(sample()));
    for (size_t size = 0; size < text.size(); ++size)
        EXPECT_FALSE(readBinaryPropertyList(asBytes(text.substr(0, size)), Mutability::immutable)) << size;
}

TEST(PropertyListRobustness, TruncatedXMLIsRefused) {
    const std::string text = xmlOf(sample());
    for (size_t size = 0; size + 1 < text.size(); ++size) // the last byte is a line feed
        EXPECT_FALSE(readXMLPropertyList(asBytes(text.substr(0, size)), Mutability::immutable)) << size;
}

TEST(PropertyListRobustness, TruncatedTextIsRefused) {
    const size_t begin = oldStyleSample.find('{') + 1;
    for (size_t size = begin; size < oldStyleSample.size(); ++size)
        EXPECT_FALSE(readOpenStepPropertyList(asBytes(oldStyleSample.substr(0, size)), Mutability::immutable))
            << size;
}

TEST(PropertyListRobustness, FlippedBitsDoNoHarmInBinary) { flipEveryBit(asText(binaryOf(sample()))); }

TEST(PropertyListRobustness, FlippedBitsDoNoHarmInXML) { flipEveryBit(xmlOf(sample())); }

TEST(PropertyListRobustness, FlippedBitsDoNoHarmInText) { flipEveryBit(std::string(oldStyleSample)); }

TEST(PropertyListRobustness, EveryPairOfBytesIsRead) {
    for (unsigned first = 0; first < 256; ++first)
        for (unsigned second = 0; second < 256; ++second)
            (void)readAndWrite(raw({first, second}));
}

TEST(PropertyListRobustness, EveryObjectOfTwoBytesIsRead) {
    for (unsigned first = 0; first < 256; ++first)
        for (unsigned second = 0; second < 256; ++second)
            (void)readAndWrite(BinaryFile{{raw({first, second})}}.bytes());
}

/// Arrays each of which holds the next one twice.
std::string doublingFile() {
    BinaryFile file;
    for (unsigned level = 1; level <= 22; ++level)
        file.objects.push_back(raw({0xA2, level, level}));
    file.objects.push_back(raw({0xA0}));
    return file.bytes();
}

/// All containers in a value, each once.
std::set<const detail::Node *> containersIn(const Value &root) {
    std::set<const detail::Node *> found;
    std::vector<Value> waiting = {root};
    while (!waiting.empty()) {
        const Array array = waiting.back().asArray();
        waiting.pop_back();
        if (array && found.insert(array.node()).second)
            waiting.insert(waiting.end(), array.begin(), array.end());
    }
    return found;
}

TEST(PropertyListRobustness, DoublingArraysAreReadOnceEach) {
    const std::string file = doublingFile();
    ASSERT_LT(file.size(), 150u);
    for (const Mutability mutability : {Mutability::immutable, Mutability::mutableContainers}) {
        const Result<Value> read = readBinaryPropertyList(asBytes(file), mutability);
        ASSERT_TRUE(read) << read.error().message;
        EXPECT_EQ(containersIn(*read).size(), 23u);
        EXPECT_EQ(asText(binaryOf(*read)), file);
    }
}

TEST(PropertyListRobustness, DoublingArraysAreNotWrittenAsXML) {
    const Result<Value> read = readBinaryPropertyList(asBytes(doublingFile()), Mutability::immutable);
    ASSERT_TRUE(read);
    const Result<std::string> text = writeXMLPropertyList(*read);
    ASSERT_FALSE(text);
    EXPECT_THAT(text.error().message, HasSubstr("repeat"));
}

TEST(PropertyListRobustness, ObjectsMayNotOverlap) {
    // Arrays of fourteen members each of which begins one byte after the one before, and an array of them
    // all.
    constexpr unsigned overlapping = 59;
    std::string objects(overlapping + 15, '\xAE');
    const unsigned top = 8 + static_cast<unsigned>(objects.size());
    objects += raw({0xAF, 0x10, overlapping});
    std::string table = raw({top});
    for (unsigned i = 1; i <= overlapping; ++i) {
        objects += raw({i});
        table += raw({8 + i});
    }
    const unsigned leaf = 8 + static_cast<unsigned>(objects.size());
    objects += raw({0x09});
    while (table.size() <= 0xAE)
        table += raw({leaf});
    const std::string file =
        "bplist00" + objects + table + BinaryFile::trailer(1, 1, table.size(), 0, 8 + objects.size());
    EXPECT_THAT(outcomeOf(readPropertyList(asBytes(file))), HasSubstr("objects overlap"));
}

TEST(PropertyListRobustness, OneObjectUnderManyNumbersIsNotReadManyTimes) {
    // Every entry of the offset table leads to one array of all the others.
    constexpr size_t count = 100'000;
    std::string array = raw({0xAF, 0x12}) + bigEndian(count, 4);
    for (size_t i = 0; i < count; ++i)
        array += bigEndian(i + 1, 4);
    std::string table;
    for (size_t i = 0; i <= count; ++i)
        table += bigEndian(8, 4);
    const std::string file =
        "bplist00" + array + table + BinaryFile::trailer(4, 4, count + 1, 0, 8 + array.size());
    EXPECT_THAT(outcomeOf(readPropertyList(asBytes(file))), HasSubstr("objects overlap"));
}

/// Follows the first members down.
size_t depthOf(Value value) {
    size_t depth = 0;
    for (; value; ++depth)
        value = value.kind() == Kind::array ? value.asArray()[0] : value.asDictionary()["a"];
    return depth - 1;
}

void expectDeep(const std::string &text) {
    for (const Mutability mutability : {Mutability::immutable, Mutability::mutableContainers}) {
        const Result<PropertyList> list = readPropertyList(asBytes(text), mutability);
        ASSERT_TRUE(list) << list.error().message;
        EXPECT_EQ(depthOf(list->root), deep);
    }
}

std::string repeated(std::string_view text, size_t count) {
    std::string all;
    all.reserve(text.size() * count);
    for (size_t i = 0; i < count; ++i)
        all += text;
    return all;
}

TEST(PropertyListRobustness, DeepBinaryArraysAreRead) {
    std::string objects;
    std::string table;
    for (size_t i = 0; i < deep; ++i) {
        table += bigEndian(8 + objects.size(), 4);
        objects += raw({0xA1}) + bigEndian(i + 1, 4);
    }
    table += bigEndian(8 + objects.size(), 4);
    objects += '\x09';
    expectDeep("bplist00" + objects + table + BinaryFile::trailer(4, 4, deep + 1, 0, 8 + objects.size()));
}

TEST(PropertyListRobustness, DeepXMLArraysAreRead) {
    expectDeep(repeated("<array>", deep) + "<true/>" + repeated("</array>", deep));
}

TEST(PropertyListRobustness, DeepXMLDictionariesAreRead) {
    expectDeep(repeated("<dict><key>a</key>", deep) + "<true/>" + repeated("</dict>", deep));
}

TEST(PropertyListRobustness, DeepTextArraysAreRead) {
    expectDeep(repeated("(", deep) + "x" + repeated(")", deep));
}

TEST(PropertyListRobustness, DeepTextDictionariesAreRead) {
    expectDeep(repeated("{a=", deep) + "x" + repeated(";}", deep));
}

/// Arrays or dictionaries within each other.
Value deepValue(bool isDictionary) {
    Value value = "x";
    for (size_t i = 0; i < deep; ++i)
        value = isDictionary ? Value(Dictionary{{"a", value}}) : Value(Array{value});
    return value;
}

TEST(PropertyListRobustness, DeepListsAreWrittenInBinary) {
    for (const bool isDictionary : {false, true})
        EXPECT_EQ(depthOf(readPropertyList(binaryOf(deepValue(isDictionary)).bytes())->root), deep);
}

TEST(PropertyListRobustness, DeepListsAreWrittenInXML) {
    for (const bool isDictionary : {false, true}) {
        const std::string text = xmlOf(deepValue(isDictionary));
        const size_t tags =
            isDictionary ? sizeof "<dict>\n<key>a</key>\n</dict>\n" : sizeof "<array>\n</array>\n";
        const size_t tabs = (isDictionary ? 3 : 2) * 32;
        EXPECT_GT(text.size(), (deep - 100) * (tags + tabs - 1));
        EXPECT_LT(text.size(), deep * (tags + tabs));
    }
}

TEST(PropertyListRobustness, DeepListsThatEndTooSoonAreRefused) {
    for (const char *opening : {"<array>", "<dict><key>a</key>", "(", "{a=", "<plist>"})
        EXPECT_FALSE(readPropertyList(asBytes(repeated(opening, deep))));
}

} // namespace
} // namespace moxel
