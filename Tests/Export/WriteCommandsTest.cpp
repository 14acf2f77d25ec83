// Commands that an application exports: their files, requests, results and log lines.
#include "Export/ExportFunctions.h"
#include "Support/PlistJSON.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

namespace moxel {
namespace {

using test::client0;
using test::jsonFromPlistlib;
using test::WriteCommands;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;
namespace fs = std::filesystem;

TEST_F(WriteCommands, PutTheTreeIntoAFileNamedAfterChannelSignatureAndProcess) {
    EXPECT_EQ(writeTree(edit), 0);
    EXPECT_EQ(jsonFromPlistlib(contentOf(exporter.commandsPath())),
              std::string("{\"Commands\": {\"Edit\": ") + editJSON + "}}");
    EXPECT_TRUE(fs::is_directory(exporter.folder() + "/imagedata"));
}

TEST_F(WriteCommands, TellTheDaemonThePathInThreeStrings) {
    EXPECT_EQ(writeTree(edit), 0);
    EXPECT_THAT(exporter.requests(),
                ElementsAre(request("moxclientwrite", "cswritecommands", exporter.commandsPath())));
    std::vector<uint8_t> announcement = exporter.dedicated->reports.at(1).bytes;
    EXPECT_EQ(announcement[8], 6);
    EXPECT_EQ(announcement[10], 49) << "the request identifier";
    EXPECT_EQ(announcement[14], 0) << "the command";
}

TEST_F(WriteCommands, AreLoggedStepByStep) {
    EXPECT_EQ(writeTree(edit), 0);
    const size_t length = exporter.dedicated->reports.at(0).bytes.size() - 8;
    EXPECT_THAT(log.lines(),
                ElementsAre(format("*** %s, client=%@", writeCommands, address()),
                            format("retVal = -1, Commandsfile = %@, channelID=1234567890123",
                                   exporter.commandsPath()),
                            format("%s, '>'>'>'> Sending info.. length: %lu", writeCommands, length),
                            HasSubstr("**** New data placed in Storage"), StartsWith("<<<< ====")));
}

TEST_F(WriteCommands, LeaveThePathsInTheRecordAndTheClient) {
    EXPECT_EQ(writeTree(edit), 0);
    EXPECT_EQ(exporter.client->applicationInfo()->commandsFile(), Value(exporter.commandsPath()));
    EXPECT_EQ(exporter.client->stringSyncedResourcesPath(), String(exporter.folder()));
}

TEST_F(WriteCommands, OfIdentifier0AreThoseOfTheCallingThread) {
    EXPECT_EQ(MoxelClientWriteCommands(client0, 0x6D767472, 0, &edit), 0);
    int16_t result = 0;
    std::thread([&] { result = MoxelClientWriteCommands(client0, 0x6D767472, 0, &edit); }).join();
    EXPECT_EQ(result, -1);
}

TEST_F(WriteCommands, WithoutAClientFailSilently) {
    EXPECT_EQ(MoxelClientWriteCommands(78, 0x6D767472, 0, &edit), -1);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(WriteCommands, WithoutDataFailAfterTheEntryLine) {
    EXPECT_EQ(MoxelClientWriteCommands(exporter.identifier, 0x6D767472, 0, nullptr), -1);
    EXPECT_THAT(log.lines(), ElementsAre(format("*** %s, client=%@", writeCommands, address())));
    EXPECT_FALSE(fs::exists(exporter.store.base()));
}

TEST_F(WriteCommands, TreeWhoseFirstNodeIsACategoryIsRefusedAndNoFileIsWritten) {
    for (const int32_t type : {1, 2, -1}) {
        edit.type = type;
        EXPECT_EQ(writeTree(edit), -1) << type;
    }
    EXPECT_FALSE(fs::exists(exporter.store.base()));
    EXPECT_THAT(exporter.requests(), IsEmpty());
}

TEST_F(WriteCommands, OfAnyOtherTypeAreRefused) {
    for (const uint32_t type : {0x6D76696DU, 0U, 0x7274766DU})
        EXPECT_EQ(MoxelClientWriteCommands(exporter.identifier, type, 100, &edit), -1) << type;
    EXPECT_FALSE(fs::exists(exporter.store.base()));
}

TEST_F(WriteCommands, NodesWithoutIdentifiersAreRefusedWithAnErrorLine) {
    paste.id = nullptr;
    EXPECT_EQ(writeTree(edit), -1);
    EXPECT_EQ(
        log.countContaining(format("Error: %s: Node 3 of the action tree has no identifier", writeCommands)),
        1U);
    EXPECT_FALSE(fs::exists(exporter.store.base()));
}

TEST_F(WriteCommands, TreesThatHoldThemselvesAreRefused) {
    paste.next = &copy;
    EXPECT_EQ(writeTree(edit), -1);
    EXPECT_EQ(log.countStarting("Error: "), 1U);
}

TEST_F(WriteCommands, ThatCannotBeWrittenFail) {
    fs::create_directories(exporter.store.base());
    std::ofstream(exporter.folder()) << "a file in the place of the folder";
    EXPECT_EQ(writeTree(edit), -1);
    EXPECT_THAT(exporter.requests(), IsEmpty());
    EXPECT_FALSE(exporter.client->applicationInfo()->commandsFile());
}

TEST_F(WriteCommands, TextsThatXMLCannotHoldAreKept) {
    paste.label = "a\x01z";
    EXPECT_EQ(writeTree(edit), 0);
    EXPECT_THAT(jsonFromPlistlib(contentOf(exporter.commandsPath())), HasSubstr("\"label\": \"a\\u0001z\""));
}

TEST_F(WriteCommands, ComeAsAnArchiveToo) {
    const Dictionary commands{{"Set", Dictionary{{"type", "actionset"}}}};
    EXPECT_EQ(writeArchive(commands), 0);
    EXPECT_EQ(jsonFromPlistlib(contentOf(exporter.commandsPath())),
              "{\"Commands\": {\"Set\": {\"type\": \"actionset\"}}}");
    EXPECT_EQ(log.count(format("%s, MoxelClientWriteCommands(via DICT) ...dict=%@", writeCommands,
                               Value(Dictionary{{"Commands", commands}}))),
              1U);
    EXPECT_EQ(writeTree(edit), 0);
    EXPECT_EQ(writeArchive(Dictionary{{"Set", Dictionary{{"new", true}}}}), 0);
    const Dictionary merged = writtenCommands()["Commands"].asDictionary();
    EXPECT_EQ(merged.size(), 2U);
    EXPECT_EQ(merged["Set"], Value(Dictionary{{"new", true}}));
}

TEST_F(WriteCommands, ArchivesThatHoldNoDictionaryAreRefusedWithoutWriting) {
    EXPECT_EQ(writeArchive("text"), -1);
    EXPECT_EQ(writeArchive(Array{1}), -1);
    EXPECT_EQ(writeArchive(Value()), -1);
    const Data archive = *archivedDataWithRootObject(Dictionary{{"a", "b"}});
    for (const auto &[size, data] : {std::pair<int64_t, const void *>{0, archive.bytes().data()},
                                     {-1, archive.bytes().data()},
                                     {INT64_MIN, archive.bytes().data()},
                                     {static_cast<int64_t>(archive.size()) - 1, archive.bytes().data()},
                                     {8, "nonsense"}})
        EXPECT_EQ(MoxelClientWriteCommands(exporter.identifier, 0x6D766473, size, data), -1) << size;
    EXPECT_FALSE(fs::exists(exporter.store.base()));
}

TEST_F(WriteCommands, ArchivesOfWhatAPropertyListCannotHoldAreNotWritten) {
    EXPECT_EQ(writeArchive(Dictionary{{"null", Value()}}), -1);
    EXPECT_EQ(writeArchive(Dictionary{{"record", makeRef<MxlApplication>()}}), -1);
    EXPECT_TRUE(exporter.hasNoFiles());
    EXPECT_THAT(exporter.requests(), IsEmpty());
}

TEST_F(WriteCommands, ThatAreNotSentFailAfterTheFileIsWritten) {
    exporter.dedicated->setReportStatus = HIDStatus::error;
    EXPECT_EQ(writeTree(edit), -1);
    EXPECT_TRUE(fs::exists(exporter.commandsPath()));
    EXPECT_EQ(exporter.client->applicationInfo()->commandsFile(), Value(exporter.commandsPath()));
}

TEST_F(WriteCommands, ThatTheDaemonDoesNotAcknowledgeFailAndTheFileStays) {
    exporter.acknowledges = false;
    EXPECT_EQ(writeTree(edit), -1);
    EXPECT_TRUE(fs::exists(exporter.commandsPath()));
    EXPECT_EQ(log.countContaining("Failed to receive ACK packet in time"), 1U);
}

TEST_F(WriteCommands, HoldTheClassLockUntilTheyAreSent) {
    bool wasLocked = false;
    const auto acknowledge = exporter.dedicated->onSetReport;
    exporter.dedicated->onSetReport = [&](const test::SentReport &report) {
        std::thread([&] {
            wasLocked = !MoxelClientAPI::classLock().try_lock();
            if (!wasLocked)
                MoxelClientAPI::classLock().unlock();
        }).join();
        acknowledge(report);
    };
    EXPECT_EQ(writeTree(edit), 0);
    EXPECT_TRUE(wasLocked);
    exporter.dedicated->onSetReport = acknowledge;
    EXPECT_EQ(whileTheClassLockIsHeld([] { return int16_t{5}; }), 5) << "and let go of it";
}

} // namespace
} // namespace moxel
