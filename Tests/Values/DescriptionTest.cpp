// Values as text.
#include "Support/CommaLocale.h"
#include "Support/DeepValue.h"
#include "Values/KeyedArchive.h"
#include "Values/Value.h"

#include <cmath>
#include <gmock/gmock.h>
#include <limits>

namespace moxel {
namespace {

using namespace std::string_literals;
using test::CommaLocale;
using test::doublingArrays;
using test::doublingDictionaries;
using test::emptyDictionary;
using test::nestedArrays;
using test::nestedDictionaries;
using test::SelfHoldingArray;

constexpr size_t oneMebibyte = size_t{1} << 20;

/// The text of the only member of an array.
std::string inArray(const Value &value) {
    const std::string text = Array{value}.empty() ? "" : Value(Array{value}).description();
    const std::string start = "(\n    ";
    const std::string end = "\n)";
    EXPECT_TRUE(text.starts_with(start) && text.ends_with(end)) << text;
    return text.substr(start.size(), text.size() - start.size() - end.size());
}

Data bytes(size_t count) {
    std::vector<uint8_t> bytes(count);
    for (size_t i = 0; i < count; ++i)
        bytes[i] = static_cast<uint8_t>(i);
    return Data(std::move(bytes));
}

TEST(Description, StringsStandAsTheyAre) {
    EXPECT_EQ(Value("say \"hé\"\n").description(), "say \"hé\"\n");
    EXPECT_EQ(Value("").description(), "");
    EXPECT_EQ(Value("a\0b"s).description(), "a\0b"s);
}

TEST(Description, Scalars) {
    EXPECT_EQ(Value().description(), "(null)");
    EXPECT_EQ(Value(true).description(), "1");
    EXPECT_EQ(Value(false).description(), "0");
    EXPECT_EQ(Value(-5).description(), "-5");
    EXPECT_EQ(Value(INT64_MIN).description(), "-9223372036854775808");
    EXPECT_EQ(Value(UINT64_MAX).description(), "18446744073709551615");
    EXPECT_EQ(Value(UID{5}).description(), "<CFKeyedArchiverUID>{value = 5}");
}

TEST(Description, RealsHaveTheFewestDigitsThatReadBack) {
    EXPECT_EQ(Value(1.0).description(), "1");
    EXPECT_EQ(Value(1.5).description(), "1.5");
    EXPECT_EQ(Value(0.1).description(), "0.1");
    EXPECT_EQ(Value(0.1 + 0.2).description(), "0.30000000000000004");
    EXPECT_EQ(Value(1e20).description(), "1e+20");
    EXPECT_EQ(Value(-0.0).description(), "-0");
    EXPECT_EQ(Value(1.0 / 3).description(), "0.3333333333333333");
    EXPECT_EQ(Value(std::numeric_limits<double>::denorm_min()).description(), "5e-324");
    EXPECT_EQ(Value(std::numeric_limits<double>::max()).description(), "1.7976931348623157e+308");
    EXPECT_EQ(Value(std::nan("")).description(), "nan");
    EXPECT_EQ(Value(-std::nan("")).description(), "nan");
    EXPECT_EQ(Value(HUGE_VAL).description(), "inf");
    EXPECT_EQ(Value(-HUGE_VAL).description(), "-inf");
}

TEST(Description, RealsDoNotFollowTheLocale) {
    const CommaLocale locale;
    if (!locale.isSet())
        GTEST_SKIP() << "no locale with a decimal comma, nor the means to make one";
    EXPECT_EQ(Value(1.5).description(), "1.5");
    EXPECT_EQ(Value(0.1 + 0.2).description(), "0.30000000000000004");
    EXPECT_EQ(Value(1.5e300).description(), "1.5e+300");
}

TEST(Description, DatesAreInUTC) {
    EXPECT_EQ(Value(Date{0}).description(), "2001-01-01 00:00:00 +0000");
    EXPECT_EQ(Value(Date{120479613}).description(), "2004-10-26 10:33:33 +0000");
    EXPECT_EQ(Value(Date{-0.5}).description(), "2000-12-31 23:59:59 +0000");
    EXPECT_EQ(Value(Date{-978307200}).description(), "1970-01-01 00:00:00 +0000");
    EXPECT_EQ(Value(Date{63113904000}).description(), "4001-01-01 00:00:00 +0000");
    EXPECT_EQ(Value(Date{252423993600}).description(), "10000-01-01 00:00:00 +0000");
}

TEST(Description, DatesBeyondMeasureAreStillShort) {
    for (const double seconds : {1e300, -1e300, std::nan(""), HUGE_VAL, -HUGE_VAL, 9.3e18}) {
        const std::string text = Value(Date{seconds}).description();
        EXPECT_LT(text.size(), 64u);
        EXPECT_TRUE(text.ends_with("2001-01-01 00:00:00 +0000")) << text;
    }
}

TEST(Description, DataShowsItsLengthAndBytes) {
    EXPECT_EQ(Value(bytes(0)).description(), "{length = 0, bytes = 0x}");
    EXPECT_EQ(Value(Data(std::vector<uint8_t>{0x00, 0xAB, 0xFF})).description(),
              "{length = 3, bytes = 0x00abff}");
    EXPECT_EQ(Value(bytes(24)).description(),
              "{length = 24, bytes = 0x000102030405060708090a0b0c0d0e0f1011121314151617}");
    EXPECT_EQ(Value(bytes(25)).description(),
              "{length = 25, bytes = 0x00010203 04050607 08090a0b 0c0d0e0f ... 11121314 15161718 }");
}

TEST(Description, EmptyContainers) {
    EXPECT_EQ(Value(emptyDictionary()).description(), "{\n}");
    EXPECT_EQ(Value(Array::of()).description(), "(\n)");
}

TEST(Description, ArrayMembersAreSeparatedByCommas) {
    EXPECT_EQ(Value(Array{1, "two"}).description(), "(\n    1,\n    two\n)");
}

TEST(Description, DictionaryKeysAreSorted) {
    const Dictionary dictionary{{"key two", "value two"}, {"key", "value"}, {"Z", 1}, {"", 2}};
    EXPECT_EQ(Value(dictionary).description(),
              "{\n    \"\" = 2;\n    Z = 1;\n    key = value;\n    \"key two\" = \"value two\";\n}");
}

TEST(Description, KeysSortByUTF16Units) {
    const Dictionary dictionary{{"\uFFFF", 1}, {"😀", 2}, {"é", 3}};
    EXPECT_EQ(Value(dictionary).description(),
              "{\n    \"\\U00e9\" = 3;\n    \"\\Ud83d\\Ude00\" = 2;\n    \"\\Uffff\" = 1;\n}");
}

TEST(Description, NestedContainersAreIndented) {
    const Dictionary dictionary{{"list", Array{1, 2}},
                                {"table", Dictionary{{"inner", emptyDictionary()}, {"none", Array::of()}}}};
    EXPECT_EQ(Value(dictionary).description(), "{\n"
                                               "    list =     (\n"
                                               "        1,\n"
                                               "        2\n"
                                               "    );\n"
                                               "    table =     {\n"
                                               "        inner =         {\n"
                                               "        };\n"
                                               "        none =         (\n"
                                               "        );\n"
                                               "    };\n"
                                               "}");
    EXPECT_EQ(Value(Array{Array{1}, Dictionary{{"a", 1}}, 2}).description(), "(\n"
                                                                             "        (\n"
                                                                             "        1\n"
                                                                             "    ),\n"
                                                                             "        {\n"
                                                                             "        a = 1;\n"
                                                                             "    },\n"
                                                                             "    2\n"
                                                                             ")");
}

TEST(Description, WordsWithinContainersAreBareOnlyWhenAlphanumeric) {
    EXPECT_EQ(inArray("abcXYZ019"), "abcXYZ019");
    EXPECT_EQ(inArray(""), "\"\"");
    EXPECT_EQ(inArray("a b"), "\"a b\"");
    EXPECT_EQ(inArray("a-b"), "\"a-b\"");
    EXPECT_EQ(inArray("com.moxel"), "\"com.moxel\"");
    EXPECT_EQ(inArray("first_name"), "\"first_name\"");
    EXPECT_EQ(inArray("/path"), "\"/path\"");
    EXPECT_EQ(inArray("(null)"), "\"(null)\"");
}

TEST(Description, TextWithinContainersIsEscapedToASCII) {
    EXPECT_EQ(inArray("a\"b\\c"), R"("a\"b\\c")");
    EXPECT_EQ(inArray("\a\b\t\n\v\f\r"), R"("\a\b\t\n\v\f\r")");
    EXPECT_EQ(inArray("é€😀"), R"("\U00e9\U20ac\Ud83d\Ude00")");
    EXPECT_EQ(inArray("\x01\x7F"), R"("\U0001\U007f")");
    EXPECT_EQ(inArray(std::string("a\0", 2)), R"("a\U0000")");
    EXPECT_EQ(inArray(String::fromUTF16(u"\xD800"s)), R"("\Ud800")");
}

TEST(Description, LeavesWithinContainers) {
    EXPECT_EQ(inArray(nullptr), "\"<null>\"");
    EXPECT_EQ(inArray(true), "1");
    EXPECT_EQ(inArray(5), "5");
    EXPECT_EQ(inArray(-5), "\"-5\"");
    EXPECT_EQ(inArray(1.5), "\"1.5\"");
    EXPECT_EQ(inArray(2.0), "2");
    EXPECT_EQ(inArray(Date{120479613}), "\"2004-10-26 10:33:33 +0000\"");
    EXPECT_EQ(inArray(bytes(2)), "{length = 2, bytes = 0x0001}");
    EXPECT_EQ(inArray(UID{5}), "\"<CFKeyedArchiverUID>{value = 5}\"");
}

/// Prints its members after its name.
class Printed final : public Object {
  public:
    explicit Printed(Value content) : content_(std::move(content)) {}
    [[nodiscard]] std::string className() const override { return "Printed"; }
    void encodeWithCoder(KeyedEncoder &) const override {}
    [[nodiscard]] std::string description() const override { return "<P: " + content_.description() + ">"; }

