// The five export functions against a channel that acknowledges: their files, requests, results and log
// lines.
#include "Platform/FolderLock.h"
#include "Support/CapturedLog.h"
#include "Support/ExportingClient.h"
#include "Support/PlistJSON.h"
#include "Values/Format.h"
#include "Values/KeyedArchive.h"
#include <Moxel/MoxelClient.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <future>
#include <thread>
#include <unistd.h>

namespace moxel {
namespace {

using test::ExportingClient;
using test::jsonFromPlistlib;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using Node = MoxelCommandSyncNode_s;
namespace fs = std::filesystem;

constexpr uint16_t client0 = 0;
constexpr const char *writeCommands =
    "int16_t MoxelClientWriteCommands(uint16_t, uint32_t, int64_t, const void *)";
constexpr const char *writeImages =
    "int16_t MoxelClientWriteImages(uint16_t, uint32_t, const void *, size_t)";

/// Functions that refuse their arguments must not wait for another call.
int16_t whileTheClassLockIsHeld(const std::function<int16_t()> &call) {
    const std::lock_guard lock(MoxelClientAPI::classLock());
    int16_t result = 1;
    std::thread([&] { result = call(); }).join();
    return result;
}

class ExportFunctions : public ::testing::Test {
  protected:
    [[nodiscard]] std::string address() const {
        return format("%p", static_cast<const void *>(exporter.client.get()));
    }
    static std::string contentOf(const std::string &path) { return ExportingClient::contentOf(path); }

    /// The whole commands file.
    [[nodiscard]] Dictionary writtenCommands() const {
        const std::string content = contentOf(exporter.commandsPath());
        return readPropertyList({reinterpret_cast<const uint8_t *>(content.data()), content.size()})
            ->root.asDictionary();
    }

    int16_t writeTree(const Node &first) const {
        return MoxelClientWriteCommands(exporter.identifier, 0x6D767472, 0, &first);
    }
    int16_t writeArchive(const Value &root) const {
        const Result<Data> archive = archivedDataWithRootObject(root);
        return MoxelClientWriteCommands(exporter.identifier, 0x6D766473,
                                        static_cast<int64_t>(archive->size()), archive->bytes().data());
    }
    static daemon::Value request(const char *name, const char *command, const std::string &parameter) {
        return daemon::Dictionary{{"req", name}, {"ctrlcmd", command}, {"ctrlparm", parameter}};
    }

