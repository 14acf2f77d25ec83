// The application record: copying, printing and archiving.
#include <Moxel/MxlApplication.h>

#include "Values/PropertyList.h"

#include <gtest/gtest.h>

namespace moxel {
namespace {

Ref<MxlApplication> filledRecord() {
    auto record = makeRef<MxlApplication>();
    record->setClientid(7);
    record->setName("Viewer");
    record->setAppFileName("viewer");
    record->setClientName("Viewer client");
    record->setBundleid("org.example.Viewer");
    record->setExecutablePath("/opt/viewer/viewer");
    record->setCommandsFile("/a/commands.plist");
    record->setImagesFile("/a/images.plist");
    record->setSettingsFile("/a/settings.plist");
    record->setSignature(0x56696577U);
    record->setProcessid(4711);
    record->setMode(3);
    record->setMask(0x3FU);
    record->setButtonMask(0x3FU);
    record->setSwitches(0x80000000U);
    record->setChannelID(uint64_t{1700000000123});
    return record;
}

void expectEqual(const MxlApplication &a, const MxlApplication &b) {
    EXPECT_EQ(a.clientid(), b.clientid());
    EXPECT_EQ(a.name(), b.name());
    EXPECT_EQ(a.appFileName(), b.appFileName());
    EXPECT_EQ(a.clientName(), b.clientName());
    EXPECT_EQ(a.bundleid(), b.bundleid());
    EXPECT_EQ(a.executablePath(), b.executablePath());
    EXPECT_EQ(a.commandsFile(), b.commandsFile());
    EXPECT_EQ(a.imagesFile(), b.imagesFile());
    EXPECT_EQ(a.settingsFile(), b.settingsFile());
    EXPECT_EQ(a.signature(), b.signature());
    EXPECT_EQ(a.processid(), b.processid());
    EXPECT_EQ(a.mode(), b.mode());
    EXPECT_EQ(a.mask(), b.mask());
    EXPECT_EQ(a.switches(), b.switches());
    EXPECT_EQ(a.channelID(), b.channelID());
}

Ref<MxlApplication> archivedAndBack(const Ref<MxlApplication> &record) {
    const Result<Data> archive = archivedDataWithRootObject(record);
    EXPECT_TRUE(archive.ok());
    const Result<Value> back = unarchiveObjectWithData(archive->bytes());
    EXPECT_TRUE(back.ok());
    return back->asObject<MxlApplication>();
}

TEST(MxlApplication, FreshRecordIsAllNull) {
    const MxlApplication record;
    for (const Value &value :
         {record.clientid(), record.name(), record.appFileName(), record.clientName(), record.bundleid(),
          record.executablePath(), record.commandsFile(), record.imagesFile(), record.settingsFile(),
          record.signature(), record.processid(), record.mode(), record.mask(), record.buttonMask(),
          record.switches(), record.channelID()})
        EXPECT_TRUE(value.isNull());
}

TEST(MxlApplication, ArchivingKeepsAllSixteenFieldsTheButtonMaskIncluded) {
    const Ref<MxlApplication> record = filledRecord();
    const Ref<MxlApplication> back = archivedAndBack(record);
    ASSERT_TRUE(back);
    expectEqual(*record, *back);
    EXPECT_EQ(back->buttonMask(), Value(0x3F));
}

TEST(MxlApplication, IsArchivedUnderItsKeysInTheirOrder) {
    const Result<Data> archive = archivedDataWithRootObject(filledRecord());
    ASSERT_TRUE(archive.ok());
    const Result<PropertyList> list = readPropertyList(archive->bytes());
    ASSERT_TRUE(list.ok());
    const Array objects = list->root.asDictionary()["$objects"].asArray();
    const UID root = list->root.asDictionary()["$top"].asDictionary()["root"].asUID();
    std::vector<std::string> keys;
    for (const Dictionary::Entry &entry : objects[root.index].asDictionary())
        keys.push_back(entry.key.string());
    EXPECT_EQ(keys, (std::vector<std::string>{"clientid", "appname", "appfilename", "clientname", "bundleid",
                                              "exepath", "commandsfile", "imagesfile", "settingsfile",
                                              "signature", "processid", "mode", "mask", "buttonmask",
                                              "switches", "channelid", "$class"}));
}

TEST(MxlApplication, FreshRecordArchivesNoValuesAndComesBackNull) {
    const auto record = makeRef<MxlApplication>();
    KeyedEncoder encoder;
    record->encodeWithCoder(encoder);
    EXPECT_EQ(encoder.members().size(), 0U);
    const Ref<MxlApplication> back = archivedAndBack(record);
    ASSERT_TRUE(back);
    EXPECT_TRUE(back->clientid().isNull());
    EXPECT_TRUE(back->channelID().isNull());
}

TEST(MxlApplication, DecodesWhateverKindTheArchiveHolds) {
    const Ref<MxlApplication> record = MxlApplication::initWithCoder(
        KeyedDecoder(Dictionary{{"clientid", "a string"}, {"appname", 5}, {"unknown", true}}));
    EXPECT_EQ(record->clientid(), Value("a string"));
    EXPECT_EQ(record->name(), Value(5));
}

TEST(MxlApplication, CopyHasNoButtonMaskAndEqualValuesElsewhere) {
    const Ref<MxlApplication> record = filledRecord();
    const Ref<MxlApplication> copy = record->copyWithZone();
    expectEqual(*record, *copy);
    EXPECT_EQ(record->buttonMask(), Value(0x3F));
    EXPECT_TRUE(copy->buttonMask().isNull());
}

TEST(MxlApplication, DescriptionShowsEveryLine) {
    const Ref<MxlApplication> record = filledRecord();
    char address[32];
    std::snprintf(address, sizeof address, "%p", static_cast<void *>(record.get()));
    EXPECT_EQ(record->description(),
              std::string("<MxlApplication:") + address +
                  "   \n appName = Viewer;\n clientid = 7;\n signature = 1449747831;\n"
                  " bundleid = org.example.Viewer;\n executablePath = /opt/viewer/viewer;\n"
                  " appFileName = viewer;\n clientName = Viewer client;\n mode = 3;\n"
                  " mask = 3f;\n buttonMask = 3f;\n switches = 80000000;\n processid = 1267\n"
                  "\n channelID=1700000000123>\n");
}

TEST(MxlApplication, DescriptionOfModeAndMaskIsHexadecimal) {
    auto record = makeRef<MxlApplication>();
    record->setMode(3);
    record->setMask(0x3F);
    EXPECT_NE(record->description().find("\n mode = 3;\n mask = 3f;\n"), std::string::npos);
    EXPECT_NE(record->description().find(" appName = (null);\n clientid = 0;\n"), std::string::npos);
}

} // namespace
} // namespace moxel
