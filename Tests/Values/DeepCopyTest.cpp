// Copies in which every container can be changed.
#include "Values/DeepCopy.h"
#include "Support/DeepValue.h"
#include "Values/KeyedArchive.h"

#include <gtest/gtest.h>

namespace moxel {
namespace {

using test::doublingArrays;
using test::doublingDictionaries;
using test::emptyDictionary;
using test::nestedArrays;
using test::nestedDictionaries;
using test::SelfHoldingArray;

Value copyOf(const Value &value) {
    Result<Value> copy = deepMutableCopy(value);
    EXPECT_TRUE(copy);
    return copy ? *copy : Value();
}

TEST(DeepCopy, ContainersAreMutableAtEveryDepth) {
    const Value source = Dictionary{{"list", Array{1, Dictionary{{"inner", "text"}}}}};
    const Value copy = copyOf(source);
    EXPECT_EQ(copy, source);
    ASSERT_TRUE(copy.asMutableDictionary());
    ASSERT_TRUE(copy.asDictionary()["list"].asMutableArray());
    ASSERT_TRUE(copy.asDictionary()["list"].asArray()[1].asMutableDictionary());
}

TEST(DeepCopy, ChangesLeaveTheSourceUntouched) {
    MutableArray inner = Array{1}.mutableCopy();
    const Value source = Array::of(inner);
    const Value copy = copyOf(source);
    copy.asArray()[0].asMutableArray().append(2);
    copy.asMutableArray().append(3);
    EXPECT_EQ(source, Value(Array::of(Array{1})));
    inner.append(5);
    EXPECT_EQ(copy, Value(Array{Array{1, 2}, 3}));
}

TEST(DeepCopy, LeavesAndKeysAreShared) {
    const String key = "key";
    const Value record = makeRef<GenericObject>("A", std::vector<std::string>{}, emptyDictionary());
    const Value source = Dictionary{{key, record}, {"nothing", nullptr}};
    const Dictionary copy = copyOf(source).asDictionary();
    EXPECT_EQ(copy["key"].node(), record.node());
    EXPECT_EQ(copy.entries()[0].key.node(), key.node());
    EXPECT_TRUE(copy.contains("nothing"));
    EXPECT_EQ(copyOf("leaf"), Value("leaf"));
    EXPECT_TRUE(copyOf(nullptr).isNull());
}

TEST(DeepCopy, OrderIsKept) {
    const Dictionary copy = copyOf(Dictionary{{"z", 1}, {"a", 2}, {"m", 3}}).asDictionary();
    EXPECT_EQ(copy.entries()[0].key, String("z"));
    EXPECT_EQ(copy.entries()[1].key, String("a"));
    EXPECT_EQ(copy.entries()[2].key, String("m"));
}

TEST(DeepCopy, SharedContainersAreCopiedForEachPlace) {
    const Value shared = Array{1};
    const Array copy = copyOf(Array{shared, shared}).asArray();
    EXPECT_NE(copy[0].node(), copy[1].node());
    EXPECT_EQ(copy, (Array{shared, shared}));
}

TEST(DeepCopy, MillionLevelsAreCopiedWithoutStack) {
    const Value deep = nestedArrays(1'000'000);
    EXPECT_EQ(copyOf(deep), deep);
    const Value deepDictionaries = nestedDictionaries(200'000);
    EXPECT_EQ(copyOf(deepDictionaries), deepDictionaries);
}

TEST(DeepCopy, LargeTreesWithoutSharingAreCopied) {
    std::vector<Value> rows;
    rows.reserve(2000);
    for (int i = 0; i < 2000; ++i)
        rows.emplace_back(Array(std::vector<Value>(1000, i)));
    const Value table = Array(std::move(rows));
    EXPECT_EQ(copyOf(table), table);
}

TEST(DeepCopy, SharingThatExpandsBeyondMeasureIsAnError) {
    EXPECT_EQ(copyOf(doublingArrays(10)), doublingArrays(10));
    EXPECT_FALSE(deepMutableCopy(doublingArrays(40)));
    EXPECT_FALSE(deepMutableCopy(doublingDictionaries(40)));
    const Value wide = Array(std::vector<Value>(2000, Array(std::vector<Value>(2000, 1))));
    EXPECT_FALSE(deepMutableCopy(wide));
}

TEST(DeepCopy, ContainerThatHoldsItselfIsAnError) {
    const SelfHoldingArray array;
    const Result<Value> copy = deepMutableCopy(array.value());
    ASSERT_FALSE(copy);
    EXPECT_EQ(copy.error().message, "a container holds itself");
    MutableDictionary inner = MutableDictionary::withCapacity(1);
    inner.set("outer", Array::of(inner));
    EXPECT_FALSE(deepMutableCopy(Array::of(Array::of(inner))));
    inner.clear();
    EXPECT_TRUE(deepMutableCopy(Array::of(Array::of(inner))));
}

} // namespace
} // namespace moxel