  private:
    Value content_;
};

TEST(Description, RecordsDescribeThemselves) {
    const Value record = makeRef<Printed>("a\nb");
    EXPECT_EQ(record.description(), "<P: a\nb>");
    EXPECT_EQ(inArray(record), R"("<P: a\nb>")");
    const Value generic = makeRef<GenericObject>("Some", std::vector<std::string>{}, Dictionary{{"a", 1}});
    EXPECT_EQ(generic.description(), "<Some {\n    a = 1;\n}>");
}

TEST(Description, LongTextIsNotCutOutsideContainers) {
    const std::string longText(3 * oneMebibyte, 'x');
    EXPECT_EQ(Value(longText).description(), longText);
}

TEST(Description, LongContainersBreakOffVisibly) {
    for (const Value &value : {doublingArrays(30), doublingDictionaries(30), nestedArrays(1'000'000),
                               nestedDictionaries(100'000)}) {
        const std::string text = value.description();
        EXPECT_TRUE(text.ends_with("...")) << text.substr(text.size() - 20);
        EXPECT_GT(text.size(), oneMebibyte);
        EXPECT_LT(text.size(), oneMebibyte + 10'000);
    }
    EXPECT_FALSE(nestedArrays(300).description().ends_with("..."));
}

TEST(Description, RecordsThatAreCutEndWithAWholeCharacter) {
    std::string twoByteCharacters;
    for (size_t i = 0; i < oneMebibyte; ++i)
        twoByteCharacters += "\u00e9";
    for (const char *start : {"", "x"}) { // The limit lies between two characters, and within one.
        const std::string text =
            Value(makeRef<Printed>(Array{makeRef<Printed>(start + twoByteCharacters)})).description();
        EXPECT_THAT(text, ::testing::HasSubstr("\\U00e9..."));
        EXPECT_THAT(text, ::testing::Not(::testing::HasSubstr("Ufffd")));
    }
}

TEST(Description, ContainerThatHoldsItselfBreaksOff) {
    const SelfHoldingArray array;
    EXPECT_TRUE(array.value().description().ends_with("..."));
}

TEST(Description, NestedRecordsBreakOffInBoundedStackAndTime) {
    Value shared = "leaf";
    Value chain = "leaf";
    for (int i = 0; i < 100'000; ++i) {
        shared = makeRef<Printed>(Array{shared, shared});
        chain = makeRef<Printed>(chain);
    }
    EXPECT_LT(shared.description().size(), 16 * oneMebibyte);
    EXPECT_THAT(chain.description(), ::testing::HasSubstr("..."));
    // The next description starts afresh.
    EXPECT_EQ(Value(Array{1}).description(), "(\n    1\n)");
}

} // namespace
} // namespace moxel
