// Property lists in binary form, written.
#include "Support/BinaryFile.h"
#include "Support/DeepValue.h"
#include "Support/PropertyLists.h"

#include <gmock/gmock.h>
#include <limits>

namespace moxel {
namespace {

using test::asText;
using test::bigEndian;
using test::BinaryFile;
using test::binaryOf;
using test::dataOf;
using test::ExactText;
using test::raw;
using test::SelfHoldingArray;
using ::testing::HasSubstr;

std::string written(const Value &root) { return asText(binaryOf(root)); }

std::string errorOf(const Value &root) {
    const Result<Data> data = writeBinaryPropertyList(root);
    return data ? "no error" : data.error().message;
}

/// A file of these objects with the narrowest widths that small files have.
std::string file(std::vector<std::string> objects) { return BinaryFile{std::move(objects)}.bytes(); }

size_t objectCount(const Value &root) {
    return static_cast<uint8_t>(written(root)[written(root).size() - 17]);
}

TEST(BinaryPropertyListWriter, WritesAFileByteForByte) {
    EXPECT_EQ(written(Dictionary{{"A", 7}}),
              raw({'b',  'p',  'l',  'i',  's', 't',  '0',  '0',                         //
                   0xD1, 0x01, 0x02, 0x51, 'A', 0x10, 0x07,                              //
                   0x08, 0x0B, 0x0D,                                                     //
                   0,    0,    0,    0,    0,   0,    1,    1,   0, 0, 0, 0, 0, 0, 0, 3, //
                   0,    0,    0,    0,    0,   0,    0,    0,   0, 0, 0, 0, 0, 0, 0, 15}));
}

TEST(BinaryPropertyListWriter, WritesBooleans) {
    EXPECT_EQ(written(false), file({raw({0x08})}));
    EXPECT_EQ(written(true), file({raw({0x09})}));
}

TEST(BinaryPropertyListWriter, WritesIntegersInTheirNarrowestForm) {
    EXPECT_EQ(written(0), file({raw({0x10, 0x00})}));
    EXPECT_EQ(written(255), file({raw({0x10, 0xFF})}));
    EXPECT_EQ(written(256), file({raw({0x11, 0x01, 0x00})}));
    EXPECT_EQ(written(65535), file({raw({0x11, 0xFF, 0xFF})}));
    EXPECT_EQ(written(65536), file({raw({0x12, 0x00, 0x01, 0x00, 0x00})}));
    EXPECT_EQ(written(4294967295), file({raw({0x12, 0xFF, 0xFF, 0xFF, 0xFF})}));
    EXPECT_EQ(written(4294967296), file({raw({0x13, 0, 0, 0, 1, 0, 0, 0, 0})}));
    EXPECT_EQ(written(INT64_MAX), file({raw({0x13}) + bigEndian(INT64_MAX, 8)}));
}

TEST(BinaryPropertyListWriter, WritesNegativeIntegersInEightBytes) {
    EXPECT_EQ(written(-1), file({raw({0x13}) + std::string(8, '\xFF')}));
    EXPECT_EQ(written(INT64_MIN), file({raw({0x13, 0x80, 0, 0, 0, 0, 0, 0, 0})}));
}

TEST(BinaryPropertyListWriter, WritesIntegersBeyondTheSignedInSixteenBytes) {
    EXPECT_EQ(written(UINT64_MAX), file({raw({0x14}) + bigEndian(0, 8) + std::string(8, '\xFF')}));
    EXPECT_EQ(written(uint64_t{5}), file({raw({0x10, 0x05})}));
}

TEST(BinaryPropertyListWriter, WritesReals) {
    EXPECT_EQ(written(1.5), file({raw({0x23, 0x3F, 0xF8, 0, 0, 0, 0, 0, 0})}));
    EXPECT_EQ(written(-0.0), file({raw({0x23, 0x80, 0, 0, 0, 0, 0, 0, 0})}));
    EXPECT_EQ(written(-std::numeric_limits<double>::infinity()),
              file({raw({0x23, 0xFF, 0xF0, 0, 0, 0, 0, 0, 0})}));
}

TEST(BinaryPropertyListWriter, WritesDates) {
    EXPECT_EQ(written(Date{1}), file({raw({0x33, 0x3F, 0xF0, 0, 0, 0, 0, 0, 0})}));
}

TEST(BinaryPropertyListWriter, WritesUIDs) {
    EXPECT_EQ(written(UID{0}), file({raw({0x80, 0x00})}));
    EXPECT_EQ(written(UID{255}), file({raw({0x80, 0xFF})}));
    EXPECT_EQ(written(UID{256}), file({raw({0x81, 0x01, 0x00})}));
    EXPECT_EQ(written(UID{65536}), file({raw({0x83, 0x00, 0x01, 0x00, 0x00})}));
    EXPECT_EQ(written(UID{UINT64_MAX}), file({raw({0x87}) + std::string(8, '\xFF')}));
}

TEST(BinaryPropertyListWriter, WritesASCIIStringsInBytes) {
    EXPECT_EQ(written(""), file({raw({0x50})}));
    EXPECT_EQ(written(String(std::string_view("a\0b", 3))), file({raw({0x53, 'a', 0, 'b'})}));
    EXPECT_EQ(written("0123456789abcd"), file({raw({0x5E}) + "0123456789abcd"}));
    EXPECT_EQ(written("0123456789abcde"), file({raw({0x5F, 0x10, 0x0F}) + "0123456789abcde"}));
}

TEST(BinaryPropertyListWriter, WritesOtherStringsInUTF16) {
    EXPECT_EQ(written("\u00E9"), file({raw({0x61, 0x00, 0xE9})}));
    EXPECT_EQ(written("a\U0001F630"), file({raw({0x63, 0x00, 'a', 0xD8, 0x3D, 0xDE, 0x30})}));
}

TEST(BinaryPropertyListWriter, KeepsSurrogatesThatStandAlone) {
    const char16_t alone[] = {u'a', 0xD800};
    EXPECT_EQ(written(String::fromUTF16(alone)), file({raw({0x62, 0x00, 'a', 0xD8, 0x00})}));
}

TEST(BinaryPropertyListWriter, WritesData) {
    EXPECT_EQ(written(Data(std::vector<uint8_t>())), file({raw({0x40})}));
    EXPECT_EQ(written(dataOf({1, 2, 3})), file({raw({0x43, 1, 2, 3})}));
    EXPECT_EQ(written(Data(std::vector<uint8_t>(300, 7))),
              BinaryFile({{raw({0x4F, 0x11, 0x01, 0x2C}) + std::string(300, 7)}, 2}).bytes());
}

TEST(BinaryPropertyListWriter, WritesContainersBeforeTheirMembersAndKeysBeforeValues) {
    EXPECT_EQ(written(Array(std::vector<Value>())), file({raw({0xA0})}));
    EXPECT_EQ(written(Dictionary(std::vector<Dictionary::Entry>())), file({raw({0xD0})}));
    EXPECT_EQ(written(Array{Array{1}, 2}),
              file({raw({0xA2, 1, 3}), raw({0xA1, 2}), raw({0x10, 1}), raw({0x10, 2})}));
    EXPECT_EQ(written(Dictionary{{"b", Array{true}}, {"a", false}}),
              file({raw({0xD2, 1, 2, 3, 5}), raw({0x51, 'b'}), raw({0x51, 'a'}), raw({0xA1, 4}), raw({0x09}),
                    raw({0x08})}));
}

TEST(BinaryPropertyListWriter, ReferencesWidenWithTheNumberOfObjects) {
    std::vector<Value> values;
    for (int i = 0; i < 254; ++i)
        values.emplace_back(i);
    const auto referenceWidth = [](const std::vector<Value> &all) {
        const std::string bytes = written(Array(all));
        return static_cast<int>(bytes[bytes.size() - 25]);
    };
    EXPECT_EQ(referenceWidth(values), 1); // 255 objects
    values.emplace_back(254);
    EXPECT_EQ(referenceWidth(values), 2); // 256 objects
}

TEST(BinaryPropertyListWriter, OffsetsWidenWithTheSizeOfTheObjects) {
    const auto offsetWidth = [](size_t size) {
        const std::string bytes = written(Data(std::vector<uint8_t>(size)));
        return static_cast<int>(bytes[bytes.size() - 26]);
    };
    EXPECT_EQ(offsetWidth(244), 1); // 8 + 3 + 244 bytes
    EXPECT_EQ(offsetWidth(245), 2);
    EXPECT_EQ(offsetWidth(65523), 2); // 8 + 4 + 65523 bytes
    EXPECT_EQ(offsetWidth(65524), 4);
}

TEST(BinaryPropertyListWriter, WritesEqualLeavesOnce) {
    EXPECT_EQ(objectCount(Array{"x", String(std::string("x")), Dictionary{{"x", "x"}}}), 3u);
    EXPECT_EQ(objectCount(Array{1, uint64_t{1}, int64_t{1}}), 2u);
    EXPECT_EQ(objectCount(Array{1.5, 1.5, Date{1.5}, Date{1.5}}), 3u);
    EXPECT_EQ(objectCount(Array{dataOf({1}), dataOf({1}), UID{1}, UID{1}, true, true}), 4u);
    const std::string longText(1000, 'l');
    const String longString(longText);
    EXPECT_EQ(objectCount(Array{longString, longText, longString, Dictionary{{longString, longText}}}), 3u);
}

TEST(BinaryPropertyListWriter, TellsLeavesOfDifferentKindsApart) {
    const Value mixed = Array{1, true, 1.0, Date{1}, UID{1}, "1", dataOf({'1'}), 0.0, -0.0, false, 0, ""};
    EXPECT_EQ(objectCount(mixed), 13u);
    EXPECT_EQ(ExactText::of(readBinaryPropertyList(binaryOf(mixed).bytes(), Mutability::immutable).value()),
              R"([1, true, real(1), date(1), uid(1), "1", <31>, real(0), real(-0), false, 0, ""])");
}

TEST(BinaryPropertyListWriter, WritesASharedContainerOnce) {
    const Array shared{1};
    EXPECT_EQ(written(Array{shared, shared}), file({raw({0xA2, 1, 1}), raw({0xA1, 2}), raw({0x10, 1})}));
}

TEST(BinaryPropertyListWriter, WritesEqualContainersEachByItself) {
    EXPECT_EQ(objectCount(Array{Array{1}, Array{1}}), 4u);
}

TEST(BinaryPropertyListWriter, RefusesNull) {
    EXPECT_THAT(errorOf(nullptr), HasSubstr("null"));
    EXPECT_THAT(errorOf(Dictionary{{"a", 1}, {"b", nullptr}}), HasSubstr("under the key \"b\""));
    EXPECT_THAT(errorOf(Array{1, Array{2, nullptr}}), HasSubstr("at index 1"));
}

class Record final : public Object {
  public:
    [[nodiscard]] std::string className() const override { return "Record"; }
    void encodeWithCoder(KeyedEncoder &) const override {}
    [[nodiscard]] std::string description() const override { return "record"; }
};

TEST(BinaryPropertyListWriter, RefusesRecords) {
    EXPECT_THAT(errorOf(Array{1, 2, makeRef<Record>()}),
                ::testing::AllOf(HasSubstr("record"), HasSubstr("at index 2")));
}

TEST(BinaryPropertyListWriter, RefusesAContainerThatHoldsItself) {
    const SelfHoldingArray array;
    EXPECT_THAT(errorOf(array.value()), HasSubstr("a container holds itself"));
    EXPECT_THAT(errorOf(Array{Dictionary{{"k", array.value()}}}), HasSubstr("a container holds itself"));
}

TEST(BinaryPropertyListWriter, WritesTheSameBytesEachTime) {
    const Value root = Dictionary{{"a", Array{1, "x", 2.5}}, {"b", Dictionary{{"x", dataOf({1, 2})}}}};
    EXPECT_EQ(written(root), written(root));
}

} // namespace
} // namespace moxel
