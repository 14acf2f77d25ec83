// Keyed archives: what comes back.
#include "Support/DeepValue.h"
#include "Values/ArchiveWords.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace moxel::archives {
namespace {

using test::asBytes;
using test::dataOf;
using test::emptyDictionary;

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

} // namespace
} // namespace moxel::archives
