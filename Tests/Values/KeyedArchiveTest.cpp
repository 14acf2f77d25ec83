// Keyed archives, written and read back.
#include "Values/KeyedArchive.h"
#include "Support/DeepValue.h"
#include "Support/PropertyLists.h"

#include <algorithm>
#include <gmock/gmock.h>

namespace moxel {
namespace {

using test::asBytes;
using test::dataOf;
using test::doublingArrays;
using test::doublingDictionaries;
using test::emptyDictionary;
using test::nestedArrays;
using test::nestedDictionaries;
using test::SelfHoldingArray;
using Entries = std::vector<Dictionary::Entry>;

Data archived(const Value &root) {
    Result<Data> archive = archivedDataWithRootObject(root);
    EXPECT_TRUE(archive) << archive.error().message;
    return archive ? *archive : Data();
}

Value unarchived(const Data &archive) {
    Result<Value> root = unarchiveObjectWithData(archive.bytes());
    EXPECT_TRUE(root) << root.error().message;
    return root ? *root : Value();
}

Value roundTrip(const Value &root) { return unarchived(archived(root)); }

/// The object table of an archive.
Array objectTable(const Value &root) {
    const Result<Value> list = readBinaryPropertyList(archived(root).bytes(), Mutability::immutable);
    EXPECT_TRUE(list);
    return list ? list->asDictionary()["$objects"].asArray() : Array();
}

/// An archive of a hand-made object table whose root is UID 1.
Data archiveOf(const Array &objects) {
    const Result<Data> archive = writeBinaryPropertyList(Dictionary{{"$version", 100000},
                                                                    {"$archiver", "NSKeyedArchiver"},
                                                                    {"$top", Dictionary{{"root", UID{1}}}},
                                                                    {"$objects", objects}});
    EXPECT_TRUE(archive) << archive.error().message;
    return archive ? *archive : Data();
}

std::string errorOf(const Data &archive) {
    const Result<Value> root = unarchiveObjectWithData(archive.bytes());
    return root ? "no error, but " + root->description() : root.error().message;
}

Dictionary classRecord(const char *name, const char *parent = nullptr) {
    return {{"$classname", name},
            {"$classes", parent ? Array{name, parent, "NSObject"} : Array{name, "NSObject"}}};
}

// ---- What is written

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

/// A record with members of every sort.
class Sample final : public Object {
  public:
    Value name;
    Value count;
    Value list;
    Value self;

