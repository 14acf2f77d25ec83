// Helpers over text, bytes and containers.
#include <Moxel/MoxelStrings.h>

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

namespace moxel {
namespace {

Data bytes(std::vector<uint8_t> content) { return Data(std::move(content)); }

TEST(HexString, OfEmptyDataIsEmpty) { EXPECT_EQ(hexString(bytes({})), String("")); }

TEST(HexString, IsLowerCaseTwoDigitsAByte) {
    EXPECT_EQ(hexString(bytes({0x00, 0xAB, 0xFF})), String("00abff"));
}

TEST(HexString, CoversEveryByte) {
    std::vector<uint8_t> all(256);
    std::string expected;
    for (size_t i = 0; i < all.size(); ++i) {
        all[i] = static_cast<uint8_t>(i);
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned>(i));
        expected += digits;
    }
    EXPECT_EQ(hexString(bytes(all)), String(expected));
}

TEST(HexString, TakesTheCountModulo65536) {
    EXPECT_EQ(hexString(bytes(std::vector<uint8_t>(65535))).length(), 131070U);
    EXPECT_EQ(hexString(bytes(std::vector<uint8_t>(65538, 0x11))), String("1111"));
}

TEST(BinaryData, CountsOtherCharactersAsZeroAndDropsAnOddLastOne) {
    EXPECT_EQ(binaryData("0G1"), bytes({0x00}));
}

TEST(BinaryData, TakesDigitsOfEitherCase) { EXPECT_EQ(binaryData("ABcd"), bytes({0xAB, 0xCD})); }

TEST(BinaryData, OfAnEmptyStringIsEmpty) {
    EXPECT_EQ(binaryData(""), bytes({}));
    EXPECT_TRUE(binaryData(""));
}

TEST(BinaryData, UndoesHexString) {
    const Data original = bytes({0x62, 0x70, 0x6C, 0x00, 0xFE});
    EXPECT_EQ(binaryData(hexString(original)), original);
}

TEST(BinaryData, OfTextBeyondAsciiStaysInBounds) {
    EXPECT_EQ(binaryData("ÄÖ").size(), 1U);
    EXPECT_EQ(binaryData("😀😀").size(), 2U);
}

TEST(BinaryData, TakesTheCountModulo65536) {
    EXPECT_EQ(binaryData(std::string(131071, 'f')).size(), 65535U);
    EXPECT_EQ(binaryData(std::string(131072 + 4, 'f')).size(), 2U);
}

TEST(PascalString, OfCountZeroIsNull) {
    const uint8_t empty[] = {0, 'x'};
    EXPECT_FALSE(stringWithPascalString(empty));
    EXPECT_FALSE(stringWithPascalString(nullptr));
}

TEST(PascalString, IsReadAsUTF8OfTheCountedBytes) {
    const uint8_t text[] = {3, 'a', 0xC3, 0xA4, 'x'};
    EXPECT_EQ(stringWithPascalString(text), String("aä"));
}

TEST(PascalString, ThatIsNotUTF8IsNull) {
    const uint8_t text[] = {2, 'a', 0xC3, 0xA4};
    EXPECT_FALSE(stringWithPascalString(text));
}

TEST(GetPascalString, Of300CharactersWrites255) {
    std::array<uint8_t, 300> buffer{};
    getPascalString(std::string(300, 'n'), buffer.data());
    EXPECT_EQ(buffer[0], 255);
    EXPECT_EQ(std::string(buffer.begin() + 1, buffer.begin() + 256), std::string(255, 'n'));
    EXPECT_EQ(buffer[256], 0);
}

TEST(GetPascalString, WithMaximumZeroWritesOnlyTheCountByte) {
    std::array<uint8_t, 4> buffer{9, 9, 9, 9};
    getPascalString("abc", buffer.data(), 0);
    EXPECT_EQ(buffer, (std::array<uint8_t, 4>{0, 9, 9, 9}));
}

TEST(GetPascalString, OfAnEmptyStringWritesOnlyTheCountByte) {
    std::array<uint8_t, 2> buffer{9, 9};
    getPascalString("", buffer.data());
    EXPECT_EQ(buffer, (std::array<uint8_t, 2>{0, 9}));
}

TEST(GetPascalString, WithANegativeMaximumHasNoLimitAndTheCountWraps) {
    std::array<uint8_t, 301> buffer{};
    getPascalString(std::string(300, 'n'), buffer.data(), -1);
    EXPECT_EQ(buffer[0], 44);
    EXPECT_EQ(buffer[300], 'n');
}

TEST(GetPascalString, CutsCharactersAtTheLimit) {
    std::array<uint8_t, 4> buffer{};
    getPascalString("aä", buffer.data(), 2);
    EXPECT_EQ(buffer, (std::array<uint8_t, 4>{2, 'a', 0xC3, 0}));
}

TEST(GetPascalString, ReplacesWhatUTF8CannotExpress) {
    const char16_t units[] = {u'a', 0xD800, u'b'};
    std::array<uint8_t, 8> buffer{};
    getPascalString(String::fromUTF16(units), buffer.data());
    EXPECT_EQ(std::string(buffer.begin(), buffer.begin() + 4), "\3a?b");
}

TEST(IllegalCharacters, BecomeHyphens) {
    EXPECT_EQ(stringByReplacingIllegalCharacters("a/b:c|d?e"), String("a-b-c-d-e"));
    EXPECT_EQ(stringByReplacingIllegalCharacters("\"*/:?@\\|"), String("--------"));
}

TEST(IllegalCharacters, LeaveEverythingElse) {
    EXPECT_EQ(stringByReplacingIllegalCharacters("x.y(z)"), String("x.y(z)"));
    EXPECT_EQ(stringByReplacingIllegalCharacters("<a>\n\x01 ä😀"), String("<a>\n\x01 ä😀"));
    EXPECT_EQ(stringByReplacingIllegalCharacters(""), String(""));
    const char16_t lone[] = {0xDC00, u'/'};
    const char16_t cleaned[] = {0xDC00, u'-'};
    EXPECT_EQ(stringByReplacingIllegalCharacters(String::fromUTF16(lone)), String::fromUTF16(cleaned));
}

TEST(CopyDeepMutable, MakesEveryContainerMutableAndLeavesTheSourceAlone) {
    const Value source = Dictionary{{"list", Array{Dictionary{{"key", "value"}}}}};
    const Value copy = copyDeepMutable(source);
    EXPECT_EQ(copy, source);
    MutableDictionary outer = copy.asMutableDictionary();
    ASSERT_TRUE(outer);
    MutableArray list = outer["list"].asMutableArray();
    ASSERT_TRUE(list);
    MutableDictionary inner = list[0].asMutableDictionary();
    ASSERT_TRUE(inner);
    inner.set("key", "changed");
    list.append(1);
    EXPECT_EQ(source.description(),
              Value(Dictionary{{"list", Array{Dictionary{{"key", "value"}}}}}).description());
}

TEST(CopyDeepMutable, KeepsLeavesAndKeysShared) {
    const String leaf = "a leaf long enough to be worth sharing";
    const Value copy = copyDeepMutable(Dictionary{{"key", leaf}});
    EXPECT_EQ(copy.asDictionary()["key"].node(), leaf.node());
    EXPECT_EQ(copyDeepMutable(5), Value(5));
    EXPECT_TRUE(copyDeepMutable(Value()).isNull());
}

TEST(CopyDeepMutable, CopiesAMutableSourceToo) {
    MutableDictionary source = MutableDictionary::withCapacity(1);
    source.set("key", 1);
    MutableDictionary copy = copyDeepMutable(source).asMutableDictionary();
    copy.set("key", 2);
    EXPECT_EQ(source["key"], Value(1));
}

TEST(Hyperlink, HasExactlyItsFiveAttributes) {
    const AttributedString link = getHyperlink("https://example.org", true);
    EXPECT_EQ(link.text, String("https://example.org"));
    EXPECT_EQ(link.attributes.size(), 5U);
    EXPECT_EQ(link.attributes["NSUnderline"], Value(1));
    EXPECT_EQ(link.attributes["NSLink"], Value("https://example.org"));
    EXPECT_EQ(link.attributes["NSFont"].asDictionary()["family"], Value("system-ui"));
    EXPECT_EQ(link.attributes["NSParagraphStyle"].asMutableDictionary().size(), 0U);
    EXPECT_TRUE(link.attributes["NSParagraphStyle"].asMutableDictionary());
}

TEST(Hyperlink, IsRedWhenHighlightedAndBlueOtherwise) {
    const auto color = [](bool highlighted) {
        return getHyperlink("x", highlighted).attributes["NSColor"].asDictionary();
    };
    EXPECT_EQ(color(true),
              (Dictionary{
                  {"space", "calibratedRGB"}, {"red", 1.0}, {"green", 0.1}, {"blue", 0.1}, {"alpha", 1.0}}));
    EXPECT_EQ(color(false),
              (Dictionary{
                  {"space", "calibratedRGB"}, {"red", 0.1}, {"green", 0.1}, {"blue", 1.0}, {"alpha", 1.0}}));
}

TEST(NumericCompare, OrdersRunsOfDigitsByTheirNumber) {
    EXPECT_EQ(caseInsensitiveNumericCompare("Item 9", "Item 10"), ComparisonResult::ascending);
    EXPECT_EQ(caseInsensitiveNumericCompare("Item 10", "Item 9"), ComparisonResult::descending);
    EXPECT_EQ(caseInsensitiveNumericCompare("a2b10", "a2b9"), ComparisonResult::descending);
    EXPECT_EQ(caseInsensitiveNumericCompare("99999999999999999999", "100000000000000000000"),
              ComparisonResult::ascending);
}

TEST(NumericCompare, IgnoresCaseInEveryScript) {
    EXPECT_EQ(caseInsensitiveNumericCompare("ITEM 9", "item 9"), ComparisonResult::same);
    EXPECT_EQ(caseInsensitiveNumericCompare("ÄΣЖ", "äσж"), ComparisonResult::same);
}

TEST(NumericCompare, OrdersPrefixesFirst) {
    EXPECT_EQ(caseInsensitiveNumericCompare("Item", "Item 1"), ComparisonResult::ascending);
    EXPECT_EQ(caseInsensitiveNumericCompare("", ""), ComparisonResult::same);
    EXPECT_EQ(caseInsensitiveNumericCompare("b", "a"), ComparisonResult::descending);
}

} // namespace
} // namespace moxel
