// Keyed archives against those of GNUstep's Foundation.
#include "Support/DeepValue.h"
#include "Support/PropertyLists.h"
#include "Support/Subprocess.h"
#include "Values/KeyedArchive.h"

#include <gtest/gtest.h>

namespace moxel {
namespace {

using test::asBytes;
using test::asText;
using test::emptyDictionary;
using test::runSubprocess;
using test::SubprocessResult;

class KeyedArchiveGNUstep : public ::testing::Test {
  protected:
    void SetUp() override {
        if (std::string_view(MOXEL_KEYED_ARCHIVE_FIXTURE).empty())
            GTEST_SKIP() << "the build found no gnustep-config";
    }

    /// What the fixture program makes of its input.
    static std::string convert(const char *command, const std::string &input) {
        const SubprocessResult result = runSubprocess(MOXEL_KEYED_ARCHIVE_FIXTURE, {command}, input);
        EXPECT_EQ(result.exitCode, 0) << command;
        return result.output;
    }

    static std::string listOf(const Value &root) {
        const Result<std::string> list = writeXMLPropertyList(root);
        EXPECT_TRUE(list) << list.error().message;
        return list ? *list : std::string();
    }

    static Value read(const std::string &list) {
        const Result<PropertyList> read = readPropertyList(asBytes(list));
        EXPECT_TRUE(read) << read.error().message;
        return read ? read->root : Value();
    }

    static Value unarchived(const std::string &archive) {
        const Result<Value> root = unarchiveObjectWithData(asBytes(archive));
        EXPECT_TRUE(root) << root.error().message;
        return root ? *root : Value();
    }

    static std::string archived(const Value &root) {
        const Result<Data> archive = archivedDataWithRootObject(root);
        EXPECT_TRUE(archive) << archive.error().message;
        return archive ? asText(*archive) : std::string();
    }

    static Value sample() {
        const Value shared = Dictionary{{"x", 1}, {"y", -2.5}};
        return Dictionary{{"req", "regclient"},
                          {"true", true},
                          {"false", false},
                          {"numbers", Array{0, 1, -1, 127, 128, 65536, INT64_MAX, INT64_MIN, 0.1, 1e300}},
                          {"text", Array{"", "aé€😀", "with \"quotes\" & <marks>", std::string(300, 'x')}},
                          {"data", Data(std::vector<uint8_t>{0, 1, 254, 255})},
                          {"shared", Array{shared, shared}},
                          {"empty", Array{Array::of(), emptyDictionary()}}};
    }
};

TEST_F(KeyedArchiveGNUstep, ReadsWhatGNUstepArchives) {
    EXPECT_EQ(unarchived(convert("archive", listOf(sample()))), sample());
}

TEST_F(KeyedArchiveGNUstep, GNUstepReadsWhatIsWritten) {
    EXPECT_EQ(read(convert("unarchive", archived(sample()))), sample());
}

TEST_F(KeyedArchiveGNUstep, GNUstepReadsDates) {
    const Value dates = Array{Date{0}, Date{120479613}, Date{-86400}};
    EXPECT_EQ(read(convert("unarchive", archived(dates))), dates);
}

TEST_F(KeyedArchiveGNUstep, GNUstepReadsMutableContainers) {
    MutableDictionary dictionary = MutableDictionary::withCapacity(1);
    MutableArray array = MutableArray::withCapacity(1);
    array.append("x");
    dictionary.set("list", array);
    EXPECT_EQ(read(convert("unarchive", archived(dictionary))), Value(dictionary));
}

TEST_F(KeyedArchiveGNUstep, MutableContainersOfGNUstepAreMutable) {
    const Value decoded = unarchived(convert("archive", listOf(Array::of(Array{1}))));
    EXPECT_TRUE(decoded.asMutableArray());
    EXPECT_TRUE(decoded.asArray()[0].asMutableArray());
}

/// The counterpart of the fixture's record.
class FixtureRecord final : public Object {
  public:
    Value name;
    int32_t count = 0;
    Value list;

    [[nodiscard]] std::string className() const override { return "FixtureRecord"; }
    void encodeWithCoder(KeyedEncoder &encoder) const override {
        encoder.encodeObject(name, "name");
        encoder.encodeScalar(count, "count");
        encoder.encodeObject(list, "list");
        encoder.encodeObject(nullptr, "nothing");
    }
    [[nodiscard]] std::string description() const override { return "<FixtureRecord>"; }
};

TEST_F(KeyedArchiveGNUstep, ReadsRecords) {
    registerArchiveClass("FixtureRecord", [](const KeyedDecoder &decoder) -> Ref<Object> {
        EXPECT_TRUE(decoder.contains("nothing"));
        EXPECT_TRUE(decoder.decode("nothing").isNull());
        Ref<FixtureRecord> record = makeRef<FixtureRecord>();
        record->name = decoder.decode("name");
        record->count = decoder.decode("count").int32Value();
        record->list = decoder.decode("list");
        return record;
    });
    const Value members = Dictionary{{"name", "Box"}, {"count", -7}, {"list", Array{1, "two"}}};
    const Ref<FixtureRecord> record =
        unarchived(convert("archive-record", listOf(members))).asObject<FixtureRecord>();
    ASSERT_TRUE(record);
    EXPECT_EQ(record->name, Value("Box"));
    EXPECT_EQ(record->count, -7);
    EXPECT_EQ(record->list, Value(Array{1, "two"}));
}

TEST_F(KeyedArchiveGNUstep, GNUstepReadsRecords) {
    Ref<FixtureRecord> record = makeRef<FixtureRecord>();
    record->name = "Box";
    record->count = -7;
    record->list = Array{1, "two"};
    EXPECT_EQ(read(convert("unarchive-record", archived(record))),
              Value(Dictionary{{"name", "Box"}, {"count", -7}, {"list", Array{1, "two"}}}));
}

TEST_F(KeyedArchiveGNUstep, RecordsThatNobodyRegisteredAreWrittenAsTheyWereRead) {
    // A calendar date, which GNUstep's reader makes of dates, is a record with members without keys.
    const std::string archive = convert("archive", listOf(Array{Date{120479613}}));
    const Value decoded = unarchived(archive);
    ASSERT_TRUE(decoded.asArray()[0].asObject<GenericObject>());
    EXPECT_EQ(unarchived(archived(decoded)), decoded);
    EXPECT_EQ(read(convert("unarchive", archived(decoded))), Value(Array{Date{120479613}}));
}

} // namespace
} // namespace moxel
