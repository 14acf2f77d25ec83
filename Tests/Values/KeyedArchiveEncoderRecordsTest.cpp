// Keyed archives: how records are written, and what cannot be.
#include "Support/DeepValue.h"
#include "Values/ArchiveWords.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace moxel::archives {
namespace {

using test::SelfHoldingArray;

TEST(KeyedArchive, RecordsWriteTheirMembers) {
    EXPECT_EQ(objectTable(sampleRecord()),
              (Array{"$null",
                     Dictionary{
                         {"name", UID{2}}, {"count", 7}, {"list", Array{UID{3}, UID{4}}}, {"$class", UID{5}}},
                     "Box", "x", 7, classRecord("MxSample")}));
}

TEST(KeyedArchive, NullMembersAreUIDZero) {
    const Array table = objectTable(makeRef<Sample>());
    EXPECT_EQ(table[1],
              Value(Dictionary{{"name", UID{0}}, {"count", UID{0}}, {"list", UID{0}}, {"$class", UID{2}}}));
}

TEST(KeyedArchive, InlineDictionariesHoldReferences) {
    Ref<Sample> sample = sampleRecord();
    sample->list = Dictionary{{"k", "v"}};
    EXPECT_EQ(objectTable(sample)[1].asDictionary()["list"], Value(Dictionary{{"k", UID{3}}}));
}

TEST(KeyedArchive, ClassIsWrittenOnceForAllInstances) {
    const Array table = objectTable(Array{sampleRecord(), sampleRecord()});
    EXPECT_EQ(std::ranges::count(table, Value(classRecord("MxSample"))), 1);
}

TEST(KeyedArchive, UIDsCannotBeArchived) {
    EXPECT_FALSE(archivedDataWithRootObject(UID{1}));
    EXPECT_FALSE(archivedDataWithRootObject(Array{Dictionary{{"a", UID{1}}}}));
    Ref<Sample> sample = sampleRecord();
    sample->count = UID{1};
    EXPECT_FALSE(archivedDataWithRootObject(sample));
}

TEST(KeyedArchive, RecordsCannotStandInline) {
    Ref<Sample> sample = sampleRecord();
    sample->count = sampleRecord();
    EXPECT_FALSE(archivedDataWithRootObject(sample));
}

TEST(KeyedArchive, WhatHoldsItselfCannotBeArchived) {
    const SelfHoldingArray array;
    EXPECT_FALSE(archivedDataWithRootObject(array.value()));
    EXPECT_FALSE(archivedDataWithRootObject(Array{Dictionary{{"a", array.value()}}}));
    Ref<Sample> sample = sampleRecord();
    sample->self = sample;
    EXPECT_FALSE(archivedDataWithRootObject(sample));
    sample->self = Array::of(Array{sample});
    EXPECT_FALSE(archivedDataWithRootObject(sample));
    sample->self = nullptr;
    MutableArray list = MutableArray::withCapacity(1);
    sample->list = list;
    list.append(sample);
    EXPECT_FALSE(archivedDataWithRootObject(sample));
    list.clear();
    EXPECT_TRUE(archivedDataWithRootObject(sample));
}

/// Hands out values that nobody else holds, and names its class as it likes.
class Volatile final : public Object {
  public:
    explicit Volatile(std::string key) : key_(std::move(key)) {}
    [[nodiscard]] std::string className() const override { return "MxVolatile"; }
    void encodeWithCoder(KeyedEncoder &encoder) const override {
        encoder.encodeObject("made for the encoder " + key_, key_);
        encoder.encodeObject(Array{"element of " + key_}, "list");
    }
    [[nodiscard]] std::string description() const override { return key_; }

  private:
    std::string key_;
};

TEST(KeyedArchive, ValuesMadeForTheEncoderAreNotMistakenForEachOther) {
    std::vector<Value> records;
    records.reserve(200);
    for (int i = 0; i < 200; ++i)
        records.emplace_back(makeRef<Volatile>("key" + std::to_string(i)));
    const Array decoded = roundTrip(Array(std::move(records))).asArray();
    ASSERT_EQ(decoded.size(), 200u);
    for (size_t i = 0; i < decoded.size(); ++i) {
        const std::string key = "key" + std::to_string(i);
        const Dictionary members = decoded[i].asObject<GenericObject>()->members();
        EXPECT_EQ(members[key], Value("made for the encoder " + key));
        EXPECT_EQ(members["list"], Value(Array{"element of " + key}));
    }
}

TEST(KeyedArchive, MemberMayNotPoseAsTheClass) {
    EXPECT_FALSE(archivedDataWithRootObject(makeRef<Volatile>("$class")));
}

/// Changes a container while it is being archived.
class Meddler final : public Object {
  public:
    explicit Meddler(MutableArray victim) : victim_(std::move(victim)) {}
    [[nodiscard]] std::string className() const override { return "MxMeddler"; }
    void encodeWithCoder(KeyedEncoder &) const override { MutableArray(victim_).clear(); }
    [[nodiscard]] std::string description() const override { return {}; }

  private:
    MutableArray victim_;
};

TEST(KeyedArchive, ContainerThatChangesMeanwhileIsAnError) {
    MutableArray array = MutableArray::withCapacity(8);
    array.append(makeRef<Meddler>(array));
    array.append(1);
    EXPECT_FALSE(archivedDataWithRootObject(array));
    EXPECT_TRUE(array.empty());
}

} // namespace
} // namespace moxel::archives
