// Property lists in binary form, read.
#include "Support/BinaryFile.h"
#include "Support/PropertyLists.h"

#include <gmock/gmock.h>
#include <limits>

namespace moxel {
namespace {

using test::asBytes;
using test::bigEndian;
using test::BinaryFile;
using test::ExactText;
using test::outcomeOf;
using test::raw;
using ::testing::HasSubstr;

std::string outcome(const std::string &file, Mutability mutability = Mutability::immutable) {
    return outcomeOf(readBinaryPropertyList(asBytes(file), mutability));
}

/// What a file with one object, of these bytes, reads to.
std::string outcomeOfObject(const std::string &object) { return outcome(BinaryFile{{object}}.bytes()); }

TEST(BinaryPropertyListReader, ReadsAFileGivenByteForByte) {
    EXPECT_EQ(outcome(raw({'b',  'p',  'l',  'i',  's', 't',  '0',  '0',                             //
                           0xD1, 0x01, 0x02, 0x51, 'A', 0x10, 0x07,                                  //
                           0x08, 0x0B, 0x0D,                                                         //
                           0,    0,    0,    0,    0,   0,    1,    1,   0, 0, 0, 0, 0, 0, 0, 3,     //
                           0,    0,    0,    0,    0,   0,    0,    0,   0, 0, 0, 0, 0, 0, 0, 15})), //
              R"({"A": 7})");
}

TEST(BinaryPropertyListReader, ReadsSingleByteObjects) {
    EXPECT_EQ(outcomeOfObject(raw({0x00})), "null");
    EXPECT_EQ(outcomeOfObject(raw({0x08})), "false");
    EXPECT_EQ(outcomeOfObject(raw({0x09})), "true");
}

TEST(BinaryPropertyListReader, RefusesOtherSingleByteObjects) {
    for (const unsigned byte :
         std::initializer_list<unsigned>{0x01, 0x07, 0x0A, 0x0C, 0x0D, 0x0E, 0x0F, 0x70, 0x90, 0xE0, 0xF0})
        EXPECT_THAT(outcomeOfObject(raw({byte})), HasSubstr("unknown type " + std::to_string(byte)));
}

TEST(BinaryPropertyListReader, NamesSetsAsUnsupported) {
    EXPECT_THAT(outcomeOfObject(raw({0xC0})), HasSubstr("a set"));
    EXPECT_THAT(outcomeOfObject(raw({0xB0})), HasSubstr("a set"));
}

TEST(BinaryPropertyListReader, ReadsNarrowIntegersAsUnsigned) {
    EXPECT_EQ(outcomeOfObject(raw({0x10, 0xFF})), "255");
    EXPECT_EQ(outcomeOfObject(raw({0x11, 0xFF, 0xFE})), "65534");
    EXPECT_EQ(outcomeOfObject(raw({0x12, 0xFF, 0xFF, 0xFF, 0xFD})), "4294967293");
}

TEST(BinaryPropertyListReader, ReadsEightByteIntegersAsSigned) {
    EXPECT_EQ(outcomeOfObject(raw({0x13}) + bigEndian(UINT64_MAX, 8)), "-1");
    EXPECT_EQ(outcomeOfObject(raw({0x13}) + bigEndian(uint64_t{1} << 63, 8)), "-9223372036854775808");
    EXPECT_EQ(outcomeOfObject(raw({0x13}) + bigEndian(INT64_MAX, 8)), "9223372036854775807");
}

TEST(BinaryPropertyListReader, ReadsSixteenByteIntegersThatFit) {
    const std::string zeros(8, '\0');
    const std::string ones(8, '\xFF');
    EXPECT_EQ(outcomeOfObject(raw({0x14}) + zeros + bigEndian(5, 8)), "5");
    EXPECT_EQ(outcomeOfObject(raw({0x14}) + zeros + ones), "18446744073709551615");
    EXPECT_EQ(outcomeOfObject(raw({0x14}) + ones + ones), "-1");
    EXPECT_EQ(outcomeOfObject(raw({0x14}) + ones + bigEndian(uint64_t{1} << 63, 8)), "-9223372036854775808");
}

TEST(BinaryPropertyListReader, SixteenByteIntegersKeepTheirKinds) {
    const auto kindOf = [](const std::string &high, uint64_t low) {
        const std::string file = BinaryFile{{raw({0x14}) + high + bigEndian(low, 8)}}.bytes();
        return readBinaryPropertyList(asBytes(file), Mutability::immutable).value().kind();
    };
    EXPECT_EQ(kindOf(std::string(8, '\0'), INT64_MAX), Kind::integer);
    EXPECT_EQ(kindOf(std::string(8, '\0'), uint64_t{INT64_MAX} + 1), Kind::unsignedInteger);
}

TEST(BinaryPropertyListReader, RefusesIntegersBeyond64Bits) {
    EXPECT_THAT(outcomeOfObject(raw({0x14}) + bigEndian(1, 8) + bigEndian(0, 8)), HasSubstr("64 bits"));
    EXPECT_THAT(outcomeOfObject(raw({0x14}) + bigEndian(UINT64_MAX, 8) + bigEndian(0, 8)),
                HasSubstr("64 bits"));
    EXPECT_THAT(outcomeOfObject(raw({0x15}) + std::string(32, '\0')), HasSubstr("16 bytes"));
}

TEST(BinaryPropertyListReader, ReadsRealsOfFourAndEightBytes) {
    EXPECT_EQ(outcomeOfObject(raw({0x22, 0x3F, 0xC0, 0x00, 0x00})), "real(1.5)");
    EXPECT_EQ(outcomeOfObject(raw({0x23, 0xBF, 0xE0, 0, 0, 0, 0, 0, 0})), "real(-0.5)");
    EXPECT_EQ(outcomeOfObject(raw({0x23, 0x7F, 0xF0, 0, 0, 0, 0, 0, 0})), "real(inf)");
    EXPECT_EQ(outcomeOfObject(raw({0x22, 0x7F, 0xC0, 0x00, 0x00})), "real(nan)");
    EXPECT_THAT(outcomeOfObject(raw({0x21, 0x3C, 0x00})), HasSubstr("4 or 8 bytes"));
    EXPECT_THAT(outcomeOfObject(raw({0x24}) + std::string(16, '\0')), HasSubstr("4 or 8 bytes"));
}

TEST(BinaryPropertyListReader, ReadsDatesOfAnyValue) {
    EXPECT_EQ(outcomeOfObject(raw({0x33, 0x3F, 0xF0, 0, 0, 0, 0, 0, 0})), "date(1)");
    EXPECT_EQ(outcomeOfObject(raw({0x33, 0x7F, 0xEF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF})),
              "date(1.7976931348623157e+308)");
    EXPECT_EQ(outcomeOfObject(raw({0x33, 0x7F, 0xF8, 0, 0, 0, 0, 0, 0})), "date(nan)");
    EXPECT_THAT(outcomeOfObject(raw({0x32, 0, 0, 0, 0})), HasSubstr("a date is not 8 bytes wide"));
}

TEST(BinaryPropertyListReader, ReadsData) {
    EXPECT_EQ(outcomeOfObject(raw({0x40})), "<>");
    EXPECT_EQ(outcomeOfObject(raw({0x43, 0x00, 0xFF, 0x7F})), "<00ff7f>");
    EXPECT_EQ(outcomeOfObject(raw({0x4F, 0x10, 0x0F}) + std::string(15, '\x11')),
              "<111111111111111111111111111111>");
}

TEST(BinaryPropertyListReader, ReadsASCIIStrings) {
    EXPECT_EQ(outcomeOfObject(raw({0x50})), R"("")");
    EXPECT_EQ(outcomeOfObject(raw({0x53, 'a', 0, 'b'})), R"("a\x00b")");
    EXPECT_EQ(outcomeOfObject(raw({0x5F, 0x10, 0x10}) + "0123456789abcdef"), R"("0123456789abcdef")");
}

TEST(BinaryPropertyListReader, TakesBytesBeyondASCIIAsLatin1) {
    EXPECT_EQ(outcomeOfObject(raw({0x52, 'a', 0xE9})), "\"a\u00E9\"");
}

TEST(BinaryPropertyListReader, ReadsUTF16Strings) {
    EXPECT_EQ(outcomeOfObject(raw({0x60})), R"("")");
    EXPECT_EQ(outcomeOfObject(raw({0x63, 0x00, 0xE9, 0xD8, 0x3D, 0xDE, 0x30})), "\"\u00E9\U0001F630\"");
}

TEST(BinaryPropertyListReader, KeepsSurrogatesThatStandAlone) {
    const std::string file = BinaryFile{{raw({0x63, 0xDC, 0x00, 0x00, 0x41, 0xD8, 0x00})}}.bytes();
    const Result<Value> read = readBinaryPropertyList(asBytes(file), Mutability::immutable);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->asString().utf16(), std::u16string({0xDC00, u'A', 0xD800}));
}

TEST(BinaryPropertyListReader, ReadsUIDsOfUpTo64Bits) {
    EXPECT_EQ(outcomeOfObject(raw({0x80, 0x07})), "uid(7)");
    EXPECT_EQ(outcomeOfObject(raw({0x82, 0x01, 0x00, 0x02})), "uid(65538)");
    EXPECT_EQ(outcomeOfObject(raw({0x87}) + bigEndian(UINT64_MAX, 8)), "uid(18446744073709551615)");
    EXPECT_EQ(outcomeOfObject(raw({0x8F}) + bigEndian(0, 8) + bigEndian(9, 8)), "uid(9)");
    EXPECT_THAT(outcomeOfObject(raw({0x8F}) + bigEndian(1, 8) + bigEndian(9, 8)), HasSubstr("64 bits"));
}

TEST(BinaryPropertyListReader, ReadsArrays) {
    EXPECT_EQ(outcomeOfObject(raw({0xA0})), "[]");
    EXPECT_EQ(outcome(BinaryFile{{raw({0xA3, 1, 2, 1}), raw({0x09}), raw({0x51, 'x'})}}.bytes()),
              R"([true, "x", true])");
}

TEST(BinaryPropertyListReader, ReadsDictionaries) {
    EXPECT_EQ(outcomeOfObject(raw({0xD0})), "{}");
    EXPECT_EQ(outcome(BinaryFile{
                  {raw({0xD2, 1, 2, 3, 4}), raw({0x51, 'b'}), raw({0x51, 'a'}), raw({0x08}), raw({0xA0})}}
                          .bytes()),
              R"({"b": false, "a": []})");
}

TEST(BinaryPropertyListReader, ReadsCountsOfEveryWidth) {
    for (const size_t exponent : {0u, 1u, 2u, 3u, 4u}) {
        BinaryFile file{
            {raw({0xAF, static_cast<unsigned>(0x10 + exponent)}) +
             (exponent == 4 ? bigEndian(0, 8) + bigEndian(2, 8) : bigEndian(2, size_t{1} << exponent)) +
             raw({1, 1})}};
        file.objects.push_back(raw({0x09}));
        EXPECT_EQ(outcome(file.bytes()), "[true, true]") << exponent;
    }
}

TEST(BinaryPropertyListReader, RefusesCountsThatAreNoCounts) {
    EXPECT_THAT(outcomeOfObject(raw({0xAF, 0x13}) + bigEndian(UINT64_MAX, 8)),
                HasSubstr("larger than the file"));
    EXPECT_THAT(outcomeOfObject(raw({0x4F, 0x23}) + bigEndian(0, 8)), HasSubstr("a count is not an integer"));
    EXPECT_THAT(outcomeOfObject(raw({0x4F})), HasSubstr("a count is not an integer"));
}

TEST(BinaryPropertyListReader, RefusesCountsBeyondTheData) {
    for (const unsigned marker : std::initializer_list<unsigned>{0x4F, 0x5F, 0x6F, 0xAF, 0xDF}) {
        EXPECT_THAT(outcomeOfObject(raw({marker, 0x12}) + bigEndian(INT32_MAX, 4)),
                    HasSubstr("larger than the file"));
        EXPECT_THAT(outcomeOfObject(raw({marker, 0x13}) + bigEndian(INT64_MAX, 8)),
                    HasSubstr("larger than the file"));
        EXPECT_THAT(outcomeOfObject(raw({marker, 0x10, 0x20})), HasSubstr("into the offset table"));
    }
}

TEST(BinaryPropertyListReader, RefusesObjectsThatReachIntoTheOffsetTable) {
    EXPECT_THAT(outcomeOfObject(raw({0x52, 'a'})), HasSubstr("into the offset table"));
    EXPECT_THAT(outcomeOfObject(raw({0x61, 0x00})), HasSubstr("into the offset table"));
    EXPECT_THAT(outcomeOfObject(raw({0xD1, 0x00})), HasSubstr("into the offset table"));
    EXPECT_THAT(outcomeOfObject(raw({0x13, 0x00})), HasSubstr("into the offset table"));
}

TEST(BinaryPropertyListReader, ReadsEveryOffsetAndReferenceWidth) {
    for (size_t width = 1; width <= 8; ++width) {
        EXPECT_EQ(outcome(BinaryFile{{raw({0xA1, 1}), raw({0x51, 'x'})}, width, 1}.bytes()), R"(["x"])");
        EXPECT_EQ(
            outcome(BinaryFile{{raw({0xA1}) + bigEndian(1, width), raw({0x51, 'x'})}, 1, width}.bytes()),
            R"(["x"])");
    }
}

TEST(BinaryPropertyListReader, RefusesOtherWidths) {
    const std::string object = "bplist00\x09\x08";
    for (const size_t width : {size_t{0}, size_t{9}, size_t{255}}) {
        EXPECT_THAT(outcome(object + BinaryFile::trailer(width, 1, 1, 0, 9)), HasSubstr("1 to 8 bytes wide"));
        EXPECT_THAT(outcome(object + BinaryFile::trailer(1, width, 1, 0, 9)), HasSubstr("1 to 8 bytes wide"));
    }
}

TEST(BinaryPropertyListReader, RefusesAnOffsetTableThatLiesOutside) {
    const std::string object = "bplist00\x09\x08";
    for (const uint64_t start : {uint64_t{0}, uint64_t{8}, uint64_t{10}, uint64_t{42}, UINT64_MAX})
        EXPECT_THAT(outcome(object + BinaryFile::trailer(1, 1, 1, 0, start)),
                    HasSubstr("the offset table lies outside"));
}

TEST(BinaryPropertyListReader, RefusesAnObjectCountThatTheTableDoesNotHave) {
    const std::string object = "bplist00\x09\x08";
    for (const uint64_t count : {uint64_t{0}, uint64_t{2}, uint64_t{1} << 32, UINT64_MAX})
        EXPECT_THAT(outcome(object + BinaryFile::trailer(1, 1, count, 0, 9)), HasSubstr("number of objects"));
    // A product of count and width that wraps around to the size of the table.
    EXPECT_THAT(outcome("bplist00\x09" + std::string(8, '\x08') +
                        BinaryFile::trailer(8, 1, (uint64_t{1} << 61) + 1, 0, 9)),
                HasSubstr("number of objects"));
}

TEST(BinaryPropertyListReader, RefusesATopObjectThatDoesNotExist) {
    for (const uint64_t top : {uint64_t{1}, UINT64_MAX})
        EXPECT_THAT(outcome("bplist00\x09\x08" + BinaryFile::trailer(1, 1, 1, top, 9)),
                    HasSubstr("the top one"));
}

TEST(BinaryPropertyListReader, ReadsATopObjectThatIsNotTheFirst) {
    EXPECT_EQ(outcome(BinaryFile{{raw({0x09}), raw({0xA1, 0})}, 1, 1, 1}.bytes()), "[true]");
}

TEST(BinaryPropertyListReader, RefusesOffsetsOutsideTheObjects) {
    for (const unsigned offset : std::initializer_list<unsigned>{0, 7, 9, 200})
        EXPECT_THAT(outcome("bplist00\x09" + raw({offset}) + BinaryFile::trailer(1, 1, 1, 0, 9)),
                    HasSubstr("an object's offset lies outside"));
}

TEST(BinaryPropertyListReader, RefusesReferencesToObjectsThatDoNotExist) {
    EXPECT_THAT(outcomeOfObject(raw({0xA1, 1})), HasSubstr("a reference to object 1, which does not exist"));
    EXPECT_THAT(outcome(BinaryFile{{raw({0xA1}) + std::string(8, '\xFF')}, 1, 8}.bytes()),
                HasSubstr("a reference to object 18446744073709551615"));
}

TEST(BinaryPropertyListReader, NamesTheByteAtWhichItStopped) {
    EXPECT_THAT(outcomeOfObject(raw({0xA1, 1})), HasSubstr("at byte 9"));
}

TEST(BinaryPropertyListReader, RefusesKeysThatAreNotStrings) {
    EXPECT_THAT(outcome(BinaryFile{{raw({0xD1, 1, 1}), raw({0x09})}}.bytes()),
                HasSubstr("a key is not a string"));
    EXPECT_THAT(outcome(BinaryFile{{raw({0xD1, 1, 1}), raw({0xA0})}}.bytes()),
                HasSubstr("a key is not a string"));
}

TEST(BinaryPropertyListReader, OfEqualKeysTheFirstCounts) {
    const std::string file = BinaryFile{
        {raw({0xD3, 1, 2, 3, 4, 5, 4}), raw({0x51, 'k'}), raw({0x51, 'l'}), raw({0x51, 'k'}), raw({0x09}),
         raw({0x08})}}.bytes();
    EXPECT_EQ(outcome(file), R"({"k": true, "l": false})");
    EXPECT_EQ(outcome(file, Mutability::mutableContainers), R"({"k": true, "l": false})");
    const Result<Value> read = readBinaryPropertyList(asBytes(file), Mutability::immutable);
    EXPECT_FALSE(read->asDictionary().isMutable());
}

TEST(BinaryPropertyListReader, RefusesContainersThatHoldThemselves) {
    EXPECT_THAT(outcomeOfObject(raw({0xA1, 0})), HasSubstr("a container holds itself"));
    EXPECT_THAT(outcome(BinaryFile{{raw({0xA1, 1}), raw({0xA1, 2}), raw({0xA2, 2, 1})}}.bytes()),
                HasSubstr("a container holds itself"));
    EXPECT_THAT(outcome(BinaryFile{{raw({0xD1, 1, 0}), raw({0x51, 'k'})}}.bytes()),
                HasSubstr("a container holds itself"));
    EXPECT_THAT(outcome(BinaryFile{{raw({0xD1, 0, 1}), raw({0x51, 'k'})}}.bytes()),
                HasSubstr("a container holds itself"));
}

TEST(BinaryPropertyListReader, ObjectsThatNothingRefersToAreNotRead) {
    EXPECT_EQ(outcome(BinaryFile{{raw({0x09}), raw({0xFF}), raw({0xA1, 99})}}.bytes()), "true");
}

TEST(BinaryPropertyListReader, FillBytesMayStandBetweenObjects) {
    EXPECT_EQ(outcome(BinaryFile{{raw({0xA1, 1, 0x0F, 0x0F}), raw({0x09, 0x0F})}}.bytes()), "[true]");
}

TEST(BinaryPropertyListReader, TakesAnyMinorVersion) {
    std::string file = BinaryFile{{raw({0x09})}}.bytes();
    file[7] = '1';
    EXPECT_EQ(outcome(file), "true");
    file[6] = '1';
    EXPECT_THAT(outcome(file), HasSubstr("version"));
}

TEST(BinaryPropertyListReader, SharesAnObjectThatIsReferredToTwice) {
    const std::string file = BinaryFile{{raw({0xA4, 1, 1, 2, 2}), raw({0xA1, 2}), raw({0x51, 'x'})}}.bytes();
    const Result<Value> read = readBinaryPropertyList(asBytes(file), Mutability::immutable);
    ASSERT_TRUE(read);
    const Array array = read->asArray();
    EXPECT_EQ(array[0].node(), array[1].node());
    EXPECT_EQ(array[2].node(), array[3].node());
    EXPECT_EQ(array[0].asArray()[0].node(), array[2].node());
}

TEST(BinaryPropertyListReader, ContainersAreMutableOnRequest) {
    const std::string file =
        BinaryFile{{raw({0xA2, 1, 1}), raw({0xD1, 2, 3}), raw({0x51, 'k'}), raw({0xA0})}}.bytes();
    const Result<Value> read = readBinaryPropertyList(asBytes(file), Mutability::mutableContainers);
    ASSERT_TRUE(read);
    MutableArray array = read->asMutableArray();
    ASSERT_TRUE(array);
    MutableDictionary dictionary = array[0].asMutableDictionary();
    ASSERT_TRUE(dictionary);
    ASSERT_TRUE(dictionary["k"].asMutableArray());
    // One container in the file is one container in memory.
    dictionary.set("k", 1);
    EXPECT_EQ(ExactText::of(array), R"([{"k": 1}, {"k": 1}])");
}

TEST(BinaryPropertyListReader, ContainersAreImmutableOtherwise) {
    const std::string file = BinaryFile{{raw({0xA1, 1}), raw({0xD0})}}.bytes();
    const Result<Value> read = readBinaryPropertyList(asBytes(file), Mutability::immutable);
    ASSERT_TRUE(read);
    EXPECT_FALSE(read->asArray().isMutable());
    EXPECT_FALSE(read->asArray()[0].asDictionary().isMutable());
}

} // namespace
} // namespace moxel
