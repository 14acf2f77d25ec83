// Look-ups of what applications have exported.
#include "Support/CapturedLog.h"
#include "Support/PlistStore.h"
#include "Support/PropertyLists.h"

#include <Moxel/MxlImage.h>
#include <Moxel/MxlPlistDictionaries.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

namespace moxel {
namespace {

using test::CapturedLog;
using test::ExactText;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
namespace fs = std::filesystem;

Dictionary action(const char *id, const char *label) {
    return {{"id", id}, {"label", label}, {"description", ""}, {"type", "action"}};
}

Dictionary container(const char *type, const char *id, std::vector<Dictionary::Entry> members) {
    std::vector<Dictionary::Entry> entries = {{"id", id},
                                              {"label", std::string(id) + " label"},
                                              {"description", std::string(id) + " description"},
                                              {"type", type}};
    entries.insert(entries.end(), members.begin(), members.end());
    return Dictionary(std::move(entries));
}

const Dictionary prefs{{"bundleid", "org.example.Viewer"}, {"application", "Viewer"}};
const Dictionary prefsOfClient{
    {"bundleid", "org.example.Viewer"}, {"application", "Viewer"}, {"clientname", "Client"}};

class Lookup : public ::testing::Test {
  protected:
    void writeIndex(const Dictionary &index) const { store_.writeList(store_.indexPath(), index); }
    /// An index of one client, whose files are these.
    void writeIndexOfFiles(const Dictionary &files) const {
        auto entry = files.mutableCopy();
        entry.set("name", "Viewer");
        entry.set("processname", "viewer-bin");
        entry.set("clientname", "Client");
        writeIndex({{"org.example.Viewer", Dictionary{{"1", entry}}}});
    }
    void exportCommands(const Dictionary &commands) const {
        writeIndexOfFiles(
            {{"commandsfile", store_.writeList(commandsPath(), Dictionary{{"Commands", commands}})}});
    }
    void exportImages(const Dictionary &images) const {
        writeIndexOfFiles({{"imagesfile", store_.writeList(store_.base("x/images.plist"),
                                                           Dictionary{{"Images", images}})}});
    }
    [[nodiscard]] std::string commandsPath() const { return store_.base("x/commands.plist"); }
    /// An entry of an index, whose settings file holds its name.
    [[nodiscard]] Dictionary client(const std::string &mark, std::vector<Dictionary::Entry> names) const {
        names.push_back({"settingsfile",
                         store_.writeList(store_.base("x/" + mark + ".plist"), Dictionary{{"mark", mark}})});
        return Dictionary(std::move(names));
    }
    /// The mark of the client that is found, "" when none is.
    std::string found(const String &bundleID, const String &appName, const String &clientName) {
        return store_->appExportedDictUsingBundleID(bundleID, appName, clientName, "settingsfile")["mark"]
            .asString()
            .string();
    }

