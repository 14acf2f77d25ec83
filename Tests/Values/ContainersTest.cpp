// Arrays, dictionaries and data.
#include "Values/Value.h"

#include <gmock/gmock.h>
#include <map>
#include <random>

namespace moxel {
namespace {

std::vector<std::string> keysOf(const Dictionary &dictionary) {
    std::vector<std::string> keys;
    for (const auto &[key, value] : dictionary)
        keys.push_back(key.string());
    return keys;
}

TEST(Data, NullIsNotEmptyData) {
    EXPECT_FALSE(Data());
    EXPECT_TRUE(Data(std::span<const uint8_t>()));
    EXPECT_FALSE(Data() == Data(std::span<const uint8_t>()));
    EXPECT_EQ(Data().size(), 0u);
}

TEST(Data, EqualWhenTheBytesAreEqual) {
    const std::vector<uint8_t> bytes = {1, 2, 3};
    const Data copied(bytes);
    const Data taken(std::vector<uint8_t>{1, 2, 3});
    EXPECT_EQ(copied, taken);
    EXPECT_FALSE(copied == Data(std::vector<uint8_t>{1, 2}));
    EXPECT_THAT(taken.bytes(), ::testing::ElementsAre(1, 2, 3));
}

TEST(Array, NullIsNotTheEmptyArray) {
    const Array null;
    EXPECT_FALSE(null);
    EXPECT_TRUE(Array(std::vector<Value>()));
    EXPECT_FALSE(null == Array(std::vector<Value>()));
    EXPECT_TRUE(null.empty());
    EXPECT_TRUE(null[0].isNull());
    EXPECT_FALSE(null.copy());
    EXPECT_FALSE(null.mutableCopy());
    EXPECT_TRUE(Value(null).isNull());
}

TEST(Array, HoldsExactlyWhatItIsMadeOf) {
    EXPECT_TRUE(Array::of());
    EXPECT_TRUE(Array::of().empty());
    const Array inner{1};
    EXPECT_EQ(Array::of(inner).size(), 1u);
    EXPECT_EQ(Array::of(inner)[0].node(), inner.node());
    EXPECT_EQ(Array::of(1, "two", inner), (Array{1, "two", inner}));
}

TEST(Array, GivesNullBeyondItsEnd) {
    const Array array{1, "two"};
    EXPECT_EQ(array[1], Value("two"));
    EXPECT_TRUE(array[2].isNull());
    EXPECT_TRUE(array[SIZE_MAX].isNull());
}

TEST(Array, CopyOfAnImmutableArrayIsTheArray) {
    const Array array{1, 2};
    EXPECT_EQ(array.copy().node(), array.node());
    MutableArray changeable = array.mutableCopy();
    const Array snapshot = changeable.copy();
    changeable.append(3);
    EXPECT_EQ(array.size(), 2u);
    EXPECT_EQ(snapshot.size(), 2u);
    EXPECT_FALSE(snapshot.isMutable());
    EXPECT_EQ(changeable.size(), 3u);
}

TEST(Array, ChangesAreSeenThroughEveryHandle) {
    MutableArray array = MutableArray::withCapacity(2);
    const Value handle = array;
    array.append("a");
    array.append("b");
    array.append("c");
    array.set(1, "B");
    array.remove(0);
    EXPECT_EQ(handle, Value(Array{"B", "c"}));
    EXPECT_EQ(handle.asMutableArray().node(), array.node());
    EXPECT_FALSE(Value(Array{1}).asMutableArray());
    array.clear();
    EXPECT_TRUE(handle.asArray().empty());
}

TEST(Array, IgnoresChangesBeyondItsEndAndOfNull) {
    MutableArray array = Array{1}.mutableCopy();
    array.set(1, 5);
    array.remove(1);
    EXPECT_EQ(array, (Array{1}));
    MutableArray null;
    null.append(1);
    null.set(0, 1);
    null.remove(0);
    null.clear();
    EXPECT_FALSE(null);
}

TEST(Dictionary, NullIsNotTheEmptyDictionary) {
    const Dictionary null;
    EXPECT_FALSE(null);
    EXPECT_TRUE(Dictionary(std::vector<Dictionary::Entry>()));
    EXPECT_FALSE(null == Dictionary(std::vector<Dictionary::Entry>()));
    EXPECT_TRUE(null["key"].isNull());
    EXPECT_FALSE(null.contains("key"));
    EXPECT_FALSE(null.copy());
    EXPECT_FALSE(null.mutableCopy());
    MutableDictionary nullToo;
    nullToo.set("a", 1);
    nullToo.remove("a");
    nullToo.addEntries({{"a", 1}});
    nullToo.clear();
    EXPECT_FALSE(nullToo);
}

TEST(Dictionary, HoldsNullUnderAKey) {
    const Dictionary dictionary{{"nothing", nullptr}};
    EXPECT_TRUE(dictionary.contains("nothing"));
    EXPECT_TRUE(dictionary["nothing"].isNull());
    EXPECT_FALSE(dictionary.contains("other"));
}

TEST(Dictionary, LaterEntryReplacesAnEarlierOneInItsPlace) {
    const Dictionary dictionary{{"a", 1}, {"b", 2}, {"a", 3}};
    EXPECT_EQ(keysOf(dictionary), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(dictionary["a"], Value(3));
}

TEST(Dictionary, EnumeratesInTheOrderOfFirstSetting) {
    MutableDictionary dictionary = MutableDictionary::withCapacity(0);
    for (const char *key : {"m", "a", "z", "k"})
        dictionary.set(key, 1);
    dictionary.set("a", 2);
    EXPECT_EQ(keysOf(dictionary), (std::vector<std::string>{"m", "a", "z", "k"}));
    dictionary.remove("m");
    dictionary.remove("absent");
    EXPECT_EQ(keysOf(dictionary), (std::vector<std::string>{"a", "z", "k"}));
    dictionary.set("m", 1);
    EXPECT_EQ(keysOf(dictionary), (std::vector<std::string>{"a", "z", "k", "m"}));
}

TEST(Dictionary, DropsEntriesWithoutAKey) {
    MutableDictionary dictionary = Dictionary{{String(), 1}, {"", 2}}.mutableCopy();
    dictionary.set(String(), 3);
    EXPECT_EQ(dictionary.size(), 1u);
    EXPECT_EQ(dictionary[""], Value(2));
}

TEST(Dictionary, AddsTheEntriesOfAnother) {
    MutableDictionary dictionary = Dictionary{{"a", 1}, {"b", 2}}.mutableCopy();
    dictionary.addEntries({{"b", 3}, {"c", 4}});
    EXPECT_EQ(dictionary, (Dictionary{{"a", 1}, {"b", 3}, {"c", 4}}));
    dictionary.addEntries(dictionary);
    dictionary.addEntries(Dictionary());
    EXPECT_EQ(dictionary.size(), 3u);
}

TEST(Dictionary, CopyOfAnImmutableDictionaryIsTheDictionary) {
    const Dictionary dictionary{{"a", 1}};
    EXPECT_EQ(dictionary.copy().node(), dictionary.node());
    MutableDictionary changeable = dictionary.mutableCopy();
    const Dictionary snapshot = changeable.copy();
    changeable.set("b", 2);
    EXPECT_EQ(dictionary.size(), 1u);
    EXPECT_EQ(snapshot.size(), 1u);
    EXPECT_FALSE(snapshot.isMutable());
    EXPECT_EQ(Value(changeable).asMutableDictionary().node(), changeable.node());
    EXPECT_FALSE(Value(dictionary).asMutableDictionary());
}

TEST(Dictionary, EqualWhateverTheOrder) {
    EXPECT_EQ((Dictionary{{"a", 1}, {"b", 2}}), (Dictionary{{"b", 2}, {"a", 1}}));
    EXPECT_FALSE((Dictionary{{"a", 1}}) == (Dictionary{{"b", 1}}));
    EXPECT_FALSE((Dictionary{{"a", nullptr}}) == (Dictionary{{"b", nullptr}}));
}

TEST(Dictionary, BehavesAsItsModelOverRandomChanges) {
    std::mt19937 random(20240711);
    MutableDictionary dictionary = MutableDictionary::withCapacity(0);
    std::vector<std::pair<std::string, int>> model;
    for (int step = 0; step < 30'000; ++step) {
        const std::string key = "key" + std::to_string(random() % 300);
        const auto at = std::ranges::find(model, key, &std::pair<std::string, int>::first);
        // Phases of growing and of shrinking.
        if (random() % 100 < (step / 3000 % 2 == 0 ? 70u : 30u)) {
            dictionary.set(key, step);
            if (at == model.end())
                model.emplace_back(key, step);
            else
                at->second = step;
        } else {
            dictionary.remove(key);
            if (at != model.end())
                model.erase(at);
        }
        const auto found = std::ranges::find(model, key, &std::pair<std::string, int>::first);
        ASSERT_EQ(dictionary.contains(key), found != model.end());
        ASSERT_EQ(dictionary.size(), model.size());
    }
    ASSERT_FALSE(model.empty());
    for (size_t i = 0; i < model.size(); ++i) {
        EXPECT_EQ(dictionary.entries()[i].key.view(), model[i].first);
        EXPECT_EQ(dictionary[model[i].first], Value(model[i].second));
    }
    dictionary.clear();
    EXPECT_FALSE(dictionary.contains("key1"));
    dictionary.set("key1", 1);
    EXPECT_EQ(dictionary["key1"], Value(1));
}

/// Looks at the dictionary that held it while it is being freed.
class Onlooker final : public Object {
  public:
    explicit Onlooker(MutableDictionary &watched, size_t &seen) : watched_(watched), seen_(seen) {}
    ~Onlooker() override { seen_ = watched_.size(); }
    [[nodiscard]] std::string className() const override { return "Onlooker"; }
    void encodeWithCoder(KeyedEncoder &) const override {}
    [[nodiscard]] std::string description() const override { return {}; }

  private:
    MutableDictionary &watched_;
    size_t &seen_;
};

TEST(Dictionary, IsConsistentWhileARemovedValueIsFreed) {
    size_t seen = 99;
    MutableDictionary dictionary = MutableDictionary::withCapacity(2);
    dictionary.set("a", makeRef<Onlooker>(dictionary, seen));
    dictionary.set("b", 1);
    dictionary.remove("a");
    EXPECT_EQ(seen, 1u);
    dictionary.set("a", makeRef<Onlooker>(dictionary, seen));
    dictionary.clear();
    EXPECT_EQ(seen, 0u);
    EXPECT_TRUE(dictionary.empty());
}

} // namespace
} // namespace moxel