    [[nodiscard]] std::string className() const override { return "MxSample"; }
    void encodeWithCoder(KeyedEncoder &encoder) const override {
        encoder.encodeObject(name, "name");
        encoder.encodeScalar(count, "count");
        encoder.encodeContents(list, "list");
        if (self)
            encoder.encodeObject(self, "self");
    }
    [[nodiscard]] std::string description() const override { return "<Sample>"; }
    [[nodiscard]] bool isEqual(const Object &other) const override {
        const auto &sample = static_cast<const Sample &>(other);
        return sample.name == name && sample.count == count && sample.list == list;
    }
};

Ref<Object> makeSample(const KeyedDecoder &decoder) {
    Ref<Sample> sample = makeRef<Sample>();
    sample->name = decoder.decode("name");
    sample->count = decoder.decode("count");
    sample->list = decoder.decode("list");
    return sample;
}

Ref<Sample> sampleRecord() {
    Ref<Sample> sample = makeRef<Sample>();
    sample->name = "Box";
    sample->count = 7;
    sample->list = Array{"x", 7};
    return sample;
}

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

// ---- What comes back

TEST(KeyedArchive, EveryKindRoundTrips) {
    const std::string text("zero \0 and \xF0\x9F\x98\x80", 15);
    const Value root = Dictionary{{"true", true},
                                  {"false", false},
                                  {"negative", INT64_MIN},
                                  {"positive", INT64_MAX},
                                  {"huge", UINT64_MAX},
                                  {"real", 0.1},
                                  {"date", Date{-12.25}},
                                  {"text", text},
                                  {"é", ""},
                                  {"data", dataOf({0, 1, 255})},
                                  {"empty data", dataOf({})},
                                  {"null", nullptr},
                                  {"array", Array{Array::of(), emptyDictionary()}}};
    const Value decoded = roundTrip(root);
    EXPECT_EQ(decoded, root);
    const auto kindsOf = [](const Value &value) {
        std::vector<Kind> kinds;
        for (const auto &[key, member] : value.asDictionary())
            kinds.push_back(member.kind());
        return kinds;
    };
    EXPECT_EQ(kindsOf(decoded), kindsOf(root));
    EXPECT_EQ(decoded.asDictionary().entries()[0].key, String("true"));
}

TEST(KeyedArchive, LoneSurrogatesRoundTrip) {
    const Value text = String::fromUTF16(std::u16string(u"a\xD800"));
    EXPECT_EQ(roundTrip(text), text);
}

TEST(KeyedArchive, MutableContainersComeBackMutable) {
    MutableArray array = MutableArray::withCapacity(1);
    array.append(Dictionary{{"a", 1}}.mutableCopy());
    array.append(Array{1});
    const Value decoded = roundTrip(array);
    EXPECT_EQ(decoded, Value(array));
    EXPECT_TRUE(decoded.asMutableArray());
    EXPECT_TRUE(decoded.asArray()[0].asMutableDictionary());
    EXPECT_FALSE(decoded.asArray()[1].asMutableArray());
}

TEST(KeyedArchive, SharedArrayIsDecodedOnce) {
    const Value shared = Array{"x"};
    const Array decoded = roundTrip(Array{shared, Dictionary{{"a", shared}}}).asArray();
    EXPECT_EQ(decoded[0].node(), decoded[1].asDictionary()["a"].node());
}

TEST(KeyedArchive, SharedRecordIsDecodedOnce) {
    const Value shared = sampleRecord();
    const Array decoded = roundTrip(Array{shared, shared}).asArray();
    EXPECT_TRUE(decoded[0].asObject<GenericObject>());
    EXPECT_EQ(decoded[0].node(), decoded[1].node());
}

TEST(KeyedArchive, RegisteredClassIsMadeByItsFactory) {
    registerArchiveClass("MxRegistered", [](const KeyedDecoder &) { return Ref<Object>(); });
    registerArchiveClass("MxRegistered", makeSample);
    const Data archive = archiveOf(
        {"$null",
         Dictionary{
             {"$class", UID{4}}, {"name", UID{2}}, {"count", 3}, {"list", Array{UID{2}, UID{3}, UID{0}, 5}}},
         "Box", Dictionary{{"NS.time", 1.5}, {"$class", UID{5}}}, classRecord("MxRegistered"),
         classRecord("NSDate")});
    const Ref<Sample> sample = unarchived(archive).asObject<Sample>();
    ASSERT_TRUE(sample);
    EXPECT_EQ(sample->name, Value("Box"));
    EXPECT_EQ(sample->count, Value(3));
    EXPECT_EQ(sample->list, Value(Array{"Box", Date{1.5}, nullptr, 5}));
    EXPECT_TRUE(sample->self.isNull());
}

TEST(KeyedArchive, FactoryMayRefuse) {
    registerArchiveClass("MxRefused", [](const KeyedDecoder &) { return Ref<Object>(); });
    const Data archive = archiveOf({"$null", Dictionary{{"$class", UID{2}}}, classRecord("MxRefused")});
    EXPECT_THAT(errorOf(archive), ::testing::HasSubstr("MxRefused"));
}

TEST(KeyedArchive, DecoderTellsAbsentFromNull) {
    const KeyedDecoder decoder(Dictionary{{"null", nullptr}, {"one", 1}});
    EXPECT_TRUE(decoder.contains("null"));
    EXPECT_FALSE(decoder.contains("absent"));
    EXPECT_TRUE(decoder.decode("null").isNull());
    EXPECT_TRUE(decoder.decode("absent").isNull());
    EXPECT_EQ(decoder.decode("one"), Value(1));
    EXPECT_EQ(decoder.members().size(), 2u);
}

TEST(KeyedArchive, UnknownClassKeepsNameChainAndMembers) {
    const Value root = sampleRecord();
    const Value decoded = roundTrip(root);
    const Ref<GenericObject> generic = decoded.asObject<GenericObject>();
    ASSERT_TRUE(generic);
    EXPECT_EQ(generic->className(), "MxSample");
    EXPECT_EQ(generic->classChain(), (std::vector<std::string>{"MxSample", "NSObject"}));
    EXPECT_EQ(generic->members(), (Dictionary{{"name", "Box"}, {"count", 7}, {"list", Array{"x", 7}}}));
}

TEST(KeyedArchive, UnknownClassIsWrittenAsItWasRead) {
    const Data archive = archived(Array{sampleRecord(), makeRef<Sample>()});
    EXPECT_EQ(archived(unarchived(archive)), archive);
}

TEST(KeyedArchive, StringsDataAndDatesAreReadInBothForms) {
    const Data archive = archiveOf(
        {"$null",
         Dictionary{{"NS.objects", Array{UID{2}, UID{3}, UID{4}, UID{5}, UID{6}, UID{7}, UID{8}, UID{9}}},
                    {"$class", UID{10}}},
         Dictionary{{"NS.string", "inline"}, {"$class", UID{11}}},
         Dictionary{{"NS.string", UID{8}}, {"$class", UID{12}}},
         Dictionary{{"NS.data", dataOf({1})}, {"$class", UID{13}}},
         Dictionary{{"NS.data", UID{9}}, {"$class", UID{14}}}, Date{5},
         Dictionary{{"NS.time", 7}, {"$class", UID{15}}}, "plain", dataOf({2}), classRecord("NSArray"),
         classRecord("NSMutableString", "NSString"), classRecord("NSString"),
         classRecord("NSMutableData", "NSData"), classRecord("NSData"), classRecord("NSDate")});
    EXPECT_EQ(unarchived(archive), Value(Array{"inline", "plain", dataOf({1}), dataOf({2}), Date{5}, Date{7},
                                               "plain", dataOf({2})}));
}

TEST(KeyedArchive, DictionaryWithOtherKeysIsAGenericRecord) {
    const Data archive = archiveOf({"$null",
                                    Dictionary{{"NS.keys", Array{UID{2}, UID{3}}},
                                               {"NS.objects", Array{UID{3}, UID{2}}},
                                               {"$class", UID{4}}},
                                    5, "text", classRecord("NSDictionary")});
    const Value decoded = unarchived(archive);
    const Ref<GenericObject> generic = decoded.asObject<GenericObject>();
    ASSERT_TRUE(generic);
    EXPECT_EQ(generic->className(), "NSDictionary");
    EXPECT_EQ(generic->members()["NS.keys"], Value(Array{5, "text"}));
    EXPECT_EQ(generic->members()["NS.objects"], Value(Array{"text", 5}));
    EXPECT_EQ(archived(decoded), archive);
}

TEST(KeyedArchive, SetsAreGenericRecords) {
    const Data archive =
        archiveOf({"$null", Dictionary{{"NS.objects", Array{UID{2}, UID{3}}}, {"$class", UID{4}}}, "a", "b",
                   classRecord("NSSet")});
    EXPECT_EQ(unarchived(archive).asObject<GenericObject>()->members()["NS.objects"], Value(Array{"a", "b"}));
    EXPECT_EQ(archived(unarchived(archive)), archive);
}

TEST(KeyedArchive, ContainersWithinRecordsAreResolved) {
    const Data archive = archiveOf(
        {"$null",
         Dictionary{{"table", Dictionary{{"k", UID{2}}, {"l", Array{UID{2}, 5}}}}, {"$class", UID{3}}}, "v",
         classRecord("MxUnknown")});
    EXPECT_EQ(unarchived(archive).asObject<GenericObject>()->members()["table"],
              Value(Dictionary{{"k", "v"}, {"l", Array{"v", 5}}}));
}

TEST(KeyedArchive, ChainOfTheClassMayBeMissing) {
    const Data archive =
        archiveOf({"$null", Dictionary{{"$class", UID{2}}}, Dictionary{{"$classname", "MxRenamed"}}});
    const Value decoded = unarchived(archive);
    EXPECT_TRUE(decoded.asObject()->classChain().empty());
    EXPECT_EQ(archived(decoded), archive);
}

TEST(KeyedArchive, TopLevelObjectsAreReadByTheirKeys) {
    const Result<Data> archive =
        writeBinaryPropertyList(Dictionary{{"$objects", Array{"$null", "text"}},
                                           {"$top", Dictionary{{"a", UID{1}}, {"b", 5}, {"c", UID{0}}}},
                                           {"$archiver", "NSKeyedArchiver"},
                                           {"$version", 100000}});
    ASSERT_TRUE(archive);
    const Result<Dictionary> objects = unarchiveTopLevelObjects(archive->bytes());
    ASSERT_TRUE(objects) << objects.error().message;
    EXPECT_EQ(*objects, (Dictionary{{"a", "text"}, {"b", 5}, {"c", nullptr}}));
    const Result<Value> root = unarchiveObjectWithData(archive->bytes());
    ASSERT_TRUE(root);
    EXPECT_TRUE(root->isNull());
}

TEST(KeyedArchive, XMLFormIsRead) {
    const Result<Value> list =
        readBinaryPropertyList(archived(Array{"x", Array::of()}).bytes(), Mutability::immutable);
    ASSERT_TRUE(list);
    const Result<std::string> xml = writeXMLPropertyList(*list);
    ASSERT_TRUE(xml) << xml.error().message;
    const Result<Value> root = unarchiveObjectWithData(asBytes(*xml));
    ASSERT_TRUE(root) << root.error().message;
    EXPECT_EQ(*root, Value(Array{"x", Array::of()}));
}

// ---- Depth, size and hostile input

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
} // namespace moxel
