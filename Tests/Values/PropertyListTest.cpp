// Property lists of all forms: told apart, and the same after a way through each.
#include "Values/PropertyList.h"
#include "Support/PropertyLists.h"

#include <cmath>
#include <gmock/gmock.h>
#include <limits>
#include <random>

namespace moxel {
namespace {

using test::asBytes;
using test::asText;
using test::binaryOf;
using test::dataOf;
using test::ExactText;
using test::outcomeOf;
using test::xmlOf;
using ::testing::HasSubstr;

PropertyListFormat formatOf(std::string_view text) {
    const Result<PropertyList> list = readPropertyList(asBytes(text));
    EXPECT_TRUE(list) << text << ": " << list.error().message;
    return list ? list->format : PropertyListFormat::binary;
}

std::string outcome(std::string_view text) { return outcomeOf(readPropertyList(asBytes(text))); }

TEST(PropertyList, BinaryFormIsKnownByItsMagic) {
    EXPECT_EQ(formatOf(asText(binaryOf(true))), PropertyListFormat::binary);
    EXPECT_THAT(outcome("bplist"), HasSubstr("binary property list: too short"));
    EXPECT_THAT(outcome("bplist00"), HasSubstr("binary property list: too short"));
    EXPECT_THAT(outcome("bplist16" + std::string(64, ' ')),
                HasSubstr("binary property list: not of version 0"));
}

TEST(PropertyList, XMLFormIsKnownByItsFirstTag) {
    for (const char *text :
         {"<?xml version=\"1.0\"?><array/>", "<!DOCTYPE plist><array/>", "<!-- x --><array/>",
          "<plist><array/></plist>", "<plist version='1.0'><array/></plist>", "<array/>", "<dict></dict>",
          " \r\n\t<plist/>", "\xEF\xBB\xBF<plist/>", "\xEF\xBB\xBF \n<plist/>", "<data></data>",
          "<date>2001-01-01T00:00:00Z</date>"})
        EXPECT_EQ(formatOf(text), PropertyListFormat::xml) << text;
    EXPECT_THAT(outcome("<set/>"), HasSubstr("XML property list"));
    EXPECT_THAT(outcome("<?"), HasSubstr("XML property list"));
}

TEST(PropertyList, XMLFormIsKnownInWideEncodings) {
    EXPECT_EQ(formatOf(std::string_view("\0<\0t\0r\0u\0e\0/\0>", 14)), PropertyListFormat::xml);
    EXPECT_EQ(formatOf(std::string_view("\xFF\xFE<\0t\0r\0u\0e\0/\0>\0", 16)), PropertyListFormat::xml);
    EXPECT_EQ(formatOf(std::string_view("<\0\0\0t\0\0\0r\0\0\0u\0\0\0e\0\0\0/\0\0\0>\0\0\0", 28)),
              PropertyListFormat::xml);
}

TEST(PropertyList, EverythingElseIsOldStyle) {
    for (const char *text :
         {"<0fbd77>", "<>", "< 00>", "<[AQID]>", "<*I5>", "<fade>", "<FACADE00>", "{}", "()", "abc", "a = b;",
          "/* <plist/> */ ()", "// x", " ", "\"<plist/>\"", "bpl", "\xEF\xBB\xBF<00>"})
        EXPECT_EQ(formatOf(text), PropertyListFormat::openStep) << text;
    EXPECT_THAT(outcome("<0"), HasSubstr("old-style property list"));
}

TEST(PropertyList, NoBytesAreNoPropertyList) { EXPECT_EQ(outcome(""), "error: property list: no bytes"); }

TEST(PropertyList, MutabilityReachesEveryForm) {
    for (const std::string &text : {asText(binaryOf(Array{1})), xmlOf(Array{1}), std::string("(1)")}) {
        EXPECT_TRUE(readPropertyList(asBytes(text), Mutability::mutableContainers)->root.asMutableArray());
        EXPECT_FALSE(readPropertyList(asBytes(text))->root.asMutableArray());
    }
}

/// Trees of all kinds, the same for the same seed.
class RandomTree {
  public:
    explicit RandomTree(unsigned seed) : random_(seed) {}

    Value value(int depth) {
        switch (below(depth > 0 ? 10 : 8)) {
        case 0:
            return below(2) == 1;
        case 1:
            return static_cast<int64_t>(bits());
        case 2:
            return (uint64_t{1} << 63) | bits();
        case 3:
            return real();
        case 4:
            return Date{std::floor(static_cast<double>(static_cast<int64_t>(bits()) >> 16))};
        case 5:
            return UID{bits()};
        case 6:
            return string();
        case 7:
            return data();
        case 8:
            return array(depth - 1);
        default:
            return dictionary(depth - 1);
        }
    }

  private:
    /// A number of a random width.
    uint64_t bits() { return random_() >> below(64); }
    size_t below(size_t limit) { return random_() % limit; }

    double real() {
        const double value = std::ldexp(static_cast<double>(random_()), static_cast<int>(below(2000)) - 1060);
        return below(2) == 1 ? value : -value;
    }

    String string() {
        std::u16string units;
        for (size_t length = below(40); length > 0; --length) {
            const size_t choice = below(8);
            if (choice == 0)
                units += static_cast<char16_t>(0xA0 + below(0xD800 - 0xA0));
            else if (choice == 1)
                units += {static_cast<char16_t>(0xD800 + below(0x400)),
                          static_cast<char16_t>(0xDC00 + below(0x400))};
            else
                units += static_cast<char16_t>(0x20 + below(0x5F));
        }
        return String::fromUTF16(units);
    }

    Data data() {
        std::vector<uint8_t> bytes(below(100));
        for (uint8_t &byte : bytes)
            byte = static_cast<uint8_t>(random_());
        return Data(std::move(bytes));
    }

    Array array(int depth) {
        std::vector<Value> values;
        for (size_t size = below(20); size > 0; --size)
            values.push_back(value(depth));
        return Array(std::move(values));
    }

    Dictionary dictionary(int depth) {
        std::vector<Dictionary::Entry> entries;
        for (size_t size = below(20); size > 0; --size)
            entries.push_back({string(), value(depth)});
        return Dictionary(std::move(entries));
    }

    std::mt19937_64 random_;
};

TEST(PropertyList, RandomTreesComeBackTheSame) {
    for (unsigned seed = 0; seed < 300; ++seed) {
        const Value tree = RandomTree(seed).value(4);
        const std::string text = ExactText::of(tree);
        ASSERT_EQ(outcomeOf(readPropertyList(binaryOf(tree).bytes())), text) << "seed " << seed;
        ASSERT_EQ(outcomeOf(readPropertyList(asBytes(xmlOf(tree)))), text) << "seed " << seed;
        ASSERT_EQ(outcomeOf(readPropertyList(asBytes(xmlOf(tree)), Mutability::mutableContainers)), text);
        ASSERT_EQ(outcomeOf(readPropertyList(binaryOf(tree).bytes(), Mutability::mutableContainers)), text);
    }
}

TEST(PropertyList, WhatWasReadIsWrittenAsItWas) {
    for (unsigned seed = 0; seed < 100; ++seed) {
        const Value tree = RandomTree(seed).value(4);
        const Data binary = binaryOf(tree);
        ASSERT_EQ(binaryOf(readPropertyList(binary.bytes())->root), binary) << "seed " << seed;
        const std::string xml = xmlOf(tree);
        ASSERT_EQ(xmlOf(readPropertyList(asBytes(xml))->root), xml) << "seed " << seed;
    }
}

} // namespace
} // namespace moxel
