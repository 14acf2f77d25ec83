// The action set that an application activates: its file, requests, results and log lines.
#include "Export/ExportFunctions.h"
#include "Support/PlistJSON.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace moxel {
namespace {

using test::ExportFunctions;
using test::jsonFromPlistlib;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;
namespace fs = std::filesystem;

class ActivateActionSet : public ExportFunctions {};

TEST_F(ActivateActionSet, WritesTheIdentifierIntoTheCommandsFile) {
    EXPECT_EQ(writeTree(edit), 0);
    EXPECT_EQ(MoxelClientActivateActionSet(exporter.identifier, "Edit \xC3\xA9"), 0);
    EXPECT_EQ(jsonFromPlistlib(contentOf(exporter.commandsPath())),
              std::string("{\"Commands\": {\"Edit\": ") + editJSON + ", \"activesetid\": \"Edit \\u00e9\"}}");
}

TEST_F(ActivateActionSet, BeginsAFileWithNothingElse) {
    EXPECT_EQ(MoxelClientActivateActionSet(exporter.identifier, "Edit"), 0);
    EXPECT_EQ(jsonFromPlistlib(contentOf(exporter.commandsPath())),
              "{\"Commands\": {\"activesetid\": \"Edit\"}}");
    exporter.store.write(exporter.commandsPath(), "nonsense {");
    EXPECT_EQ(MoxelClientActivateActionSet(exporter.identifier, "View"), 0);
    EXPECT_EQ(jsonFromPlistlib(contentOf(exporter.commandsPath())),
              "{\"Commands\": {\"activesetid\": \"View\"}}");
}

TEST_F(ActivateActionSet, KeepsAFileThatHasNoCommands) {
    exporter.store.writeList(exporter.commandsPath(), Dictionary{{"Other", 1}});
    EXPECT_EQ(MoxelClientActivateActionSet(exporter.identifier, "Edit"), 0);
    EXPECT_EQ(jsonFromPlistlib(contentOf(exporter.commandsPath())),
              "{\"Commands\": {\"activesetid\": \"Edit\"}, \"Other\": 1}");
}

TEST_F(ActivateActionSet, LeavesCommandsThatAreNoDictionaryAlone) {
    for (const Value &commands : {Value("text"), Value(Array{1})}) {
        exporter.store.writeList(exporter.commandsPath(), Dictionary{{"Commands", commands}});
        const std::string before = contentOf(exporter.commandsPath());
        EXPECT_EQ(MoxelClientActivateActionSet(exporter.identifier, "Edit"), -1);
        EXPECT_EQ(contentOf(exporter.commandsPath()), before);
    }
    EXPECT_THAT(exporter.requests(), IsEmpty());
}

TEST_F(ActivateActionSet, TellsTheDaemonTheIdentifier) {
    EXPECT_EQ(MoxelClientActivateActionSet(exporter.identifier, "Edit"), 0);
    EXPECT_THAT(exporter.requests(), ElementsAre(request("moxclientactset", "csactiveset", "Edit")));
}

TEST_F(ActivateActionSet, LogsItsEntryWithALeadingBlank) {
    EXPECT_EQ(MoxelClientActivateActionSet(exporter.identifier, "Edit"), 0);
    EXPECT_THAT(log.lines(),
                ElementsAre(format(" int16_t MoxelClientActivateActionSet(uint16_t, const char *), client=%@",
                                   address()),
                            HasSubstr("**** New data placed in Storage"), StartsWith("<<<< ====")));
}

TEST_F(ActivateActionSet, ANullIdentifierIsWrittenBeforeTheCallFails) {
    EXPECT_EQ(MoxelClientActivateActionSet(exporter.identifier, nullptr), -1);
    EXPECT_EQ(jsonFromPlistlib(contentOf(exporter.commandsPath())),
              "{\"Commands\": {\"activesetid\": \"(null)\"}}");
    EXPECT_THAT(exporter.requests(), IsEmpty());
}

TEST_F(ActivateActionSet, DoesNotChangeTheRecord) {
    EXPECT_EQ(MoxelClientActivateActionSet(exporter.identifier, "Edit"), 0);
    EXPECT_FALSE(exporter.client->applicationInfo()->commandsFile());
}

TEST_F(ActivateActionSet, FailsWhenTheFileCannotBeWrittenOrTheRequestNotSent) {
    fs::create_directories(exporter.commandsPath());
    EXPECT_EQ(MoxelClientActivateActionSet(exporter.identifier, "Edit"), -1);
    EXPECT_THAT(exporter.requests(), IsEmpty());
    fs::remove(exporter.commandsPath());
    exporter.dedicated->setReportStatus = HIDStatus::error;
    EXPECT_EQ(MoxelClientActivateActionSet(exporter.identifier, "Edit"), -1);
    EXPECT_TRUE(fs::is_regular_file(exporter.commandsPath()));
}

TEST_F(ActivateActionSet, IdentifiersTooLongForARequestFail) {
    EXPECT_EQ(MoxelClientActivateActionSet(exporter.identifier, std::string(3000, 'x').c_str()), -1);
    EXPECT_EQ(log.countContaining("exceeds 2048!"), 1U);
}

} // namespace
} // namespace moxel