    ExportingClient exporter;
    Node paste{2, 2, nullptr, nullptr, "paste", "Paste", nullptr};
    Node copy{1, 2, &paste, nullptr, "copy", "Copy", "Copies \xC3\xA9"};
    Node edit{0, 0, nullptr, &copy, "Edit", "Editing", nullptr};
    test::CapturedLog log;
};

class WriteCommands : public ExportFunctions {};
class ActivateActionSet : public ExportFunctions {};
class SettingValues : public ExportFunctions {};
class WriteImages : public ExportFunctions {};

constexpr const char *editJSON =
    R"({"copy": {"description": "Copies \u00e9", "id": "copy", "label": "Copy", "type": "action"}, )"
    R"("description": "", "id": "Edit", "label": "Editing", )"
    R"("paste": {"description": "", "id": "paste", "label": "Paste", "type": "action"}, "type": "actionset"})";

// ------------------------------------------------------------------------------------------ Commands

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

// ------------------------------------------------------------------------------------------ Names

/// Each of the five functions, with arguments that are as they should be.
std::vector<std::pair<const char *, std::function<int16_t()>>> allFunctions(const Node &tree) {
    static const MoxelImage_s image{0, 4, "i", {}};
    static std::array<char, 100> buffer;
    static uint64_t length;
    return {{"WriteCommands", [&tree] { return MoxelClientWriteCommands(client0, 0x6D767472, 0, &tree); }},
            {"ActivateActionSet", [] { return MoxelClientActivateActionSet(client0, "Edit"); }},
            {"SetSettingValue", [] { return MoxelClientSetSettingValue(client0, "name", "value"); }},
            {"GetSettingValue",
             [] {
                 length = buffer.size();
                 return MoxelClientGetSettingValue(client0, "name", buffer.data(), &length);
             }},
            {"WriteImages", [] { return MoxelClientWriteImages(client0, 0x6D76696D, &image, 1); }}};
}

TEST_F(ExportFunctions, RefuseNamesThatWouldLeaveTheExportFolder) {
    const Ref<MxlApplication> record = exporter.client->applicationInfo();
    for (const auto &[bundleID, name] : std::vector<std::pair<Value, Value>>{{"../evil", "Viewer"},
                                                                             {"com/../../evil", "Viewer"},
                                                                             {"com.example", "../../evil"},
                                                                             {"com.example", "a/b"},
                                                                             {"..", Value()},
                                                                             {"", Value()}}) {
        record->setBundleid(bundleID);
        record->setName(name);
        for (const auto &[function, call] : allFunctions(edit)) {
            log.clear();
            EXPECT_EQ(call(), -1) << function << bundleID.description() << name.description();
            EXPECT_EQ(log.countContaining("Error"), 1U) << function;
        }
    }
    EXPECT_TRUE(!fs::exists(exporter.store.base()) || exporter.hasNoFiles());
    EXPECT_EQ(std::distance(fs::directory_iterator(fs::path(exporter.store.outside()).parent_path()), {}), 1)
        << "only the machine's folder is there";
    EXPECT_THAT(exporter.requests(), IsEmpty());
}

TEST_F(ExportFunctions, FollowNoLinkInPlaceOfTheExportFolder) {
    fs::create_directories(exporter.store.base());
    const std::string target = exporter.store.outside("target");
    fs::create_directories(target + "/imagedata");
    exporter.store.write(target + "/Viewer_Test.settings.plist", "{name = secret;}");
    fs::create_directory_symlink(target, exporter.folder());
    for (const auto &[function, call] : allFunctions(edit))
        EXPECT_EQ(call(), -1) << function;
    EXPECT_EQ(std::distance(fs::recursive_directory_iterator(target), {}), 2) << "nothing was added";
    EXPECT_EQ(contentOf(target + "/Viewer_Test.settings.plist"), "{name = secret;}");
    EXPECT_THAT(exporter.requests(), IsEmpty());
}

TEST_F(ExportFunctions, RefuseSignaturesThatCannotBePartOfAFileName) {
    for (const uint32_t signature : {0x2F2E2E2FU, 0x612F2E2EU, 0x54650074U, 0U}) {
        exporter.client->applicationInfo()->setSignature(signature);
        for (const auto &[function, call] : allFunctions(edit)) {
            log.clear();
            EXPECT_EQ(call(), -1) << function << signature;
            EXPECT_EQ(log.countContaining(": a file cannot be named "), 1U) << function;
        }
    }
    EXPECT_TRUE(exporter.hasNoFiles());
}

TEST_F(ExportFunctions, SignaturesBeyondASCIIStayApart) {
    exporter.client->applicationInfo()->setSignature(uint32_t{0xE9E8FF54});
    EXPECT_EQ(MoxelClientSetSettingValue(client0, "a", "1"), 0);
    EXPECT_TRUE(fs::exists(exporter.folder() + "/Viewer_\xC3\xA9\xC3\xA8\xC3\xBFT.settings.plist"));
}

TEST_F(ExportFunctions, NeedABundleIdentifier) {
    exporter.client->applicationInfo()->setBundleid(Value());
    for (const auto &[function, call] : allFunctions(edit)) {
        log.clear();
        EXPECT_EQ(call(), -1) << function;
        EXPECT_EQ(log.countContaining("the application has no bundle identifier"), 1U) << function;
    }
}

TEST_F(ExportFunctions, NeedTheDriversDefaultCommands) {
    fs::remove(exporter.store.defaultCommandsPath());
    for (const auto &[function, call] : allFunctions(edit)) {
        log.clear();
        EXPECT_EQ(call(), -1) << function;
        EXPECT_EQ(log.countContaining("the driver's default commands file is missing or unreadable"), 1U)
            << function;
    }
    exporter.store.writeDefaultCommands();
    EXPECT_EQ(writeTree(edit), 0) << "as soon as they are there";
}

TEST_F(ExportFunctions, ApplicationsWithoutANameHaveAFolderOfTheirIdentifier) {
    exporter.client->applicationInfo()->setName(Value());
    EXPECT_EQ(MoxelClientSetSettingValue(client0, "a", "1"), 0);
    EXPECT_TRUE(fs::exists(exporter.store.base("com.example.viewer/(null)_Test.settings.plist")));
}

TEST_F(ExportFunctions, MakeTheFolderOnFirstUseTheReaderToo) {
    std::array<char, 10> buffer{};
    uint64_t length = buffer.size();
    EXPECT_EQ(MoxelClientGetSettingValue(client0, "a", buffer.data(), &length), -1);
    EXPECT_TRUE(fs::is_directory(exporter.folder() + "/imagedata"));
    EXPECT_EQ(exporter.client->stringSyncedResourcesPath(), String(exporter.folder()));
}

TEST_F(ExportFunctions, WithoutAClientAllFail) {
    gClients().remove(exporter.identifier);
    for (const auto &[function, call] : allFunctions(edit))
        EXPECT_EQ(call(), -1) << function;
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_FALSE(fs::exists(exporter.store.base()));
}

// ------------------------------------------------------------------------------------------ Active set

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

// ------------------------------------------------------------------------------------------ Settings

/// What a call of the reader gives: its result, the text and the length.
struct Reading {
    int16_t result;
    std::string text;
    uint64_t length;
    bool operator==(const Reading &) const = default;
};
void PrintTo(const Reading &reading, std::ostream *stream) {
    *stream << reading.result << ' ' << reading.text << ' ' << reading.length;
}

Reading readSetting(const char *name, uint64_t capacity) {
    std::vector<char> buffer(capacity + 8, '#');
    uint64_t length = capacity;
    const int16_t result = MoxelClientGetSettingValue(client0, name, buffer.data(), &length);
    EXPECT_EQ(std::string(buffer.end() - 8, buffer.end()), "########") << "written beyond the buffer";
    if (result != 0) {
        EXPECT_EQ(std::string(buffer.begin(), buffer.end()), std::string(buffer.size(), '#'));
    }
    return {result, result == 0 ? buffer.data() : "", length};
}

TEST_F(SettingValues, AreWrittenIntoAFileNamedAfterNameAndSignature) {
    EXPECT_EQ(MoxelClientSetSettingValue(exporter.identifier, "speed \xC3\xA9", "fast \xE2\x82\xAC"), 0);
    EXPECT_EQ(MoxelClientSetSettingValue(exporter.identifier, "other", ""), 0);
    EXPECT_EQ(MoxelClientSetSettingValue(exporter.identifier, "other", "2"), 0);
    EXPECT_EQ(jsonFromPlistlib(contentOf(exporter.settingsPath())),
              "{\"other\": \"2\", \"speed \\u00e9\": \"fast \\u20ac\"}");
}

TEST_F(SettingValues, AreToldToTheDaemonByTheirFile) {
    EXPECT_EQ(MoxelClientSetSettingValue(exporter.identifier, "a", "1"), 0);
    EXPECT_THAT(exporter.requests(),
                ElementsAre(request("moxclientwrite", "cswritesettings", exporter.settingsPath())));
    EXPECT_EQ(exporter.client->applicationInfo()->settingsFile(), Value(exporter.settingsPath()));
    EXPECT_EQ(exporter.client->stringSyncedResourcesPath(), String(exporter.folder()));
}

TEST_F(SettingValues, MergeWithWhateverFormTheFileWas) {
    for (const PropertyListFormat form : {PropertyListFormat::binary, PropertyListFormat::xml}) {
        exporter.store.writeList(exporter.settingsPath(), Dictionary{{"old", "1"}, {"list", Array{1, true}}},
                                 form);
        EXPECT_EQ(MoxelClientSetSettingValue(exporter.identifier, "new", "2"), 0);
        EXPECT_EQ(jsonFromPlistlib(contentOf(exporter.settingsPath())),
                  "{\"list\": [1, true], \"new\": \"2\", \"old\": \"1\"}");
    }
    exporter.store.write(exporter.settingsPath(), "old = 1;\nlist = (x);\n");
    EXPECT_EQ(MoxelClientSetSettingValue(exporter.identifier, "new", "2"), 0);
    EXPECT_EQ(jsonFromPlistlib(contentOf(exporter.settingsPath())),
              "{\"list\": [\"x\"], \"new\": \"2\", \"old\": \"1\"}");
}

TEST_F(SettingValues, BeginAnewWhereThereIsNoPropertyList) {
    exporter.store.write(exporter.settingsPath(), "nonsense {");
    EXPECT_EQ(MoxelClientSetSettingValue(exporter.identifier, "a", "1"), 0);
    EXPECT_EQ(jsonFromPlistlib(contentOf(exporter.settingsPath())), "{\"a\": \"1\"}");
}

TEST_F(SettingValues, AreNotWrittenOverAFileThatCannotBeReadNow) {
    const std::string outside = exporter.store.write(exporter.store.outside("precious"), "precious");
    fs::create_directories(exporter.folder());
    fs::create_symlink(outside, exporter.settingsPath());
    EXPECT_EQ(MoxelClientSetSettingValue(exporter.identifier, "a", "1"), -1);
    EXPECT_EQ(log.countStarting(
                  "Error: int16_t MoxelClientSetSettingValue(uint16_t, const char *, const char *): "),
              1U);
    EXPECT_TRUE(fs::is_symlink(exporter.settingsPath()));
    EXPECT_FALSE(exporter.client->applicationInfo()->settingsFile());
    EXPECT_FALSE(exporter.client->observerSettingsFile()->isObserving());
    EXPECT_THAT(exporter.requests(), IsEmpty());
}

TEST_F(SettingValues, OfAnotherProcessAreNotLostWhileBothWrite) {
    EXPECT_EQ(MoxelClientSetSettingValue(exporter.identifier, "first", "1"), 0);
    std::future<int16_t> call;
    {
        const Result<FolderLock> other = FolderLock::take(exporter.folder(), std::chrono::seconds(10));
        ASSERT_TRUE(other.ok());
        call = std::async(std::launch::async,
                          [this] { return MoxelClientSetSettingValue(exporter.identifier, "own", "3"); });
        EXPECT_EQ(call.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
        exporter.store.writeList(exporter.settingsPath(), Dictionary{{"first", "1"}, {"other", "2"}});
    }
    EXPECT_EQ(call.get(), 0);
    EXPECT_EQ(jsonFromPlistlib(contentOf(exporter.settingsPath())),
              R"({"first": "1", "other": "2", "own": "3"})");
}

TEST_F(SettingValues, AreRefusedIn2SecondsWhenAnotherProcessKeepsTheFolder) {
    EXPECT_EQ(MoxelClientSetSettingValue(exporter.identifier, "first", "1"), 0);
    const std::string before = contentOf(exporter.settingsPath());
    const Result<FolderLock> other = FolderLock::take(exporter.folder(), std::chrono::seconds(10));
    ASSERT_TRUE(other.ok());
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(MoxelClientSetSettingValue(exporter.identifier, "first", "2"), -1);
    const auto duration = std::chrono::steady_clock::now() - start;
    EXPECT_GE(duration, std::chrono::milliseconds(1990));
    EXPECT_LT(duration, std::chrono::seconds(20));
    EXPECT_EQ(contentOf(exporter.settingsPath()), before);
    EXPECT_EQ(log.countContaining(": another process keeps the folder "), 1U);
}

TEST_F(SettingValues, AreSetEvenWhenTheDaemonDoesNotAcknowledge) {
    exporter.acknowledges = false;
    EXPECT_EQ(MoxelClientSetSettingValue(exporter.identifier, "a", "1"), 0);
    EXPECT_EQ(log.countContaining("Failed to receive ACK packet in time"), 1U);
    EXPECT_EQ(exporter.client->applicationInfo()->settingsFile(), Value(exporter.settingsPath()));
}

TEST_F(SettingValues, StartTheObserverOnce) {
    const std::shared_ptr<CFileObserver> observer = exporter.client->observerSettingsFile();
    EXPECT_EQ(MoxelClientSetSettingValue(exporter.identifier, "a", "1"), 0);
    EXPECT_TRUE(observer->isObserving());
    EXPECT_EQ(observer->m_folderName(), String(exporter.folder()));
    EXPECT_EQ(observer->m_fileName(), String("Viewer_Test.settings.plist"));
    observer->setM_fileName("left alone");
    EXPECT_EQ(MoxelClientSetSettingValue(exporter.identifier, "a", "2"), 0);
    EXPECT_EQ(observer->m_fileName(), String("left alone"));
}

TEST_F(SettingValues, AreLoggedByTheSenderOnly) {
    EXPECT_EQ(MoxelClientSetSettingValue(exporter.identifier, "a", "1"), 0);
    EXPECT_THAT(log.lines(),
                ElementsAre(HasSubstr("**** New data placed in Storage"), StartsWith("<<<< ====")));
}

TEST_F(SettingValues, NullArgumentsFailAtOnce) {
    char buffer[8] = "";
    uint64_t length = 8;
    EXPECT_EQ(whileTheClassLockIsHeld([] { return MoxelClientSetSettingValue(1, nullptr, "v"); }), -1);
    EXPECT_EQ(whileTheClassLockIsHeld([] { return MoxelClientSetSettingValue(1, "n", nullptr); }), -1);
    EXPECT_EQ(
        whileTheClassLockIsHeld([&] { return MoxelClientGetSettingValue(1, nullptr, buffer, &length); }), -1);
    EXPECT_EQ(whileTheClassLockIsHeld([&] { return MoxelClientGetSettingValue(1, "n", nullptr, &length); }),
              -1);
    EXPECT_EQ(whileTheClassLockIsHeld([&] { return MoxelClientGetSettingValue(1, "n", buffer, nullptr); }),
              -1);
    EXPECT_EQ(length, 8U);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(SettingValues, AreReadBack) {
    EXPECT_EQ(MoxelClientSetSettingValue(exporter.identifier, "speed \xC3\xA9", "fast"), 0);
    EXPECT_EQ(readSetting("speed \xC3\xA9", 100), (Reading{0, "fast", 4}));
    EXPECT_THAT(exporter.requests(), ::testing::SizeIs(1)) << "reading sends nothing";
}

TEST_F(SettingValues, NeedABufferLargerThanTheirLength) {
    EXPECT_EQ(MoxelClientSetSettingValue(exporter.identifier, "speed", "fast"), 0);
    EXPECT_EQ(readSetting("speed", 4), (Reading{-1, "", 0}));
    EXPECT_EQ(readSetting("speed", 5), (Reading{0, "fast", 4}));
    EXPECT_EQ(readSetting("speed", 0), (Reading{-1, "", 0}));
}

TEST_F(SettingValues, ThatWereNeverSetReadAsNull) {
    EXPECT_EQ(MoxelClientSetSettingValue(exporter.identifier, "speed", "fast"), 0);
    EXPECT_EQ(readSetting("never", 100), (Reading{0, "(null)", 6}));
    EXPECT_EQ(readSetting("never", 6), (Reading{-1, "", 0}));
}

TEST_F(SettingValues, WithoutAFileCannotBeRead) {
    EXPECT_EQ(readSetting("speed", 100), (Reading{-1, "", 0}));
    exporter.store.write(exporter.settingsPath(), "<plist><array/></plist>");
    EXPECT_EQ(readSetting("speed", 100), (Reading{-1, "", 0}));
    exporter.store.write(exporter.settingsPath(), "");
    EXPECT_EQ(readSetting("speed", 100), (Reading{-1, "", 0}));
}

TEST_F(SettingValues, OfOtherKindsReadAsTheirDescription) {
    exporter.store.writeList(exporter.settingsPath(),
                             Dictionary{{"number", 5}, {"list", Array{1, "b"}}, {"empty", ""}});
    EXPECT_EQ(readSetting("number", 100), (Reading{0, "5", 1}));
    EXPECT_EQ(readSetting("list", 100), (Reading{0, "(\n    1,\n    b\n)", 16}));
    EXPECT_EQ(readSetting("empty", 1), (Reading{0, "", 0}));
}

TEST_F(SettingValues, LengthCountsCharactersAndTheCopyIsBoundedInBytes) {
    EXPECT_EQ(MoxelClientSetSettingValue(exporter.identifier, "euro", "\xE2\x82\xAC\xE2\x82\xAC"), 0);
    EXPECT_EQ(readSetting("euro", 2), (Reading{-1, "", 0}));
    EXPECT_EQ(readSetting("euro", 3), (Reading{0, "", 2})) << "not even one character fits";
    EXPECT_EQ(readSetting("euro", 4), (Reading{0, "\xE2\x82\xAC", 2}));
    EXPECT_EQ(readSetting("euro", 6), (Reading{0, "\xE2\x82\xAC", 2}));
    EXPECT_EQ(readSetting("euro", 7), (Reading{0, "\xE2\x82\xAC\xE2\x82\xAC", 2}));
    EXPECT_EQ(MoxelClientSetSettingValue(exporter.identifier, "dial", "\xF0\x9F\x8E\x9B"), 0);
    EXPECT_EQ(readSetting("dial", 2), (Reading{-1, "", 0}));
    EXPECT_EQ(readSetting("dial", 5), (Reading{0, "\xF0\x9F\x8E\x9B", 2}));
}

// ------------------------------------------------------------------------------------------ Images

class ImageList {
  public:
    ImageList() {
        images_[0].type = 1;
        images_[0].id = "copy";
        images_[0].file = {"/icons/copy.png", 3};
        images_[1].type = 3;
        images_[1].id = "paste";
        images_[1].image = {reinterpret_cast<const uint8_t *>("bytes"), 5, 7};
    }
    MoxelImage_s &operator[](size_t index) { return images_[index]; }
    [[nodiscard]] const MoxelImage_s *data() const { return images_.data(); }
    [[nodiscard]] size_t size() const { return images_.size(); }

  private:
    std::array<MoxelImage_s, 2> images_{};
};

TEST_F(WriteImages, PutTheListIntoAFileAndTheirBytesIntoOthers) {
    const ImageList images;
    EXPECT_EQ(MoxelClientWriteImages(exporter.identifier, 0x6D76696D, images.data(), images.size()), 0);
    EXPECT_EQ(
        jsonFromPlistlib(contentOf(exporter.imagesPath())),
        "{\"Images\": {\"copy\": {\"imagetype\": \"file\", \"index\": 3, \"path\": \"/icons/copy.png\"}, "
        "\"paste\": {\"imagetype\": \"imagedata\", \"index\": 7, \"path\": \"" +
            exporter.folder() + "/imagedata/paste.imgdata\"}}}");
    EXPECT_EQ(contentOf(exporter.folder() + "/imagedata/paste.imgdata"), "bytes");
}

TEST_F(WriteImages, TellTheDaemonThePathByTheWordThatItExpects) {
    const ImageList images;
    EXPECT_EQ(MoxelClientWriteImages(exporter.identifier, 0x6D76696D, images.data(), images.size()), 0);
    EXPECT_THAT(exporter.requests(),
                ElementsAre(request("moxclientwrite", "cswriteimgages", exporter.imagesPath())));
    EXPECT_EQ(exporter.client->applicationInfo()->imagesFile(), Value(exporter.imagesPath()));
}

TEST_F(WriteImages, LogTheirEntry) {
    const ImageList images;
    EXPECT_EQ(MoxelClientWriteImages(exporter.identifier, 0x6D76696D, images.data(), images.size()), 0);
    EXPECT_THAT(log.lines(),
                ElementsAre(format("*** %s, client=%@", writeImages, address()),
                            HasSubstr("**** New data placed in Storage"), StartsWith("<<<< ====")));
}

TEST_F(WriteImages, MergeWithThoseOfTheFile) {
    exporter.store.writeList(
        exporter.imagesPath(),
        Dictionary{{"Images", Dictionary{{"copy", "old"}, {"cut", "kept"}}}, {"Other", 1}},
        PropertyListFormat::binary);
    const ImageList images;
    EXPECT_EQ(MoxelClientWriteImages(exporter.identifier, 0x6D76696D, images.data(), 1), 0);
    EXPECT_EQ(
        jsonFromPlistlib(contentOf(exporter.imagesPath())),
        "{\"Images\": {\"copy\": {\"imagetype\": \"file\", \"index\": 3, \"path\": \"/icons/copy.png\"}, "
        "\"cut\": \"kept\"}, \"Other\": 1}");
}

TEST_F(WriteImages, OfADictionaryReplaceAllImages) {
    exporter.store.writeList(exporter.imagesPath(),
                             Dictionary{{"Images", Dictionary{{"cut", "old"}}}, {"Other", 1}});
    const Dictionary images{{"copy", Dictionary{{"imagetype", "glyph"}}}};
    EXPECT_EQ(MoxelClientWriteImages(exporter.identifier, 0x6D766473, &images, 1), 0);
    EXPECT_EQ(jsonFromPlistlib(contentOf(exporter.imagesPath())),
              "{\"Images\": {\"copy\": {\"imagetype\": \"glyph\"}}, \"Other\": 1}");
    const Dictionary null;
    EXPECT_EQ(MoxelClientWriteImages(exporter.identifier, 0x6D766473, &null, 1), -1);
    EXPECT_EQ(log.countStarting(format("Error: %s: ", writeImages)), 1U);
}

TEST_F(WriteImages, OfAnUnknownTypeRewriteTheFileUnchangedAndStillNotifyTheDaemon) {
    exporter.store.writeList(exporter.imagesPath(),
                             Dictionary{{"Images", Dictionary{{"cut", "kept"}}}, {"Other", 1}});
    struct stat before {};
    struct stat after {};
    ASSERT_EQ(::stat(exporter.imagesPath().c_str(), &before), 0);
    EXPECT_EQ(MoxelClientWriteImages(exporter.identifier, 0x12345678, "x", 1), 0);
    ASSERT_EQ(::stat(exporter.imagesPath().c_str(), &after), 0);
    EXPECT_NE(before.st_ino, after.st_ino) << "it was not written";
    EXPECT_EQ(jsonFromPlistlib(contentOf(exporter.imagesPath())),
              "{\"Images\": {\"cut\": \"kept\"}, \"Other\": 1}");
    EXPECT_THAT(exporter.requests(), ::testing::SizeIs(1));
    fs::remove(exporter.imagesPath());
    EXPECT_EQ(MoxelClientWriteImages(exporter.identifier, 0x12345678, "x", 1), 0);
    EXPECT_EQ(jsonFromPlistlib(contentOf(exporter.imagesPath())), "{}");
}

TEST_F(WriteImages, WithoutDataOrCountFailAtOnce) {
    const ImageList images;
    EXPECT_EQ(whileTheClassLockIsHeld([] { return MoxelClientWriteImages(1, 0x6D76696D, nullptr, 1); }), -1);
    EXPECT_EQ(
        whileTheClassLockIsHeld([&] { return MoxelClientWriteImages(1, 0x6D76696D, images.data(), 0); }), -1);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(WriteImages, IdentifiersThatWouldLeaveTheFolderAreRefused) {
    ImageList images;
    for (const char *identifier : {"../../../evil", "a/b", "..", static_cast<const char *>(nullptr)}) {
        images[1].id = identifier;
        log.clear();
        EXPECT_EQ(MoxelClientWriteImages(exporter.identifier, 0x6D76696D, images.data(), images.size()), -1);
        EXPECT_EQ(log.countStarting(format("Error: %s: Image 1", writeImages)), 1U);
    }
    EXPECT_TRUE(exporter.hasNoFiles());
    EXPECT_THAT(exporter.requests(), IsEmpty());
}

TEST_F(WriteImages, FailWhenTheFileCannotBeWrittenOrTheRequestNotSent) {
    const ImageList images;
    fs::create_directories(exporter.imagesPath());
    EXPECT_EQ(MoxelClientWriteImages(exporter.identifier, 0x6D76696D, images.data(), images.size()), -1);
    EXPECT_FALSE(exporter.client->applicationInfo()->imagesFile());
    fs::remove(exporter.imagesPath());
    exporter.dedicated->setReportStatus = HIDStatus::error;
    EXPECT_EQ(MoxelClientWriteImages(exporter.identifier, 0x6D76696D, images.data(), images.size()), -1);
    EXPECT_TRUE(fs::exists(exporter.imagesPath()));
}

} // namespace
} // namespace moxel
