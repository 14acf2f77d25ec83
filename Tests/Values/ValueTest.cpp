// Conversions and equality of values.
#include "Values/Value.h"
#include "Support/DeepValue.h"
#include "Values/DeepCopy.h"
#include "Values/KeyedArchive.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace moxel {
namespace {

using test::doublingArrays;
using test::doublingDictionaries;
using test::emptyDictionary;
using test::nestedArrays;
using test::nestedDictionaries;
using test::SelfHoldingArray;

/// Compares by its member.
class Wrapper final : public Object {
  public:
    explicit Wrapper(Value content) : content_(std::move(content)) {}
    [[nodiscard]] std::string className() const override { return "Wrapper"; }
    void encodeWithCoder(KeyedEncoder &) const override {}
    [[nodiscard]] std::string description() const override { return content_.description(); }
    [[nodiscard]] bool isEqual(const Object &other) const override {
        return static_cast<const Wrapper &>(other).content_ == content_;
    }

  private:
    Value content_;
};

/// Says nothing about what it is equal to.
class Token final : public Object {
  public:
    [[nodiscard]] std::string className() const override { return "Token"; }
    void encodeWithCoder(KeyedEncoder &) const override {}
    [[nodiscard]] std::string description() const override { return "<Token>"; }
};

TEST(Value, KindFollowsFromTheArgument) {
    EXPECT_EQ(Value().kind(), Kind::null);
    EXPECT_EQ(Value(true).kind(), Kind::boolean);
    EXPECT_EQ(Value(1).kind(), Kind::integer);
    EXPECT_EQ(Value(int8_t{1}).kind(), Kind::integer);
    EXPECT_EQ(Value(1u).kind(), Kind::unsignedInteger);
    EXPECT_EQ(Value(uint8_t{1}).kind(), Kind::unsignedInteger);
    EXPECT_EQ(Value(1.0f).kind(), Kind::real);
    EXPECT_EQ(Value(Date{1}).kind(), Kind::date);
    EXPECT_EQ(Value(UID{1}).kind(), Kind::uid);
    EXPECT_EQ(Value("a").kind(), Kind::string);
    EXPECT_EQ(Value(std::string("a")).kind(), Kind::string);
    EXPECT_EQ(Value(static_cast<const char *>(nullptr)).kind(), Kind::null);
    EXPECT_EQ(Value(String()).kind(), Kind::null);
    EXPECT_EQ(Value(Data()).kind(), Kind::null);
    EXPECT_EQ(Value(Array()).kind(), Kind::null);
    EXPECT_EQ(Value(MutableDictionary()).kind(), Kind::null);
    EXPECT_EQ(Value(Ref<GenericObject>()).kind(), Kind::null);
}

TEST(Value, NumbersConvertAsInC) {
    EXPECT_EQ(Value(-1).uint32Value(), 0xFFFFFFFFu);
    EXPECT_EQ(Value(0x1FFFFFFFFLL).int32Value(), -1);
    EXPECT_EQ(Value(0x12345).uint16Value(), 0x2345u);
    EXPECT_EQ(Value(0x12345).uint8Value(), 0x45u);
    EXPECT_EQ(Value(UINT64_MAX).int64Value(), -1);
    EXPECT_EQ(Value(UINT64_MAX).uint64Value(), UINT64_MAX);
    EXPECT_EQ(Value(UINT64_MAX).doubleValue(), 0x1p64);
    EXPECT_EQ(Value(true).int64Value(), 1);
    EXPECT_EQ(Value(2.9).int64Value(), 2);
    EXPECT_EQ(Value(-2.9).int64Value(), -2);
    EXPECT_EQ(Value(1e30).int64Value(), INT64_MAX);
    EXPECT_EQ(Value(-1e30).int64Value(), INT64_MIN);
    EXPECT_EQ(Value(-0x1p63).int64Value(), INT64_MIN);
    EXPECT_EQ(Value(std::nan("")).int64Value(), 0);
    EXPECT_EQ(Value(HUGE_VAL).int64Value(), INT64_MAX);
    EXPECT_TRUE(Value(0.5).boolValue());
    EXPECT_FALSE(Value(0.0).boolValue());
    EXPECT_TRUE(Value(-1).boolValue());
}

TEST(Value, WhatIsNoNumberConvertsToZero) {
    for (const Value &value : {Value(), Value("5"), Value(Date{5}), Value(UID{5}), Value(Array{5})}) {
        EXPECT_EQ(value.int64Value(), 0);
        EXPECT_EQ(value.doubleValue(), 0);
        EXPECT_FALSE(value.boolValue());
    }
}

TEST(Value, ContentOfAnotherKindIsNull) {
    const Value number = 5;
    EXPECT_FALSE(number.asString());
    EXPECT_FALSE(number.asData());
    EXPECT_FALSE(number.asArray());
    EXPECT_FALSE(number.asDictionary());
    EXPECT_FALSE(number.asObject());
    EXPECT_EQ(number.asUID(), UID{0});
    EXPECT_EQ(number.asDate(), Date{0});
    EXPECT_EQ(number.node(), nullptr);
    EXPECT_EQ(Value("a").asString(), String("a"));
    EXPECT_EQ(Value(UID{7}).asUID(), UID{7});
    EXPECT_EQ(Value(Date{7.5}).asDate(), Date{7.5});
}

TEST(Value, MovedFromValueIsNull) {
    Value text = "text";
    const Value moved = std::move(text);
    EXPECT_TRUE(text.isNull()); // NOLINT(bugprone-use-after-move,clang-analyzer-cplusplus.Move)
    EXPECT_EQ(moved, Value("text"));
}

TEST(Value, AssignmentToItselfKeepsTheContent) {
    Value text = "text";
    const Value &same = text;
    text = same;
    EXPECT_EQ(text, Value("text"));
}

TEST(Value, ObjectComesBackAsItsClassOnly) {
    const Value value = makeRef<GenericObject>("A", std::vector<std::string>{"A"}, emptyDictionary());
    EXPECT_TRUE(value.asObject());
    EXPECT_TRUE(value.asObject<GenericObject>());
    EXPECT_FALSE(value.asObject<Wrapper>());
}

TEST(ValueEquality, NumbersCompareByValueAcrossKinds) {
    EXPECT_EQ(Value(5), Value(5u));
    EXPECT_EQ(Value(5), Value(5.0));
    EXPECT_EQ(Value(5u), Value(5.0));
    EXPECT_EQ(Value(true), Value(1));
    EXPECT_EQ(Value(true), Value(1.0));
    EXPECT_EQ(Value(0.0), Value(-0.0));
    EXPECT_FALSE(Value(5) == Value(5.5));
    EXPECT_FALSE(Value(false) == Value());
    EXPECT_FALSE(Value(5) == Value("5"));
    EXPECT_FALSE(Value(5) == Value(Date{5}));
    EXPECT_FALSE(Value(UID{5}) == Value(5));
}

TEST(ValueEquality, NumbersAreNotRoundedToCompare) {
    constexpr int64_t beyondDouble = (int64_t{1} << 53) + 1;
    EXPECT_FALSE(Value(beyondDouble) == Value(0x1p53));
    EXPECT_EQ(Value(beyondDouble - 1), Value(0x1p53));
    EXPECT_FALSE(Value(-1) == Value(UINT64_MAX));
    EXPECT_FALSE(Value(INT64_MAX) == Value(0x1p63));
    EXPECT_EQ(Value(INT64_MIN), Value(-0x1p63));
    EXPECT_FALSE(Value(UINT64_MAX) == Value(0x1p64));
    EXPECT_EQ(Value(uint64_t{1} << 63), Value(0x1p63));
    EXPECT_FALSE(Value(0x1p63) == Value(INT64_MAX));
}

TEST(ValueEquality, NotANumberEqualsItself) {
    EXPECT_EQ(Value(std::nan("")), Value(std::nan("")));
    EXPECT_EQ(Value(Date{std::nan("")}), Value(Date{std::nan("")}));
    EXPECT_FALSE(Value(std::nan("")) == Value(0));
    EXPECT_FALSE(Value(0) == Value(std::nan("")));
}

TEST(ValueEquality, ContainersCompareAtEveryDepth) {
    const auto tree = [](const Value &leaf) {
        return Value(Dictionary{{"list", Array{1, Dictionary{{"leaf", leaf}}}}, {"text", "x"}});
    };
    EXPECT_EQ(tree(Data(std::vector<uint8_t>{1})), tree(Data(std::vector<uint8_t>{1})));
    EXPECT_FALSE(tree("a") == tree("b"));
    EXPECT_FALSE(tree("a") == tree(nullptr));
    EXPECT_FALSE(Value(Array::of()) == Value(emptyDictionary()));
    EXPECT_EQ(Value(Array{1}), Value(Array{1}.mutableCopy()));
}

TEST(ValueEquality, MillionLevelsCompareWithoutStack) {
    EXPECT_EQ(nestedArrays(1'000'000), nestedArrays(1'000'000));
    EXPECT_FALSE(nestedArrays(1'000'000) == nestedArrays(1'000'001));
    EXPECT_EQ(nestedDictionaries(300'000), nestedDictionaries(300'000));
}

TEST(ValueEquality, MillionGenericRecordsCompareWithoutStack) {
    const auto chain = [] {
        const auto archivedClass = std::make_shared<ArchivedClass>();
        Value value = 5;
        for (int i = 0; i < 300'000; ++i)
            value = makeRef<GenericObject>(archivedClass, Dictionary{{"next", value}}, std::vector{false});
        return value;
    };
    EXPECT_EQ(chain(), chain());
}

TEST(ValueEquality, SharedContainersDoNotMultiplyTheWork) {
    EXPECT_EQ(doublingArrays(60), doublingArrays(60));
    EXPECT_EQ(doublingDictionaries(60), doublingDictionaries(60));
    EXPECT_FALSE(doublingArrays(60) == doublingArrays(60, "another leaf"));
    EXPECT_FALSE(doublingArrays(60) == doublingArrays(61));
}

TEST(ValueEquality, SharedContainersEqualTheirExpansion) {
    const Value shared = doublingArrays(12);
    const Result<Value> expanded = deepMutableCopy(shared);
    ASSERT_TRUE(expanded);
    EXPECT_EQ(shared, *expanded);
    EXPECT_EQ(*expanded, shared);
}

TEST(ValueEquality, ContainersThatHoldThemselvesCompare) {
    const SelfHoldingArray a;
    const SelfHoldingArray b;
    EXPECT_EQ(a.value(), a.value());
    EXPECT_EQ(a.value(), b.value());
    EXPECT_EQ(a.value(), Value(Array{b.value()}));
    EXPECT_FALSE(a.value() == Value(Array::of(Array{1})));
}

TEST(ValueEquality, RecordsDecideTheirEquality) {
    const Value a = makeRef<Wrapper>(Array{1});
    EXPECT_EQ(a, Value(makeRef<Wrapper>(Array{1})));
    EXPECT_FALSE(a == Value(makeRef<Wrapper>(Array{2})));
    const auto generic = makeRef<GenericObject>("Wrapper", std::vector<std::string>{}, emptyDictionary());
    EXPECT_FALSE(a == Value(generic));
    EXPECT_FALSE(Value(generic) == a);
}

TEST(ValueEquality, RecordsEqualThemselvesOnlyUnlessTheySayOtherwise) {
    const Value token = makeRef<Token>();
    EXPECT_EQ(token, token);
    EXPECT_FALSE(token == Value(makeRef<Token>()));
    EXPECT_EQ(Value(Array{token}), Value(Array{token}));
}

TEST(ValueEquality, GenericRecordsCompareClassAndMembers) {
    const auto record = [](const char *name, const Value &member) {
        return Value(makeRef<GenericObject>(name, std::vector<std::string>{name, "NSObject"},
                                            Dictionary{{"member", member}}));
    };
    EXPECT_EQ(record("A", 1), record("A", 1));
    EXPECT_FALSE(record("A", 1) == record("B", 1));
    EXPECT_FALSE(record("A", 1) == record("A", 2));
    EXPECT_TRUE(record("A", 1).asObject()->isEqual(*record("A", 1).asObject()));
    EXPECT_FALSE(record("A", 1).asObject()->isEqual(*record("A", 2).asObject()));
}

TEST(ValueEquality, NestedRecordsCompareInBoundedStackAndTime) {
    const auto doublingRecords = [](size_t levels) {
        Value value = 1;
        for (size_t i = 0; i < levels; ++i)
            value = makeRef<Wrapper>(Array{value, value});
        return value;
    };
    EXPECT_EQ(doublingRecords(40), doublingRecords(40));
    // Beyond a depth that no real record reaches, only the same record is equal.
    const Value deep = doublingRecords(100'000);
    EXPECT_EQ(deep, deep);
    EXPECT_FALSE(deep == doublingRecords(100'000));
}

TEST(ValueEquality, DifferenceLeavesNothingBehind) {
    const Value shared = Array{1};
    const Value other = Array{2};
    const Value a = Array{shared, shared};
    const Value b = Array{other, other};
    EXPECT_FALSE(a == b);
    EXPECT_FALSE(shared == other);
    EXPECT_FALSE(Value(makeRef<Wrapper>(a)) == Value(makeRef<Wrapper>(b)));
    EXPECT_FALSE(shared == other);
}

} // namespace
} // namespace moxel
