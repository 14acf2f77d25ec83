// The store of property lists: its one instance, its paths, folders and index, and what it cleans up.
#include "Support/CapturedLog.h"
#include "Support/ChildProcess.h"
#include "Support/Namespaces.h"
#include "Support/PlistJSON.h"
#include "Support/PlistStore.h"

#include "Platform/LoginTime.h"
#include <Moxel/MxlPlistDictionaries.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <thread>

namespace moxel {
namespace {

using test::CapturedLog;
using test::ChildProgram;
using test::ExactText;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
namespace fs = std::filesystem;

class Store : public ::testing::Test {
  protected:
    test::PlistStore store_;
};

// ---------------------------------------------------------------------------------------------- The instance

TEST_F(Store, AllocLogsAndYieldsNull) {
    const CapturedLog log;
    EXPECT_EQ(MxlPlistDictionaries::alloc(), nullptr);
    EXPECT_THAT(log.lines(), ElementsAre("MxlPlistDictionaries : Use +sharedInstance instead of +alloc"));
}

TEST_F(Store, NewLogsAndYieldsNull) {
    const CapturedLog log;
    EXPECT_EQ(MxlPlistDictionaries::newInstance(), nullptr);
    EXPECT_THAT(log.lines(), ElementsAre("MxlPlistDictionaries : Use +sharedInstance instead of +alloc"));
}

TEST_F(Store, OnlySharedDefaultDictionariesYieldsAnInstanceAlwaysTheSame) {
    const auto store = MxlPlistDictionaries::sharedDefaultDictionaries();
    ASSERT_TRUE(store);
    EXPECT_EQ(MxlPlistDictionaries::sharedDefaultDictionaries(), store);
    EXPECT_EQ(store->init(), store);
    EXPECT_EQ(store->copyWithZone(), store);
    EXPECT_EQ(store->mutableCopyWithZone(), store);
}

TEST_F(Store, ThreadsGetTheSameInstance) {
    std::array<MxlPlistDictionaries::Shared, 4> stores;
    std::array<std::thread, 4> threads;
    for (size_t i = 0; i < threads.size(); ++i)
        threads[i] = std::thread([&, i] {
            stores[i] = MxlPlistDictionaries::sharedDefaultDictionaries();
            EXPECT_STREQ(kExportedCommandsBaseDirPath.load(), store_.base().c_str());
        });
    for (auto &thread : threads)
        thread.join();
    for (const auto &store : stores)
        EXPECT_TRUE(store && store == stores[0]);
}

TEST_F(Store, NullWithoutDefaultCommandsAndAnInstanceAsSoonAsTheyAreThere) {
    fs::remove(store_.defaultCommandsPath());
    EXPECT_EQ(MxlPlistDictionaries::sharedDefaultDictionaries(), nullptr);
    EXPECT_EQ(MxlPlistDictionaries::sharedDefaultDictionaries(), nullptr);
    store_.writeDefaultCommands();
    EXPECT_NE(MxlPlistDictionaries::sharedDefaultDictionaries(), nullptr);
}

TEST_F(Store, NullWhileDefaultCommandsAreNoDictionary) {
    for (const auto *content : {"", "(a, b)", "{a = b", "bplist00", "<plist><array/></plist>"}) {
        store_.write(store_.defaultCommandsPath(), content);
        EXPECT_EQ(MxlPlistDictionaries::sharedDefaultDictionaries(), nullptr) << content;
    }
    store_.write(store_.defaultCommandsPath(), "{a = b;}");
    EXPECT_NE(MxlPlistDictionaries::sharedDefaultDictionaries(), nullptr);
}

TEST_F(Store, LivesAsLongAsTheProcessWithItsPathsAndCommands) {
    ASSERT_TRUE(store_->init());
    const test::ExportFolders others;
    fs::remove(store_.defaultCommandsPath());
    EXPECT_EQ(MxlPlistDictionaries::sharedDefaultDictionaries(), store_->init());
    EXPECT_EQ(store_->stringAppCommandsPath(), String(store_.defaultCommandsPath()));
    EXPECT_EQ(store_->exportedCommandsBaseDirPath(), String(store_.base()));
    EXPECT_EQ(ExactText::of(store_->defaultCommands()), R"({"a": "b"})");
    EXPECT_EQ(store_->getSyncedApplicationsFilePath(false), String(others.base("SyncApplications.plist")));
}

const ChildProgram neverAsked("neverAsked", [] {
    EXPECT_EQ(kExportedCommandsBaseDirPath.load(), nullptr);
    test::PlistStore store;
    EXPECT_EQ(kExportedCommandsBaseDirPath.load(), nullptr);
    EXPECT_TRUE(MxlPlistDictionaries::sharedDefaultDictionaries());
    EXPECT_STREQ(kExportedCommandsBaseDirPath.load(), store.base().c_str());
});
TEST_F(Store, BaseFolderIsNullBeforeTheFirstUse) { neverAsked.run(); }

// ---------------------------------------------------------------------------------------------- Its files

TEST_F(Store, PathsAreBuiltOverTheStandardFolders) {
    const std::string ware = store_.applicationSupport() + "/Moxel/MxlWare/";
    EXPECT_EQ(store_->stringAppCommandsPath().string(), ware + "MxlCommands.plist");
    EXPECT_EQ(store_->stringDefaultPath().string(), ware + "MxlDefaults.plist");
    EXPECT_EQ(store_->stringUserMappingPath().string(),
              store_.userLibrary() + "/Preferences/com.moxel.mappingsV2.plist");
    EXPECT_EQ(store_->exportedCommandsBaseDirPath().string(),
              store_.userLibrary() + "/Preferences/Moxel/Applications");
}

TEST_F(Store, URLsAreThoseOfThePaths) {
    EXPECT_EQ(store_->urlAppCommandsPath().string(), "file://" + store_->stringAppCommandsPath().string());
    EXPECT_EQ(store_->urlDefaultPath().string(), "file://" + store_->stringDefaultPath().string());
    EXPECT_EQ(store_->urlUserMappingPath().string(), "file://" + store_->stringUserMappingPath().string());
}

TEST_F(Store, URLsEscapeWhatMayNotStandInThem) {
    const test::EnvironmentVariable library("XDG_CONFIG_HOME", "/Library of Jürgen/50%?#[x]");
    EXPECT_EQ(store_->urlUserMappingPath().string(), "file:///Library%20of%20J%C3%BCrgen/50%25%3F%23%5Bx%5D"
                                                     "/Preferences/com.moxel.mappingsV2.plist");
}

TEST_F(Store, MappingsAreReadAnewAtEachCallAndCommandsOnce) {
    EXPECT_FALSE(store_->defaultMapping());
    EXPECT_FALSE(store_->userMapping());
    for (const int version : {1, 2}) {
        const Dictionary list{{"version", version}};
        store_.writeList(store_->stringDefaultPath().view(), list);
        store_.writeList(store_->stringUserMappingPath().view(), list, PropertyListFormat::binary);
        store_.writeList(store_.defaultCommandsPath(), list);
        EXPECT_EQ(store_->defaultMapping()["version"].int64Value(), version);
        EXPECT_EQ(store_->userMapping()["version"].int64Value(), version);
    }
    EXPECT_EQ(ExactText::of(store_->defaultCommands()), R"({"a": "b"})");
    EXPECT_EQ(store_->defaultCommands().node(), store_->dictAppCommands().node());
}

TEST_F(Store, ShippedDefaultsAreReadAndHoldWhatTheLookupsLookFor) {
    const test::EnvironmentVariable data("XDG_DATA_DIRS", MOXEL_DATA_FOLDER);
    const Dictionary commands = store_->defaultCommands()[kMxKeyAppCommands].asDictionary();
    EXPECT_EQ(commands[kMxKeyActiveSetID].asString(), String("Default"));
    EXPECT_EQ(commands["Default"].asDictionary()["type"].asString(), String(kMxKeyActionSet));
    uint16_t finds = 0;
    const Dictionary found =
        store_->dictionaryForSearchStringFromDict("UNDO", store_->defaultCommands(), true, false, &finds);
    EXPECT_EQ(finds, 1);
    EXPECT_EQ(found[kMxKeyAppCommands]
                  .asDictionary()["Default"]
                  .asDictionary()["keyboard"]
                  .asDictionary()["keyboard.undo"]
                  .asDictionary()["type"]
                  .asString(),
              String("action"));

    const Dictionary settings =
        store_->defaultMapping()[kMxKeySettings].asDictionary()["Default"].asDictionary();
    const Dictionary mappings = settings[kMxKeyMappings].asDictionary();
    EXPECT_FALSE(mappings.empty());
    for (const auto &[key, mapping] : mappings) {
        const Dictionary set =
            commands[mapping.asDictionary()[kMxKeyCmdSetID].asString().view()].asDictionary();
        const String label = mapping.asDictionary()[kMxKeyLabel].asString();
        const Dictionary action = store_->dictionaryForSearchStringFromDict(label, set, true, true, &finds);
        EXPECT_EQ(action["id"].asString(), mapping.asDictionary()[kMxKeyCommand].asString()) << key.string();
    }
}

// ---------------------------------------------------------------------------------------------- Reading

TEST_F(Store, EveryContainerOfAFileCanBeChanged) {
    for (const auto format : {PropertyListFormat::xml, PropertyListFormat::binary}) {
        const std::string path =
            store_.writeList(store_.outside("list"),
                             Dictionary{{"set", Dictionary{{"list", Array{Dictionary{{"a", 1}}}}}}}, format);
        auto root = mxMutableDictWithContentsOfFile(path).asMutableDictionary();
        ASSERT_TRUE(root);
        auto list = root["set"].asDictionary()["list"].asMutableArray();
        ASSERT_TRUE(list);
        list.append("new");
        auto inner = list[0].asMutableDictionary();
        ASSERT_TRUE(inner);
        inner.set("b", 2);
        EXPECT_EQ(ExactText::of(root), R"({"set": {"list": [{"a": 1, "b": 2}, "new"]}})");
    }
}

TEST_F(Store, ContainersThatAFileSharesAreChangedOneByOne) {
    const Value shared = Dictionary{{"a", 1}};
    const std::string path =
        store_.writeList(store_.outside("list"), Dictionary{{"first", shared}, {"second", shared}},
                         PropertyListFormat::binary);
    const auto root = mxMutableDictWithContentsOfFile(path).asMutableDictionary();
    auto first = root["first"].asMutableDictionary();
    first.set("b", 2);
    EXPECT_EQ(ExactText::of(root), R"({"first": {"a": 1, "b": 2}, "second": {"a": 1}})");
}

TEST_F(Store, FileIsReadWhateverItsRootIs) {
    EXPECT_EQ(ExactText::of(mxMutableDictWithContentsOfFile(store_.write(store_.outside("a"), "(x, y)"))),
              R"(["x", "y"])");
    EXPECT_EQ(ExactText::of(mxMutableDictWithContentsOfFile(store_.write(store_.outside("b"), "\"text\""))),
              R"("text")");
}

TEST_F(Store, UnreadableFilesAreNull) {
    EXPECT_FALSE(mxMutableDictWithContentsOfFile(nullptr));
    EXPECT_FALSE(mxMutableDictWithContentsOfFile(""));
    EXPECT_FALSE(mxMutableDictWithContentsOfFile(store_.outside("missing")));
    EXPECT_FALSE(mxMutableDictWithContentsOfFile(store_.userLibrary()));
    EXPECT_FALSE(mxMutableDictWithContentsOfFile(store_.write(store_.outside("broken"), "{a = ")));
    const std::string path = store_.write(store_.outside("zero"), "{a = b;}");
    EXPECT_FALSE(mxMutableDictWithContentsOfFile(String(path + std::string("\0x", 2))));
    ASSERT_EQ(::mkfifo(store_.outside("pipe").c_str(), 0600), 0);
    EXPECT_FALSE(mxMutableDictWithContentsOfFile(store_.outside("pipe")));
}

TEST_F(Store, LinksAreFollowedOnlyOutsideTheExportFolder) {
    const std::string target = store_.write(store_.outside("target"), "{a = b;}");
    fs::create_directories(store_.base());
    fs::create_symlink(target, store_->stringUserMappingPath().string());
    fs::create_symlink(target, store_.base("link.plist"));
    EXPECT_TRUE(store_->userMapping());
    EXPECT_FALSE(mxMutableDictWithContentsOfFile(store_.base("link.plist")));
}

// ---------------------------------------------------------------------- Export folders

TEST_F(Store, ExportFolderIsNamedAfterIdentifierAndName) {
    const String folder = store_->exportedCommandsDirPath(true, "org.example.Viewer", "Viewer 3D");
    EXPECT_EQ(folder.string(), store_.base("org.example.Viewer_Viewer 3D"));
    EXPECT_TRUE(fs::is_directory(store_.base("org.example.Viewer_Viewer 3D/imagedata")));
    EXPECT_EQ(store_->exportedCommandsDirPath(true, "org.example.Viewer", nullptr).string(),
              store_.base("org.example.Viewer"));
    EXPECT_TRUE(fs::is_directory(store_.base("org.example.Viewer/imagedata")));
    EXPECT_EQ(store_->exportedCommandsDirPath(true, "org.example.Viewer", "").string(),
              store_.base("org.example.Viewer_"));
}

TEST_F(Store, ExportFolderIsOnlyMadeWhenAskedFor) {
    EXPECT_FALSE(store_->exportedCommandsDirPath(false, "org.example.Viewer", "Viewer"));
    EXPECT_FALSE(fs::exists(store_.base()));
    EXPECT_TRUE(store_->exportedCommandsDirPath(true, "org.example.Viewer", "Viewer"));
    EXPECT_EQ(store_->exportedCommandsDirPath(false, "org.example.Viewer", "Viewer").string(),
              store_.base("org.example.Viewer_Viewer"));
}

TEST_F(Store, ExportFolderOfNoIdentifierIsNull) {
    EXPECT_FALSE(store_->exportedCommandsDirPath(true, nullptr, "Viewer"));
    EXPECT_FALSE(fs::exists(store_.base()));
}

TEST_F(Store, ExistingExportFolderIsReturnedWithoutMakingItsImageFolder) {
    fs::create_directories(store_.base("org.example.Viewer_Viewer"));
    EXPECT_EQ(store_->exportedCommandsDirPath(true, "org.example.Viewer", "Viewer").string(),
              store_.base("org.example.Viewer_Viewer"));
    EXPECT_FALSE(fs::exists(store_.base("org.example.Viewer_Viewer/imagedata")));
}

TEST_F(Store, FileInPlaceOfTheExportFolderIsReturnedToo) {
    store_.write(store_.base("org.example.Viewer"));
    EXPECT_EQ(store_->exportedCommandsDirPath(true, "org.example.Viewer", nullptr).string(),
              store_.base("org.example.Viewer"));
}

TEST_F(Store, ExportFolderThatCannotBeMadeIsLogged) {
    store_.write(store_.userLibrary() + "/Preferences/Moxel", "in the way");
    const CapturedLog log;
    EXPECT_FALSE(store_->exportedCommandsDirPath(true, "org.example.Viewer", "Viewer"));
    EXPECT_THAT(
        log.lines(),
        ElementsAre("-[MxlPlistDictionaries exportedCommandsDirPath:withID:andName:], Error creating main "
                    "sync folder " +
                    store_.base("org.example.Viewer_Viewer") + ". Error: Cannot make " + store_.base() +
                    ": Not a directory "));
}

const ChildProgram fullDisk("fullDisk", [] {
    test::PlistStore store;
    fs::create_directories(store.base());
    // One file beside the root: the export folder.
    if (::mount("none", store.base().c_str(), "tmpfs", 0, "nr_inodes=2") != 0)
        ChildProgram::skip("cannot mount a file system");
    {
        const CapturedLog log;
        EXPECT_EQ(store->exportedCommandsDirPath(true, "org.example.Viewer", nullptr).string(),
                  store.base("org.example.Viewer"));
        EXPECT_THAT(
            log.lines(),
            ElementsAre("-[MxlPlistDictionaries exportedCommandsDirPath:withID:andName:], Error creating "
                        "main sync folder " +
                        store.base("org.example.Viewer/imagedata") + ". Error: Cannot make the folder " +
                        store.base("org.example.Viewer/imagedata") + ": No space left on device "));
    }
    ::umount(store.base().c_str());
});
TEST_F(Store, ImageFolderThatCannotBeMadeIsLoggedAndTheExportFolderReturned) {
    if (!test::canMakeNamespaces())
        GTEST_SKIP() << "no user namespaces here";
    fullDisk.run({}, ChildProgram::Place::ownNamespaces);
}

TEST_F(Store, NamesThatLeadElsewhereHaveNoExportFolder) {
    fs::create_directories(store_.base());
    fs::create_directories(store_.base("../secret"));
    const struct {
        const char *identifier;
        const char *name;
    } cases[] = {{"../secret", nullptr}, {"..", nullptr},        {".", nullptr},    {"", nullptr},
                 {"a/b", nullptr},       {"/tmp", nullptr},      {"a", "/../../x"}, {"a", "b/c"},
                 {"..", "/../x"},        {"org.example/..", "x"}};
    for (const auto &[identifier, name] : cases) {
        for (const bool create : {false, true})
            EXPECT_FALSE(store_->exportedCommandsDirPath(create, identifier, name)) << identifier;
    }
    EXPECT_FALSE(store_->exportedCommandsDirPath(true, std::string_view("a\0b", 3), nullptr));
    EXPECT_TRUE(fs::is_empty(store_.base()));
}

TEST_F(Store, RefusedNamesAreLogged) {
    const CapturedLog log;
    EXPECT_FALSE(store_->exportedCommandsDirPath(false, "a/b", "c"));
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_FALSE(store_->exportedCommandsDirPath(true, "a/b", "c"));
    EXPECT_THAT(
        log.lines(),
        ElementsAre("-[MxlPlistDictionaries exportedCommandsDirPath:withID:andName:], Error creating main "
                    "sync folder " +
                    store_.base("a/b_c") + ". Error: The name cannot be that of a folder "));
}

TEST_F(Store, HarmlessDotsAndEveryScriptAreNames) {
    for (const auto *name :
         {"Wait...", "..x", "a..b", "Просмотр", "ビューア", "عارض", "查看器", "דפדפן", "👓"}) {
        const std::string folder = store_.base("org.example_" + std::string(name));
        EXPECT_EQ(store_->exportedCommandsDirPath(true, "org.example", name).string(), folder);
        EXPECT_TRUE(fs::is_directory(folder));
    }
}

TEST_F(Store, LinkInPlaceOfAnExportFolderIsNeverFilled) {
    fs::create_directories(store_.base());
    fs::create_directory_symlink(store_.outside("missing"), store_.base("org.example.Link"));
    EXPECT_FALSE(store_->exportedCommandsDirPath(true, "org.example.Link", nullptr));
    EXPECT_FALSE(fs::exists(store_.outside("missing")));
}

const ChildProgram homeless("homeless", [] {
    test::mountEmpty("/run");
    std::ofstream("/run/passwd") << "root:x:0:0:root:nowhere:/bin/sh\n";
    if (::mount("/run/passwd", "/etc/passwd", nullptr, MS_BIND, nullptr) != 0)
        ChildProgram::skip("cannot mount over /etc/passwd");
    test::PlistStore store;
    const test::EnvironmentVariable library("XDG_CONFIG_HOME", std::nullopt);
    const test::EnvironmentVariable home("HOME", std::nullopt);
    const LoginTimeOverride login(LoginTime::max());
    EXPECT_FALSE(store->exportedCommandsBaseDirPath());
    EXPECT_FALSE(store->stringUserMappingPath());
    EXPECT_FALSE(store->urlUserMappingPath());
    EXPECT_FALSE(store->userMapping());
    EXPECT_FALSE(store->exportedCommandsDirPath(true, "org.example.Viewer", nullptr));
    EXPECT_FALSE(store->getSyncedApplicationsFilePath(true));
    EXPECT_FALSE(
        store->appExportedDictUsingBundleID("org.example.Viewer", "Viewer", nullptr, "commandsfile"));
    store->cleanupExportFiles();
    EXPECT_TRUE(store->defaultCommands());
});
TEST_F(Store, WithoutALibraryFolderThereAreNoExports) {
    if (!test::canMakeNamespaces())
        GTEST_SKIP() << "no user namespaces here";
    homeless.run({}, ChildProgram::Place::ownNamespaces);
}

// ---------------------------------------------------------------------------------------------- The index

TEST_F(Store, IndexPathIsReturnedWhetherOrNotTheFileExists) {
    EXPECT_EQ(store_->getSyncedApplicationsFilePath(false).string(), store_.indexPath());
    EXPECT_FALSE(fs::exists(store_.base()));
}

TEST_F(Store, IndexIsMadeEmptyWhenAskedFor) {
    EXPECT_EQ(store_->getSyncedApplicationsFilePath(true).string(), store_.indexPath());
    EXPECT_TRUE(fs::is_regular_file(store_.indexPath()));
    EXPECT_EQ(fs::file_size(store_.indexPath()), 0u);
}

TEST_F(Store, IndexThatExistsStaysAsItIs) {
    store_.write(store_.indexPath(), "{a = b;}");
    EXPECT_EQ(store_->getSyncedApplicationsFilePath(true).string(), store_.indexPath());
    EXPECT_EQ(fs::file_size(store_.indexPath()), 8u);
}

TEST_F(Store, IndexWhoseFolderCannotBeMadeIsLoggedWithoutItsPath) {
    store_.write(store_.userLibrary() + "/Preferences/Moxel", "in the way");
    const CapturedLog log;
    EXPECT_FALSE(store_->getSyncedApplicationsFilePath(true));
    EXPECT_THAT(log.lines(),
                ElementsAre("-[MxlPlistDictionaries getSyncedApplicationsFilePath:], Error creating "
                            "(null). Error: Cannot make " +
                            store_.base() + ": Not a directory "));
}

TEST_F(Store, LinkInPlaceOfTheIndexIsNotFollowed) {
    fs::create_directories(store_.base());
    fs::create_symlink(store_.outside("missing"), store_.indexPath());
    EXPECT_EQ(store_->getSyncedApplicationsFilePath(true).string(), store_.indexPath());
    EXPECT_FALSE(fs::exists(store_.outside("missing")));
}

// ---------------------------------------------------------------------------------------------- Clean-up

LoginTime inSeconds(int64_t seconds) { return LoginTime(std::chrono::seconds(seconds)); }

/// When the file was created, in seconds since 1970, as the store counts.
double creationTime(const std::string &path) {
    struct statx status {};
    EXPECT_EQ(::statx(AT_FDCWD, path.c_str(), 0, STATX_BTIME | STATX_CTIME, &status), 0);
    const auto &time = (status.stx_mask & STATX_BTIME) != 0 ? status.stx_btime : status.stx_ctime;
    return double(time.tv_sec) + double(time.tv_nsec) / 1e9;
}

TEST_F(Store, LoginTimeIsADateInWholeSeconds) {
    const LoginTimeOverride login(inSeconds(978'307'200 + 100));
    EXPECT_EQ(store_->getLoginTime(), Date{100});
    const LoginTimeOverride unknown(std::nullopt);
    EXPECT_EQ(store_->getLoginTime(), std::nullopt);
}

TEST_F(Store, CleanUpRemovesWhatWasCreatedBeforeTheLogin) {
    for (const auto *path : {"old.plist", "org.example.Old/imagedata/a.imgdata", "SyncApplications.plist"})
        store_.write(store_.base(path));
    const LoginTimeOverride login(
        inSeconds(int64_t(creationTime(store_.base("SyncApplications.plist"))) + 1));
    store_->cleanupExportFiles();
    EXPECT_TRUE(fs::is_empty(store_.base()));
}

TEST_F(Store, CleanUpKeepsWhatWasCreatedAtOrAfterTheLogin) {
    const std::string path = store_.write(store_.base("new.plist"));
    const LoginTimeOverride login(inSeconds(int64_t(std::floor(creationTime(path)))));
    store_->cleanupExportFiles();
    EXPECT_TRUE(fs::exists(path));
}

TEST_F(Store, CleanUpTakesLoginTimesBeyondAllMeasure) {
    const std::string path = store_.write(store_.base("a.plist"));
    {
        const LoginTimeOverride login(LoginTime::min());
        store_->cleanupExportFiles();
        EXPECT_TRUE(fs::exists(path));
    }
    const LoginTimeOverride login(LoginTime::max());
    store_->cleanupExportFiles();
    EXPECT_FALSE(fs::exists(path));
}

TEST_F(Store, CleanUpRemovesNothingWhenTheLoginIsUnknown) {
    const std::string path = store_.write(store_.base("old.plist"));
    const LoginTimeOverride unknown(std::nullopt);
    store_->cleanupExportFiles();
    EXPECT_TRUE(fs::exists(path));
}

TEST_F(Store, CleanUpKeepsTheBaseFolderAndWhatLiesBesideIt) {
    store_.write(store_.base("old.plist"));
    const std::string mapping = store_.write(store_->stringUserMappingPath().view());
    const LoginTimeOverride login(inSeconds(int64_t(creationTime(mapping)) + 10));
    store_->cleanupExportFiles();
    EXPECT_TRUE(fs::is_empty(store_.base()));
    EXPECT_TRUE(fs::exists(mapping));
}

TEST_F(Store, CleanUpWithoutABaseFolderIsNoError) {
    const LoginTimeOverride login(inSeconds(1'000'000'000'000));
    store_->cleanupExportFiles();
    EXPECT_FALSE(fs::exists(store_.base()));
}

} // namespace
} // namespace moxel
