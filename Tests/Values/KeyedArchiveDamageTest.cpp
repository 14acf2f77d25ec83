// Keyed archives that are deep, large or damaged.
#include "Support/DeepValue.h"
#include "Values/ArchiveWords.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace moxel::archives {
namespace {

using test::dataOf;
using test::doublingArrays;
using test::doublingDictionaries;
using test::emptyDictionary;
using test::nestedArrays;
using test::nestedDictionaries;

TEST(KeyedArchive, DeepGraphsNeedNoStack) {
    const Value arrays = nestedArrays(300'000);
    EXPECT_EQ(roundTrip(arrays), arrays);
    const Value dictionaries = nestedDictionaries(100'000);
    EXPECT_EQ(roundTrip(dictionaries), dictionaries);
}

TEST(KeyedArchive, SharedContainersDoNotMultiply) {
    const Value arrays = doublingArrays(60);
    EXPECT_LT(archived(arrays).size(), 2000u);
    EXPECT_EQ(roundTrip(arrays), arrays);
    EXPECT_EQ(roundTrip(doublingDictionaries(60)), doublingDictionaries(60));
}

TEST(KeyedArchive, ObjectsThatHoldThemselvesAreRefused) {
    const Array selfHolding{"$null", Dictionary{{"NS.objects", Array{UID{1}}}, {"$class", UID{2}}},
                            classRecord("NSArray")};
    EXPECT_EQ(errorOf(archiveOf(selfHolding)), "damaged keyed archive: object 1 holds itself");
    const Array indirect{"$null", Dictionary{{"other", UID{2}}, {"$class", UID{4}}},
                         Dictionary{{"list", Array{UID{3}, UID{1}}}, {"$class", UID{4}}}, "x",
                         classRecord("MxUnknown")};
    EXPECT_EQ(errorOf(archiveOf(indirect)), "damaged keyed archive: object 1 holds itself");
}

TEST(KeyedArchive, DamagedTablesAreRefused) {
    const Dictionary array = classRecord("NSArray");
    const auto refuses = [](const Array &table, const std::string &reason) {
        EXPECT_EQ(errorOf(archiveOf(table)), "damaged keyed archive: " + reason);
    };
    refuses({"$null"}, "UID 1 lies beyond the object table");
    refuses({"no null", "x"}, "no array \"$objects\" that begins with \"$null\"");
    refuses(Array::of(), "no array \"$objects\" that begins with \"$null\"");
    refuses({"$null", UID{1}}, "object 1 is neither a value nor a record");
    refuses({"$null", Array::of()}, "object 1 is neither a value nor a record");
    refuses({"$null", emptyDictionary()}, "a record has no class");
    refuses({"$null", Dictionary{{"$class", "NSArray"}}}, "a record has no class");
    refuses({"$null", Dictionary{{"$class", UID{9}}}}, "a record has no class");
    refuses({"$null", Dictionary{{"$class", UID{0}}}}, "a record has no class");
    refuses({"$null", array}, "a record has no class");
    refuses({"$null", Dictionary{{"$class", UID{2}}, {"x", UID{77}}}, array},
            "UID 77 lies beyond the object table");
    refuses({"$null", Dictionary{{"$class", UID{2}}}, array},
            "a record has no \"NS.objects\" of the right kind");
    refuses({"$null", Dictionary{{"$class", UID{2}}, {"NS.objects", UID{3}}}, array, "x"},
            "a record has no \"NS.objects\" of the right kind");
    refuses({"$null", Dictionary{{"$class", UID{2}}, {"NS.keys", Array{UID{3}}}, {"NS.objects", Array::of()}},
             classRecord("NSDictionary"), "x"},
            "a dictionary has not as many keys as values");
    refuses(
        {"$null", Dictionary{{"$class", UID{2}}, {"NS.objects", Array::of()}}, classRecord("NSDictionary")},
        "a record has no \"NS.keys\" of the right kind");
    refuses({"$null", Dictionary{{"$class", UID{2}}}, classRecord("NSMutableString")},
            "a record has no \"NS.string\" of the right kind");
    refuses({"$null", Dictionary{{"$class", UID{2}}, {"NS.data", "x"}}, classRecord("NSData")},
            "a record has no \"NS.data\" of the right kind");
    refuses({"$null", Dictionary{{"$class", UID{2}}, {"NS.time", "x"}}, classRecord("NSDate")},
            "a date has no number \"NS.time\"");
    refuses({"$null", Dictionary{{"$class", UID{2}}}, Dictionary{{"$classname", 5}}},
            "a record has no class");
    refuses({"$null", Dictionary{{"$class", UID{2}}}, Dictionary{{"$classes", Array{"NSArray"}}}},
            "a record has no class");
    refuses({"$null", Dictionary{{"$class", UID{2}}}, Dictionary{{"$classname", "A"}, {"$classes", "A"}}},
            "a record has no class");
    refuses(
        {"$null", Dictionary{{"$class", UID{2}}}, Dictionary{{"$classname", "A"}, {"$classes", Array{5}}}},
        "a record has no class");
}

TEST(KeyedArchive, ClassesOfUnreasonableLengthAreRefused) {
    const auto withChain = [](size_t links) {
        const Array chain(std::vector<Value>(links, "NSObject"));
        return archiveOf(
            {"$null", Dictionary{{"$class", UID{2}}}, Dictionary{{"$classname", "A"}, {"$classes", chain}}});
    };
    EXPECT_TRUE(unarchiveObjectWithData(withChain(400).bytes()));
    EXPECT_FALSE(unarchiveObjectWithData(withChain(500).bytes()));
    const auto withName = [](size_t length) {
        return archiveOf(
            {"$null", Dictionary{{"$class", UID{2}}}, Dictionary{{"$classname", std::string(length, 'A')}}});
    };
    EXPECT_TRUE(unarchiveObjectWithData(withName(4096).bytes()));
    EXPECT_FALSE(unarchiveObjectWithData(withName(4097).bytes()));
}

TEST(KeyedArchive, ChainSharedBetweenManyClassesIsRefused) {
    // An object that holds one object of each class.
    const auto withClasses = [](uint64_t count) {
        const Value aClass =
            Dictionary{{"$classname", "A"}, {"$classes", Array(std::vector<Value>(4000, ""))}};
        std::vector<Value> references;
        std::vector<Value> table = {"$null", Value()};
        for (uint64_t i = 0; i < count; ++i) {
            references.emplace_back(UID{i + 2});
            table.emplace_back(Dictionary{{"$class", UID{count + 2 + i}}});
        }
        table[1] = Dictionary{{"$class", UID{count + 2}}, {"all", Array(std::move(references))}};
        table.insert(table.end(), count, aClass);
        return archiveOf(Array(std::move(table)));
    };
    EXPECT_TRUE(unarchiveObjectWithData(withClasses(6).bytes()));
    const Data archive = withClasses(1000);
    ASSERT_LT(archive.size(), 100'000u) << "the classes share their chain";
    EXPECT_EQ(errorOf(archive), "damaged keyed archive: a record has no class");
}

TEST(KeyedArchive, ContainersSharedBetweenRecordsAreRefused) {
    // A thousand records that each hold one inline array of a thousand members.
    const Array inlineArray(std::vector<Value>(1000, UID{1}));
    std::vector<Value> table = {"$null"};
    std::vector<Value> references;
    for (uint64_t i = 0; i < 1000; ++i)
        references.emplace_back(UID{i + 2});
    table.emplace_back(Dictionary{{"NS.objects", Array(references)}, {"$class", UID{1002}}});
    for (int i = 0; i < 1000; ++i)
        table.emplace_back(Dictionary{{"list", inlineArray}, {"$class", UID{1002}}});
    table.emplace_back(classRecord("NSArray"));
    const Data archive = archiveOf(Array(std::move(table)));
    ASSERT_LT(archive.size(), 100'000u);
    EXPECT_FALSE(unarchiveObjectWithData(archive.bytes()));
}

TEST(KeyedArchive, InlineContainersThatExpandAreRefused) {
    const auto holding = [](const Value &member) {
        return archiveOf({"$null", Dictionary{{"member", member}, {"$class", UID{2}}}, classRecord("MxAny")});
    };
    EXPECT_EQ(errorOf(holding(doublingArrays(40, 5))), "damaged keyed archive: records share containers");
    EXPECT_EQ(errorOf(holding(nestedArrays(1000))),
              "damaged keyed archive: containers within a record are nested too deeply");
    EXPECT_TRUE(unarchiveObjectWithData(holding(nestedArrays(50)).bytes()));
}

TEST(KeyedArchive, WhatIsNoKeyedArchiveIsRefused) {
    const auto errorOfList = [](const Value &list) {
        const Result<Data> data = writeBinaryPropertyList(list);
        EXPECT_TRUE(data);
        return errorOf(*data);
    };
    const auto rootWith = [](std::string_view key, const Value &value) {
        MutableDictionary root = Dictionary{
            {"$version", 100000},
            {"$archiver", "NSKeyedArchiver"},
            {"$top", Dictionary{{"root", UID{1}}}},
            {"$objects",
             Array{"$null", "x"}}}.mutableCopy();
        if (value)
            root.set(key, value);
        else
            root.remove(key);
        return Value(root);
    };
    EXPECT_EQ(errorOfList(rootWith("other", 1)), "no error, but x");
    for (const Value &version : {Value(), Value("100000"), Value(99999), Value(100001), Value(true)})
        EXPECT_EQ(errorOfList(rootWith("$version", version)),
                  "not a keyed archive that can be read: \"$version\" is not 100000");
    for (const Value &archiver : {Value(), Value("NSArchiver"), Value(1)})
        EXPECT_EQ(errorOfList(rootWith("$archiver", archiver)),
                  "not a keyed archive: \"$archiver\" is not \"NSKeyedArchiver\"");
    for (const Value &top : {Value(), Value(UID{1}), Value(Array::of())})
        EXPECT_EQ(errorOfList(rootWith("$top", top)), "damaged keyed archive: no dictionary \"$top\"");
    for (const Value &objects : {Value(), Value("$null"), Value(emptyDictionary())})
        EXPECT_EQ(errorOfList(rootWith("$objects", objects)),
                  "damaged keyed archive: no array \"$objects\" that begins with \"$null\"");
    for (const Value &list : {Value("text"), Value(Array::of()), Value(5)})
        EXPECT_EQ(errorOfList(list), "not a keyed archive: the property list is no dictionary");
    EXPECT_FALSE(unarchiveObjectWithData({}));
    EXPECT_FALSE(unarchiveTopLevelObjects({}));
}

TEST(KeyedArchive, EveryCutAndEveryFlippedByteGivesAValueOrAnError) {
    const Data archive = archived(Dictionary{{"list", Array{1, "two", Date{3}, nullptr, sampleRecord()}},
                                             {"data", dataOf({1, 2, 3})},
                                             {"table", Dictionary{{"é", 1.5}}.mutableCopy()}});
    const std::span<const uint8_t> all = archive.bytes();
    for (size_t size = 0; size < all.size(); ++size)
        EXPECT_FALSE(unarchiveObjectWithData(all.first(size)));
    std::vector<uint8_t> changed(all.begin(), all.end());
    size_t errors = 0;
    for (uint8_t &byte : changed)
        for (const int flip : {0x01, 0x10, 0x80, 0xFF}) {
            byte ^= static_cast<uint8_t>(flip);
            const Result<Value> root = unarchiveObjectWithData(changed);
            errors += root ? 0 : 1;
            if (root) {
                EXPECT_EQ(*root, *root);
            }
            byte ^= static_cast<uint8_t>(flip);
        }
    EXPECT_GT(errors, changed.size() / 4);
}

} // namespace
} // namespace moxel::archives
