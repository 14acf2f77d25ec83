// Commands that an application exports into a file that is there.
#include "Export/ExportFunctions.h"
#include "Support/PlistJSON.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace moxel {
namespace {

using test::jsonFromPlistlib;
using test::WriteCommands;
using ::testing::IsEmpty;
namespace fs = std::filesystem;

TEST_F(WriteCommands, TwiceInOneRunMerge) {
    Node zoom{0, 2, nullptr, nullptr, "zoom", "Zoom", nullptr};
    Node view{0, 0, nullptr, &zoom, "View", "Viewing", nullptr};
    edit.next = &view;
    EXPECT_EQ(writeTree(edit), 0);
    EXPECT_EQ(MoxelClientActivateActionSet(exporter.identifier, "View"), 0);
    Node undo{0, 2, nullptr, nullptr, "undo", "Undo", nullptr};
    Node newEdit{0, 0, nullptr, &undo, "Edit", "Again", nullptr};
    EXPECT_EQ(writeTree(newEdit), 0);
    const Dictionary commands = writtenCommands()["Commands"].asDictionary();
    EXPECT_EQ(commands.size(), 3U);
    EXPECT_EQ(commands["activesetid"], Value("View"));
    EXPECT_EQ(commands["View"].asDictionary()["zoom"].asDictionary()["label"], Value("Zoom"));
    EXPECT_EQ(commands["Edit"].asDictionary()["label"], Value("Again"));
    EXPECT_TRUE(commands["Edit"].asDictionary()["undo"]);
    EXPECT_FALSE(commands["Edit"].asDictionary()["copy"]) << "the whole set is replaced";
}

TEST_F(WriteCommands, IntoAnExistingFileWithoutCommandsFail) {
    for (const Value &content : {Value(Dictionary{{"Other", 1}}), Value(Dictionary{{"Commands", "text"}}),
                                 Value(Dictionary{{"Commands", Array{1}}})}) {
        exporter.store.writeList(exporter.commandsPath(), content);
        const std::string before = contentOf(exporter.commandsPath());
        EXPECT_EQ(writeTree(edit), -1);
        EXPECT_EQ(contentOf(exporter.commandsPath()), before);
    }
    EXPECT_THAT(exporter.requests(), IsEmpty());
    EXPECT_FALSE(exporter.client->applicationInfo()->commandsFile());
}

TEST_F(WriteCommands, MergingLosesNothingInWhateverFormTheFileWas) {
    const Value content =
        Dictionary{{"Other", Dictionary{{"date", Date{1.5}}, {"data", Data(std::vector<uint8_t>{1, 2})}}},
                   {"Commands", Dictionary{{"Old", Dictionary{{"number", 5}, {"real", 0.1}}}}}};
    for (const PropertyListFormat form : {PropertyListFormat::binary, PropertyListFormat::xml}) {
        const bool isBinary = form == PropertyListFormat::binary;
        exporter.store.writeList(exporter.commandsPath(), content, form);
        EXPECT_EQ(writeTree(edit), 0);
        const Dictionary merged = writtenCommands();
        EXPECT_EQ(merged["Other"].asDictionary()["date"].asDate().secondsSince2001, isBinary ? 1.5 : 1.0)
            << "XML holds whole seconds";
        EXPECT_EQ(merged["Other"].asDictionary()["data"],
                  content.asDictionary()["Other"].asDictionary()["data"]);
        EXPECT_EQ(merged["Commands"].asDictionary()["Old"],
                  content.asDictionary()["Commands"].asDictionary()["Old"]);
        EXPECT_TRUE(merged["Commands"].asDictionary()["Edit"]);
    }
    exporter.store.write(exporter.commandsPath(), "{ Other = old; Commands = { Old = (1, 2); }; }");
    EXPECT_EQ(writeTree(edit), 0);
    EXPECT_EQ(jsonFromPlistlib(contentOf(exporter.commandsPath())),
              std::string("{\"Commands\": {\"Edit\": ") + editJSON +
                  ", \"Old\": [\"1\", \"2\"]}, \"Other\": \"old\"}");
}

TEST_F(WriteCommands, ReplaceWhatIsNoPropertyList) {
    for (const char *content : {"", "nonsense {", "<plist><array/></plist>"}) {
        exporter.store.write(exporter.commandsPath(), content);
        EXPECT_EQ(writeTree(edit), 0);
        EXPECT_EQ(jsonFromPlistlib(contentOf(exporter.commandsPath())),
                  std::string("{\"Commands\": {\"Edit\": ") + editJSON + "}}");
    }
}

TEST_F(WriteCommands, DoNotReplaceWhatCannotBeReadNow) {
    const std::string outside = exporter.store.write(exporter.store.outside("precious"), "precious");
    fs::create_directories(exporter.folder());
    fs::create_symlink(outside, exporter.commandsPath());
    EXPECT_EQ(writeTree(edit), -1);
    EXPECT_EQ(log.countStarting(format("Error: %s: ", writeCommands)), 1U);
    EXPECT_TRUE(fs::is_symlink(exporter.commandsPath()));
    EXPECT_EQ(contentOf(outside), "precious");
    fs::remove(exporter.commandsPath());
    fs::create_directory(exporter.commandsPath());
    EXPECT_EQ(writeTree(edit), -1);
    EXPECT_TRUE(fs::is_directory(exporter.commandsPath()));
}

TEST_F(WriteCommands, DoNotReplaceAFileWhoseSharedPartsAreTooManyToMerge) {
    Value set = Dictionary{{"type", "actionset"}};
    for (int level = 0; level < 24; ++level)
        set = Dictionary{{"left", set}, {"right", set}};
    exporter.store.writeList(exporter.commandsPath(),
                             Dictionary{{"Commands", Dictionary{{"Old", set}, {"activesetid", "Old"}}}},
                             PropertyListFormat::binary);
    const std::string before = contentOf(exporter.commandsPath());
    EXPECT_EQ(writeTree(edit), -1);
    EXPECT_EQ(MoxelClientActivateActionSet(exporter.identifier, "Edit"), -1);
    EXPECT_TRUE(contentOf(exporter.commandsPath()) == before) << "the old set is lost";
    EXPECT_EQ(log.countStarting("Error: int16_t MoxelClient"), 2U);
    EXPECT_THAT(exporter.requests(), IsEmpty());
}

TEST_F(WriteCommands, OfHundredThousandLevelsAreWrittenReadAgainAndMerged) {
    constexpr size_t count = 100'000;
    std::vector<Node> levels(count, Node{0, 1, nullptr, nullptr, "n", nullptr, nullptr});
    for (size_t i = 0; i + 1 < count; ++i)
        levels[i].children = &levels[i + 1];
    levels[0].type = 0;
    levels[0].id = "Deep";
    EXPECT_EQ(writeTree(levels[0]), 0);
    EXPECT_EQ(writeTree(edit), 0);
    const Dictionary commands = writtenCommands()["Commands"].asDictionary();
    EXPECT_TRUE(commands["Edit"].asDictionary());
    size_t depth = 0;
    for (Dictionary level = commands["Deep"].asDictionary(); level && level.size() > 0;
         level = level["n"].asDictionary())
        ++depth;
    EXPECT_EQ(depth, count);
}

TEST_F(WriteCommands, OfHundredThousandSiblingsAreWrittenReadAgainAndMerged) {
    constexpr size_t count = 100'000;
    std::vector<std::string> names;
    for (size_t i = 0; i < count; ++i)
        names.push_back("action " + std::to_string(i));
    std::vector<Node> actions(count, Node{0, 2, nullptr, nullptr, nullptr, nullptr, nullptr});
    for (size_t i = 0; i < count; ++i) {
        actions[i].id = names[i].c_str();
        actions[i].next = i + 1 < count ? &actions[i + 1] : nullptr;
    }
    const Node wide{0, 0, nullptr, actions.data(), "Wide", nullptr, nullptr};
    EXPECT_EQ(writeTree(wide), 0);
    EXPECT_EQ(writeTree(edit), 0);
    const Dictionary commands = writtenCommands()["Commands"].asDictionary();
    EXPECT_TRUE(commands["Edit"].asDictionary());
    EXPECT_EQ(commands["Wide"].asDictionary().size(), count + 4);
}

} // namespace
} // namespace moxel
