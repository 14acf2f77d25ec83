// Keyed archives: how plain values and containers are written.
#include "Support/DeepValue.h"
#include "Values/ArchiveWords.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace moxel::archives {
namespace {

using test::dataOf;

TEST(KeyedArchive, KeysOfTheRootStandInOrder) {
    const Result<Value> list = readBinaryPropertyList(archived("text").bytes(), Mutability::immutable);
    ASSERT_TRUE(list);
    const Dictionary root = list->asDictionary();
    ASSERT_EQ(root.size(), 4u);
    EXPECT_EQ(root.entries()[0].key, String("$version"));
    EXPECT_EQ(root.entries()[1].key, String("$archiver"));
    EXPECT_EQ(root.entries()[2].key, String("$top"));
    EXPECT_EQ(root.entries()[3].key, String("$objects"));
    EXPECT_EQ(root["$version"], Value(100000));
    EXPECT_EQ(root["$archiver"], Value("NSKeyedArchiver"));
    EXPECT_EQ(root["$top"], Value(Dictionary{{"root", UID{1}}}));
    EXPECT_EQ(root["$objects"], Value(Array{"$null", "text"}));
}

TEST(KeyedArchive, NullRootIsUIDZero) {
    const Result<Value> list = readBinaryPropertyList(archived(nullptr).bytes(), Mutability::immutable);
    ASSERT_TRUE(list);
    EXPECT_EQ(list->asDictionary()["$top"], Value(Dictionary{{"root", UID{0}}}));
    EXPECT_EQ(list->asDictionary()["$objects"], Value(Array{"$null"}));
    EXPECT_TRUE(roundTrip(nullptr).isNull());
}

TEST(KeyedArchive, PlainValuesStandInTheTable) {
    EXPECT_EQ(objectTable(true), (Array{"$null", true}));
    EXPECT_EQ(objectTable(-5), (Array{"$null", -5}));
    EXPECT_EQ(objectTable(UINT64_MAX), (Array{"$null", UINT64_MAX}));
    EXPECT_EQ(objectTable(1.5), (Array{"$null", 1.5}));
    EXPECT_EQ(objectTable(dataOf({1, 2})), (Array{"$null", dataOf({1, 2})}));
}

TEST(KeyedArchive, DateIsARecord) {
    EXPECT_EQ(objectTable(Date{12.5}),
              (Array{"$null", Dictionary{{"NS.time", 12.5}, {"$class", UID{2}}}, classRecord("NSDate")}));
}

TEST(KeyedArchive, NullWithinAContainerIsARecord) {
    EXPECT_EQ(objectTable(Array{nullptr, nullptr}),
              (Array{"$null", Dictionary{{"NS.objects", Array{UID{2}, UID{2}}}, {"$class", UID{4}}},
                     Dictionary{{"$class", UID{3}}}, classRecord("NSNull"), classRecord("NSArray")}));
}

TEST(KeyedArchive, ObjectsAreNumberedWhereTheyAreFirstMet) {
    // The inner array is complete first, so that its class comes before the value after it.
    const Array table = objectTable(Dictionary{{"a", Array{"x", Array::of()}}, {"b", "y"}});
    EXPECT_EQ(table, (Array{"$null",
                            Dictionary{{"NS.keys", Array{UID{2}, UID{3}}},
                                       {"NS.objects", Array{UID{4}, UID{8}}},
                                       {"$class", UID{9}}},
                            "a", "b", Dictionary{{"NS.objects", Array{UID{5}, UID{6}}}, {"$class", UID{7}}},
                            "x", Dictionary{{"NS.objects", Array::of()}, {"$class", UID{7}}},
                            classRecord("NSArray"), "y", classRecord("NSDictionary")}));
}

TEST(KeyedArchive, MembersOfRecordsStandInOrder) {
    const auto keysOf = [](const Value &record) {
        std::string keys;
        for (const auto &[key, value] : record.asDictionary())
            keys += key.string() + " ";
        return keys;
    };
    EXPECT_EQ(keysOf(objectTable(Dictionary{{"a", 1}})[1]), "NS.keys NS.objects $class ");
    EXPECT_EQ(keysOf(objectTable(Dictionary{{"a", 1}})[4]), "$classname $classes ");
    EXPECT_EQ(keysOf(objectTable(Array{1})[1]), "NS.objects $class ");
    EXPECT_EQ(keysOf(objectTable(Date{1})[1]), "NS.time $class ");
}

TEST(KeyedArchive, MutableContainersHaveMutableClasses) {
    EXPECT_EQ(objectTable(MutableArray::withCapacity(0))[2], Value(classRecord("NSMutableArray", "NSArray")));
    EXPECT_EQ(objectTable(MutableDictionary::withCapacity(0))[2],
              Value(classRecord("NSMutableDictionary", "NSDictionary")));
}

TEST(KeyedArchive, SharedObjectsAreWrittenOnce) {
    const Value text = "text";
    const Value list = Array{text};
    const Array table = objectTable(Array{list, text, list, "text"});
    EXPECT_EQ(table[1].asDictionary()["NS.objects"], Value(Array{UID{2}, UID{3}, UID{2}, UID{5}}));
    EXPECT_EQ(table[2].asDictionary()["NS.objects"], Value(Array{UID{3}}));
    EXPECT_EQ(table[5], Value("text"));
}

TEST(KeyedArchive, SharedKeysAreWrittenOnce) {
    const String key = "key";
    const Array table = objectTable(Array{Dictionary{{key, 1}}, Dictionary{{key, 2}}});
    EXPECT_EQ(std::ranges::count(table, Value("key")), 1);
}

TEST(KeyedArchive, EqualIntegersAndBooleansAreOneObject) {
    const Array table = objectTable(Array{1, 1u, true, true, -1, UINT64_MAX, UINT64_MAX, false, 0});
    EXPECT_EQ(table[1].asDictionary()["NS.objects"],
              Value(Array{UID{2}, UID{2}, UID{3}, UID{3}, UID{4}, UID{5}, UID{5}, UID{6}, UID{7}}));
    EXPECT_EQ(table[3].kind(), Kind::boolean);
    EXPECT_EQ(table[2].kind(), Kind::integer);
}

} // namespace
} // namespace moxel::archives