    test::PlistStore store_;
};

// ---------------------------------------------------------------------------------------------- The index

TEST_F(Lookup, BundleIdentifierMatchesAnyKeyThatContainsItInAnyCase) {
    writeIndex({{"x:ORG.example.VIEWER.suffix", Dictionary{{"1", client("a", {{"name", "Viewer"}})}}}});
    EXPECT_EQ(found("org.example.Viewer", "Viewer", nullptr), "a");
    EXPECT_EQ(found("ORG.EXAMPLE.VIEWER", "Viewer", nullptr), "a");
    EXPECT_EQ(found("org.example.Viewer.other", "Viewer", nullptr), "");
    EXPECT_EQ(found("", "Viewer", nullptr), "");
    EXPECT_EQ(found(nullptr, "Viewer", nullptr), "");
}

TEST_F(Lookup, CaseIsIgnoredInEveryScript) {
    writeIndex({{"рф.пример.ПРОСМОТР", Dictionary{{"1", client("a", {{"name", "ΌΨΗ Ärger"}})}}}});
    EXPECT_EQ(found("РФ.ПРИМЕР.просмотр", "όψη äRGER", nullptr), "a");
}

TEST_F(Lookup, FirstKeyThatContainsTheIdentifierWins) {
    writeIndex({{"org.example.Other", Dictionary{{"1", client("a", {{"name", "Viewer"}})}}},
                {"org.example.Viewer2", Dictionary{{"1", client("b", {{"name", "Another"}})}}},
                {"org.example.Viewer", Dictionary{{"1", client("c", {{"name", "Viewer"}})}}}});
    EXPECT_EQ(found("org.example.Viewer", "Another", nullptr), "b");
    EXPECT_EQ(found("org.example.Viewer", "Viewer", nullptr), "");
    EXPECT_EQ(found("org.example.Viewer2", "Another", nullptr), "b");
}

TEST_F(Lookup, NameAndElseProcessNameMatchInAnyCase) {
    writeIndex({{"org.example.Viewer",
                 Dictionary{{"1", client("a", {{"name", "First"}, {"processname", "first-bin"}})},
                            {"2", client("b", {{"name", "Second"}, {"processname", "first"}})}}}});
    EXPECT_EQ(found("org.example.Viewer", "FIRST", nullptr), "a");
    EXPECT_EQ(found("org.example.Viewer", "First-Bin", nullptr), "a");
    EXPECT_EQ(found("org.example.Viewer", "second", nullptr), "b");
    EXPECT_EQ(found("org.example.Viewer", "sec", nullptr), "");
}

TEST_F(Lookup, FirstMatchingClientWins) {
    writeIndex({{"org.example.Viewer", Dictionary{{"1", client("a", {{"processname", "viewer"}})},
                                                  {"2", client("b", {{"name", "Viewer"}})}}}});
    EXPECT_EQ(found("org.example.Viewer", "Viewer", nullptr), "a");
}

TEST_F(Lookup, WithAClientNameAnEntryOfThatNameButAnotherClientIsNotTaken) {
    writeIndex(
        {{"org.example.Viewer", Dictionary{{"1", client("a", {{"name", "Viewer"}, {"clientname", "One"}})},
                                           {"2", client("b", {{"name", "Else"}, {"clientname", "Two"}})}}}});
    EXPECT_EQ(found("org.example.Viewer", "Viewer", "Two"), "b");
    EXPECT_EQ(found("org.example.Viewer", "Viewer", "Three"), "");
    EXPECT_EQ(found("org.example.Viewer", "Viewer", "two"), "");
    EXPECT_EQ(found("org.example.Viewer", "Viewer", nullptr), "a");
}

TEST_F(Lookup, WithoutAnApplicationNameNothingIsFound) {
    writeIndex({{"org.example.Viewer",
                 Dictionary{{"1", client("a", {{"name", "Viewer"}, {"clientname", "Client"}})}}}});
    EXPECT_EQ(found("org.example.Viewer", nullptr, "Client"), "");
    EXPECT_EQ(found("org.example.Viewer", nullptr, nullptr), "");
}

TEST_F(Lookup, UnknownTypesAreNull) {
    writeIndexOfFiles({{"other", store_.writeList(store_.base("x/o.plist"), Dictionary{{"a", 1}})},
                       {"settingsfile", store_.base("x/o.plist")}});
    EXPECT_FALSE(store_->appExportedDictUsingBundleID("org.example.Viewer", "Viewer", nullptr, "other"));
    EXPECT_FALSE(
        store_->appExportedDictUsingBundleID("org.example.Viewer", "Viewer", nullptr, "Settingsfile"));
    EXPECT_FALSE(store_->appExportedDictUsingBundleID("org.example.Viewer", "Viewer", nullptr, nullptr));
    EXPECT_TRUE(
        store_->appExportedDictUsingBundleID("org.example.Viewer", "Viewer", nullptr, "settingsfile"));
}

TEST_F(Lookup, TypesYieldTheirPartOfTheFile) {
    const std::string file =
        store_.writeList(store_.base("x/all.plist"), Dictionary{{"Commands", Dictionary{{"c", 1}}},
                                                                {"Images", Dictionary{{"i", 2}}},
                                                                {"filepath", "overwritten"}});
    writeIndexOfFiles({{"commandsfile", file}, {"imagesfile", file}, {"settingsfile", file}});
    EXPECT_EQ(ExactText::of(store_->appExportedCommandsDictUsingPrefs(prefs)), R"({"c": 1})");
    EXPECT_EQ(ExactText::of(store_->imageDictionaryForPrefs(prefsOfClient)), R"({"i": 2})");
    const Dictionary settings = store_->navSettingsDictionaryForPrefs(prefs);
    EXPECT_EQ(ExactText::of(settings),
              R"({"Commands": {"c": 1}, "Images": {"i": 2}, "filepath": ")" + file + "\"}");
    EXPECT_TRUE(settings.isMutable());
}

TEST_F(Lookup, PrefsNameTheClient) {
    writeIndex({{"org.example.Viewer",
                 Dictionary{{"1", client("a", {{"name", "Viewer"}, {"clientname", "One"}})},
                            {"2", client("b", {{"name", "Viewer"}, {"clientname", "Client"}})}}}});
    EXPECT_EQ(store_->navSettingsDictionaryForPrefs(prefs)["mark"].asString(), String("a"));
    EXPECT_EQ(store_->navSettingsDictionaryForPrefs(prefsOfClient)["mark"].asString(), String("b"));
    EXPECT_FALSE(store_->navSettingsDictionaryForPrefs(nullptr));
    EXPECT_FALSE(store_->navSettingsDictionaryForPrefs({{"application", "Viewer"}}));
    EXPECT_FALSE(store_->navSettingsDictionaryForPrefs({{"bundleid", 7}, {"application", "Viewer"}}));
}

TEST_F(Lookup, MalformedIndexesAndFilesAreNull) {
    EXPECT_FALSE(store_->appExportedCommandsDictUsingPrefs(prefs)); // no index
    for (const auto *index :
         {"", "{", "(a)", "{\"org.example.Viewer\" = text;}", "{\"org.example.Viewer\" = (a);}",
          "{\"org.example.Viewer\" = {1 = text;};}", "{\"org.example.Viewer\" = {1 = {name = Viewer;};};}",
          "{\"org.example.Viewer\" = {1 = {name = (Viewer); commandsfile = (a);};};}",
          "{\"org.example.Viewer\" = {1 = {name = Viewer; commandsfile = {};};};}",
          "{\"org.example.Viewer\" = {1 = {name = Viewer; commandsfile = \"/missing\";};};}"}) {
        store_.write(store_.indexPath(), index);
        EXPECT_FALSE(store_->appExportedCommandsDictUsingPrefs(prefs)) << index;
    }
    for (const auto *file : {"", "(a)", "{", "{Commands = text;}", "{Images = {};}"}) {
        writeIndexOfFiles({{"commandsfile", store_.write(commandsPath(), file)}});
        EXPECT_FALSE(store_->appExportedCommandsDictUsingPrefs(prefs)) << file;
    }
}

TEST_F(Lookup, ChangedFilesAreSeenAtOnce) {
    exportCommands({{"a", 1}});
    EXPECT_EQ(ExactText::of(store_->appExportedCommandsDictUsingPrefs(prefs)), R"({"a": 1})");
    exportCommands({{"b", 2}});
    EXPECT_EQ(ExactText::of(store_->appExportedCommandsDictUsingPrefs(prefs)), R"({"b": 2})");
    fs::remove(store_.indexPath());
    EXPECT_FALSE(store_->appExportedCommandsDictUsingPrefs(prefs));
}

TEST_F(Lookup, LinksInTheExportFolderAreNotFollowed) {
    const std::string secret = store_.write(store_.outside("secret"), "{Commands = {a = b;};}");
    fs::create_directories(store_.base("x"));
    fs::create_symlink(secret, commandsPath());
    writeIndexOfFiles({{"commandsfile", commandsPath()}});
    EXPECT_FALSE(store_->appExportedCommandsDictUsingPrefs(prefs));
    writeIndexOfFiles({{"commandsfile", secret}});
    EXPECT_TRUE(store_->appExportedCommandsDictUsingPrefs(prefs));
}

// ---------------------------------------------------------------------------------------------- Labels

TEST_F(Lookup, IdentifierOfALabelIsTheLastOneMet) {
    const auto set =
        container("actionset", "s",
                  {{"k1", action("1", "Open")}, {"k2", action("2", "Open")}, {"k3", action("3", "open")}});
    EXPECT_EQ(store_->idForLabel("Open", set), String("k2"));
    EXPECT_EQ(store_->idForLabel("open", set), String("k3"));
    EXPECT_FALSE(store_->idForLabel("Close", set));
    EXPECT_FALSE(store_->idForLabel(nullptr, set));
    EXPECT_FALSE(store_->idForLabel("Open", nullptr));
    EXPECT_FALSE(store_->idForLabel("Open", MutableDictionary::withCapacity(0)));
}

TEST_F(Lookup, IdentifierOfALabelIsNeverAnAttribute) {
    const Dictionary set{{"label", action("1", "Open")},
                         {"id", action("2", "Open")},
                         {"type", action("3", "Open")},
                         {"description", action("4", "Open")},
                         {"text", "Open"}};
    EXPECT_FALSE(store_->idForLabel("Open", set));
}

TEST_F(Lookup, CommandSetOfALabelIsTheFirstThatHoldsItDirectly) {
    exportCommands(
        {{"activesetid", "b"},
         {"category", container("actioncategory", "category", {{"1", action("in category", "Open")}})},
         {"text", "Open"},
         {"a", container("actionset", "a",
                         {{"c", container("actioncategory", "c", {{"1", action("nested", "Open")}})}})},
         {"b",
          container("actionset", "b", {{"1", action("first", "Open")}, {"2", action("second", "Open")}})},
         {"d", container("actionset", "d", {{"1", action("later", "Open")}})}});
    String identifier = "untouched";
    EXPECT_EQ(store_->commandSetForLabel("Open", &identifier, prefs)["id"].asString(), String("b"));
    EXPECT_EQ(identifier, String("first"));
    EXPECT_EQ(store_->commandSetForLabel("Open", nullptr, prefs)["id"].asString(), String("b"));
}

TEST_F(Lookup, CommandSetOfAnUnknownLabelIsNullAndLeavesTheIdentifierAlone) {
    exportCommands({{"a", container("actionset", "a", {{"1", action("1", "Open")}})}});
    String identifier = "untouched";
    EXPECT_FALSE(store_->commandSetForLabel("open", &identifier, prefs));
    EXPECT_FALSE(store_->commandSetForLabel("a label", &identifier, prefs));
    EXPECT_FALSE(store_->commandSetForLabel(nullptr, &identifier, prefs));
    EXPECT_FALSE(store_->commandSetForLabel("Open", &identifier, nullptr));
    EXPECT_EQ(identifier, String("untouched"));
}

// ---------------------------------------------------------------------------------------------- Active set

TEST_F(Lookup, CommandSetsAreListedWithoutTheActiveIdentifier) {
    exportCommands({{"b", container("actionset", "b", {})},
                    {"activesetid", "a"},
                    {"a", container("actionset", "a", {})}});
    String active;
    EXPECT_EQ(ExactText::of(store_->commandSetIDsForSetting(prefs, &active)), R"(["b", "a"])");
    EXPECT_EQ(active, String("a"));
    EXPECT_TRUE(store_->commandSetIDsForSetting(prefs, nullptr).isMutable());
}

TEST_F(Lookup, CommandSetsWithoutAnActiveOneReportNull) {
    exportCommands({{"a", container("actionset", "a", {})}});
    String active = "before";
    EXPECT_EQ(ExactText::of(store_->commandSetIDsForSetting(prefs, &active)), R"(["a"])");
    EXPECT_FALSE(active);
}

TEST_F(Lookup, CommandSetsOfNobodyAreNullAndLeaveTheIdentifierAlone) {
    String active = "untouched";
    EXPECT_FALSE(store_->commandSetIDsForSetting(nullptr, &active));
    EXPECT_FALSE(store_->commandSetIDsForSetting(prefs, &active));
    EXPECT_EQ(active, String("untouched"));
}

TEST_F(Lookup, ActiveCommandSetIsTheOneThatIsMarked) {
    exportCommands({{"activesetid", "b"},
                    {"Default", container("actionset", "Default", {})},
                    {"b", container("actionset", "b", {})}});
    String identifier;
    EXPECT_EQ(store_->activeCommandSetForPrefs(prefs, &identifier)["id"].asString(), String("b"));
    EXPECT_EQ(identifier, String("b"));
    EXPECT_EQ(store_->activeCommandSetForBundleID("org.example.Viewer", "Viewer", "Client", nullptr)["id"]
                  .asString(),
              String("b"));
    EXPECT_EQ(store_->activeCommandSetIDForPrefs(prefs), String("b"));
    EXPECT_EQ(store_->activeCommandSetIDForBundleID("org.example.Viewer", "Viewer", nullptr), String("b"));
}

TEST_F(Lookup, WithoutAnActiveIdentifierTheDefaultSetIsActiveButHasNoIdentifier) {
    exportCommands({{"Default", container("actionset", "Default", {})}});
    String identifier;
    EXPECT_EQ(store_->activeCommandSetForPrefs(prefs, &identifier)["id"].asString(), String("Default"));
    EXPECT_EQ(identifier, String("Default"));
    EXPECT_FALSE(store_->activeCommandSetIDForPrefs(prefs));
}

TEST_F(Lookup, ActiveCommandSetThatIsMissingIsNullButNamed) {
    exportCommands({{"a", container("actionset", "a", {})}});
    String identifier;
    EXPECT_FALSE(store_->activeCommandSetForPrefs(prefs, &identifier));
    EXPECT_EQ(identifier, String("Default"));
    exportCommands({{"activesetid", "gone"}, {"a", container("actionset", "a", {})}});
    EXPECT_FALSE(store_->activeCommandSetForPrefs(prefs, &identifier));
    EXPECT_EQ(identifier, String("gone"));
}

TEST_F(Lookup, ActiveCommandSetOfNobodyIsNullAndLeavesTheIdentifierAlone) {
    String identifier = "untouched";
    EXPECT_FALSE(store_->activeCommandSetForPrefs(prefs, &identifier));
    exportCommands({{"Default", container("actionset", "Default", {})}});
    EXPECT_FALSE(store_->activeCommandSetForBundleID(nullptr, "Viewer", nullptr, &identifier));
    EXPECT_FALSE(store_->activeCommandSetIDForPrefs(nullptr));
    EXPECT_EQ(identifier, String("untouched"));
}

// ---------------------------------------------------------------------------------------------- Images

constexpr const char *pngBytes = "\x89PNG\r\n\x1a\n";

TEST_F(Lookup, EmbeddedImageHasNoPathAndIsCopiedFromItsBytes) {
    exportImages({{"1", Dictionary{{"imagetype", "imagedata"},
                                   {"data", Data(test::asBytes(pngBytes))},
                                   {"path", "/elsewhere"}}}});
    EXPECT_FALSE(store_->imagePathForID("1", prefs));
    const auto image = store_->copyImageForID("1", prefs);
    ASSERT_TRUE(image);
    EXPECT_EQ(image->dataType(), MxlImageDataType::png);
    EXPECT_EQ(test::asText(image->data()), pngBytes);
    EXPECT_NE(store_->copyImageForID("1", prefs), image);
}

TEST_F(Lookup, ImageInAFileOfItsOwnIsReadFromThere) {
    const std::string path = store_.write(store_.base("x/imagedata/1.imgdata"), "BM...");
    exportImages({{"1", Dictionary{{"imagetype", "imagedata"}, {"path", path}}}});
    EXPECT_EQ(store_->imagePathForID("1", prefs).string(), path);
    const auto image = store_->copyImageForID("1", prefs);
    ASSERT_TRUE(image);
    EXPECT_TRUE(image->isData());
    EXPECT_EQ(image->dataType(), MxlImageDataType::bmp);
    EXPECT_EQ(test::asText(image->data()), "BM...");
}

TEST_F(Lookup, ImageFileIsNotRead) {
    exportImages({{"1", Dictionary{{"imagetype", "file"},
                                   {"path", "/missing/icon.png"},
                                   {"data", Data(test::asBytes("x"))}}}});
    EXPECT_EQ(store_->imagePathForID("1", prefs).string(), "/missing/icon.png");
    const auto image = store_->copyImageForID("1", prefs);
    ASSERT_TRUE(image);
    EXPECT_TRUE(image->isPath());
    EXPECT_EQ(image->path(), String("/missing/icon.png"));
}

TEST_F(Lookup, ImagesThatAreNotThereAreNull) {
    exportImages({{"glyph", Dictionary{{"imagetype", "glyph"}, {"path", "/a"}}},
                  {"untyped", Dictionary{{"path", "/a"}}},
                  {"no path", Dictionary{{"imagetype", "imagedata"}}},
                  {"missing file", Dictionary{{"imagetype", "imagedata"}, {"path", store_.base("missing")}}},
                  {"text", "file"}});
    for (const auto *identifier : {"glyph", "untyped", "no path", "missing file", "text", "unknown"})
        EXPECT_FALSE(store_->copyImageForID(identifier, prefs)) << identifier;
    for (const auto *identifier : {"glyph", "untyped", "no path", "text", "unknown"})
        EXPECT_FALSE(store_->imagePathForID(identifier, prefs)) << identifier;
    EXPECT_FALSE(store_->copyImageForID(nullptr, prefs));
    EXPECT_FALSE(store_->imagePathForID(nullptr, prefs));
    EXPECT_FALSE(store_->copyImageForID("glyph", nullptr));
}

TEST_F(Lookup, NothingIsLogged) {
    exportCommands({{"a", container("actionset", "a", {{"1", action("1", "Open")}})}});
    ASSERT_TRUE(store_->init());
    const CapturedLog log;
    (void)store_->commandSetForLabel("Open", nullptr, prefs);
    (void)store_->commandSetForLabel("Nothing", nullptr, prefs);
    (void)store_->copyImageForID("1", prefs);
    (void)store_->activeCommandSetForPrefs(nullptr, nullptr);
    EXPECT_THAT(log.lines(), IsEmpty());
}

} // namespace
} // namespace moxel
