// Files in the export base folder: what is written, what is refused, and what a crash leaves.
#include "Export/ExportFile.h"
#include "Export/PropertyListBytes.h"
#include "Support/DeepValue.h"
#include "Support/ExportFolders.h"
#include "Support/PropertyLists.h"
#include "Support/StoppedProcess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sys/stat.h>
#include <thread>

namespace moxel {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
namespace fs = std::filesystem;

std::string contentOf(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

mode_t modeOf(const std::string &path) {
    struct stat status {};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
}

std::vector<std::string> namesIn(const std::string &folder) {
    std::vector<std::string> names;
    for (const auto &entry : fs::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    std::ranges::sort(names);
    return names;
}

class ExportFile : public ::testing::Test {
  protected:
    ExportFile() { EXPECT_TRUE(makeExportFolder(folder())); }

    [[nodiscard]] std::string folder() const { return folders_.base("org.example.Viewer"); }
    [[nodiscard]] std::string file() const { return folder() + "/a.plist"; }
    static Result<void> write(const std::string &path, std::string_view content) {
        return writeExportFile(path, test::asBytes(content));
    }
    static std::string read(const std::string &path) {
        const auto bytes = readExportFile(path);
        return bytes ? std::string(bytes->begin(), bytes->end()) : "error: " + bytes.error().message;
    }

    test::ExportFolders folders_;
};

TEST_F(ExportFile, IsWrittenAndReadBack) {
    ASSERT_TRUE(write(file(), "old"));
    ASSERT_TRUE(write(file(), "new"));
    EXPECT_EQ(read(file()), "new");
    EXPECT_THAT(namesIn(folder()), ElementsAre("a.plist"));
}

TEST_F(ExportFile, MayBeEmptyAndMayBeLarge) {
    ASSERT_TRUE(write(file(), ""));
    EXPECT_EQ(read(file()), "");
    const std::string large(5'000'000, 'x');
    ASSERT_TRUE(write(file(), large));
    EXPECT_EQ(read(file()), large);
}

TEST_F(ExportFile, BelongsToItsOwnerAloneWhateverTheProcessGivesNewFiles) {
    const mode_t before = ::umask(0);
    ASSERT_TRUE(makeExportFolder(folders_.base("org.example.Other/imagedata")));
    ASSERT_TRUE(write(folders_.base("org.example.Other/a.plist"), "a"));
    ::umask(0277);
    EXPECT_TRUE(write(folders_.base("org.example.Other/b.plist"), "b"));
    ::umask(before);
    EXPECT_EQ(modeOf(folders_.base("org.example.Other/a.plist")), 0600u);
    EXPECT_EQ(modeOf(folders_.base("org.example.Other/b.plist")), 0600u);
    for (const auto &path : {folders_.base("org.example.Other/imagedata"), folders_.base("org.example.Other"),
                             folders_.base(), folders_.userLibrary()})
        EXPECT_EQ(modeOf(path), 0700u) << path;
}

TEST_F(ExportFile, FoldersAreMadeAgainWithoutHarm) {
    ASSERT_TRUE(write(file(), "stays"));
    EXPECT_TRUE(makeExportFolder(folder()));
    EXPECT_TRUE(makeExportFolder(folders_.base()));
    EXPECT_EQ(read(file()), "stays");
}

TEST_F(ExportFile, AFileInTheWayOfAFolderIsAnError) {
    ASSERT_TRUE(write(file(), "stays"));
    EXPECT_FALSE(makeExportFolder(file()));
    EXPECT_FALSE(makeExportFolder(file() + "/imagedata"));
    EXPECT_EQ(read(file()), "stays");
}

TEST_F(ExportFile, AFolderInTheWayOfAFileIsAnErrorAndLeavesNothingBehind) {
    ASSERT_TRUE(makeExportFolder(file()));
    const auto written = write(file(), "x");
    ASSERT_FALSE(written);
    EXPECT_EQ(written.error().code, EISDIR);
    EXPECT_THAT(namesIn(folder()), ElementsAre("a.plist"));
    EXPECT_FALSE(readExportFile(file()));
}

TEST_F(ExportFile, MissingFilesAndFoldersAreTold) {
    const auto missing = readExportFile(file());
    ASSERT_FALSE(missing);
    EXPECT_EQ(missing.error().code, ENOENT);
    const auto written = write(folders_.base("nowhere/a.plist"), "x");
    ASSERT_FALSE(written);
    EXPECT_EQ(written.error().code, ENOENT);
}

TEST_F(ExportFile, OnlyLiesInTheBaseFolder) {
    folders_.write(folders_.outside("a.plist"), "outside");
    for (const auto &path : {folders_.outside("a.plist"), folders_.base() + "2/a.plist", std::string(),
                             std::string("a.plist"), folders_.userLibrary()}) {
        EXPECT_FALSE(liesInExportFolder(path)) << path;
        EXPECT_FALSE(write(path, "x")) << path;
        EXPECT_FALSE(readExportFile(path)) << path;
        EXPECT_FALSE(makeExportFolder(path)) << path;
        EXPECT_FALSE(createEmptyExportFile(path)) << path;
    }
    EXPECT_EQ(contentOf(folders_.outside("a.plist")), "outside");
    EXPECT_FALSE(fs::exists(folders_.base() + "2"));
}

TEST_F(ExportFile, PathsThatLeadUpwardsOrHoldNothingAreRefused) {
    folders_.write(folders_.base("../secret"), "secret");
    for (const auto &path :
         {folders_.base("../secret"), folders_.base("org.example.Viewer/../../secret"),
          folders_.base("org.example.Viewer/.."), folders_.base(".."), folders_.base("./a.plist"),
          folders_.base("org.example.Viewer//a.plist"), folders_.base("org.example.Viewer/"),
          folders_.base(""), folders_.base(std::string_view("org.example.Viewer/a\0b", 22))}) {
        EXPECT_FALSE(write(path, "x")) << path;
        EXPECT_FALSE(readExportFile(path)) << path;
        EXPECT_FALSE(createEmptyExportFile(path)) << path;
        EXPECT_FALSE(path != folders_.base("") && makeExportFolder(path)) << path;
    }
    EXPECT_EQ(contentOf(folders_.base("../secret")), "secret");
    EXPECT_THAT(namesIn(folder()), IsEmpty());
    EXPECT_FALSE(write(folders_.base(), "x"));
}

TEST_F(ExportFile, NamesOfFilesAreToldFromPaths) {
    for (const auto *name :
         {"a", "org.example.Viewer", "..a", "a..b", "a..", "...", "Größe", "ビューア", " "})
        EXPECT_TRUE(isFileName(name)) << name;
    for (const auto *name : {"", ".", "..", "/", "a/b", "../a", "a/", "/a"})
        EXPECT_FALSE(isFileName(name)) << name;
    EXPECT_FALSE(isFileName(std::string_view("a\0b", 3)));
}

TEST_F(ExportFile, ALinkInPlaceOfTheFileIsReplacedAndNotFollowed) {
    const std::string target = folders_.write(folders_.outside("target"), "precious");
    fs::create_symlink(target, file());
    ASSERT_TRUE(write(file(), "new"));
    EXPECT_EQ(contentOf(target), "precious");
    EXPECT_FALSE(fs::is_symlink(file()));
    EXPECT_EQ(read(file()), "new");
}

TEST_F(ExportFile, ALinkInPlaceOfTheFileIsNotRead) {
    const std::string target = folders_.write(folders_.outside("target"), "secret");
    fs::create_symlink(target, file());
    const auto bytes = readExportFile(file());
    ASSERT_FALSE(bytes);
    EXPECT_EQ(bytes.error().code, ELOOP);
}

TEST_F(ExportFile, ALinkInPlaceOfAFolderIsNotFollowed) {
    fs::create_directories(folders_.outside("folder"));
    folders_.write(folders_.outside("folder/a.plist"), "secret");
    fs::create_symlink(folders_.outside("folder"), folders_.base("org.example.Link"));
    EXPECT_FALSE(write(folders_.base("org.example.Link/b.plist"), "x"));
    EXPECT_FALSE(readExportFile(folders_.base("org.example.Link/a.plist")));
    EXPECT_FALSE(makeExportFolder(folders_.base("org.example.Link")));
    EXPECT_FALSE(makeExportFolder(folders_.base("org.example.Link/imagedata")));
    EXPECT_FALSE(createEmptyExportFile(folders_.base("org.example.Link/c.plist")));
    EXPECT_THAT(namesIn(folders_.outside("folder")), ElementsAre("a.plist"));
}

TEST_F(ExportFile, ALinkThatLeadsToTheBaseFolderIsFollowed) {
    const std::string preferences = folders_.userLibrary() + "/Preferences";
    fs::rename(preferences, folders_.outside("moved"));
    fs::create_symlink(folders_.outside("moved"), preferences);
    ASSERT_TRUE(write(file(), "x"));
    EXPECT_EQ(contentOf(folders_.outside("moved/Moxel/Applications/org.example.Viewer/a.plist")), "x");
}

TEST_F(ExportFile, PipesAndFoldersAreNotRead) {
    ASSERT_EQ(::mkfifo(file().c_str(), 0600), 0);
    EXPECT_FALSE(readExportFile(file())); // at once
    EXPECT_FALSE(readExportFile(folder()));
    EXPECT_TRUE(write(file(), "new"));
    EXPECT_EQ(read(file()), "new");
}

TEST_F(ExportFile, EmptyOneNeverReplacesAnything) {
    ASSERT_TRUE(createEmptyExportFile(file()));
    EXPECT_EQ(read(file()), "");
    ASSERT_TRUE(write(file(), "content"));
    EXPECT_TRUE(createEmptyExportFile(file()));
    EXPECT_EQ(read(file()), "content");
}

TEST_F(ExportFile, CrashAtAnyMomentLeavesTheOldOrTheNewWhole) {
    const std::string oldContent(100'000, 'o');
    const std::string newContent(200'000, 'n');
    int sawOld = 0;
    int sawNew = 0;
    int sawLeftover = 0;
    for (int moment = 0;; ++moment) {
        ASSERT_TRUE(write(file(), oldContent));
        ASSERT_THAT(namesIn(folder()), ElementsAre("a.plist")); // the leftover of the last crash is gone
        const auto outcome = test::runUntilSystemCall(moment, [&] { (void)write(file(), newContent); });
        if (outcome == test::Outcome::cannotTrace)
            GTEST_SKIP() << "processes cannot be traced here";
        const std::string content = read(file());
        ASSERT_TRUE(content == oldContent || content == newContent) << "moment " << moment;
        ++(content == oldContent ? sawOld : sawNew);
        sawLeftover += namesIn(folder()).size() > 1 ? 1 : 0;
        if (outcome == test::Outcome::ended)
            break;
    }
    EXPECT_GT(sawOld, 1);
    EXPECT_GT(sawNew, 1);
    EXPECT_GT(sawLeftover, 1);
}

TEST_F(ExportFile, ReadersSeeWholeFilesWhileManyWrite) {
    const auto content = [](size_t writer) { return std::string(50'000 + writer, char('a' + writer)); };
    ASSERT_TRUE(write(file(), content(0)));
    std::array<std::thread, 4> writers;
    std::atomic<size_t> running = writers.size();
    for (size_t i = 0; i < writers.size(); ++i)
        writers[i] = std::thread([&, i] {
            for (int round = 0; round < 50; ++round)
                EXPECT_TRUE(write(file(), content(i)));
            --running;
        });
    while (running > 0) {
        const std::string text = read(file());
        const size_t writer = text.size() - 50'000;
        EXPECT_TRUE(writer < writers.size() && text == content(writer)) << text.size() << " bytes";
    }
    for (auto &writer : writers)
        writer.join();
    EXPECT_THAT(namesIn(folder()), ElementsAre("a.plist"));
}

TEST_F(ExportFile, DictionaryIsWrittenAsXML) {
    ASSERT_TRUE(writeExportDictionary(file(), Dictionary{{"name", "ビューア"}, {"count", 7}}));
    const std::string text = read(file());
    EXPECT_THAT(text, HasSubstr("<?xml version=\"1.0\" encoding=\"UTF-8\"?>"));
    EXPECT_THAT(text, HasSubstr("<key>name</key>\n\t<string>ビューア</string>"));
    const auto dictionary = readExportDictionary(file());
    ASSERT_TRUE(dictionary) << dictionary.error().message;
    EXPECT_EQ(test::ExactText::of(*dictionary), "{\"name\": \"ビューア\", \"count\": 7}");
}

TEST_F(ExportFile, DictionaryThatXMLWouldMarIsWrittenInBinaryForm) {
    for (const Value &value : {Value(Date{1.5}), Value("a\x01"), Value(Array{Date{0.25}, "x"}),
                               Value(Dictionary{{"deep", Dictionary{{"date", Date{-0.5}}}}})}) {
        ASSERT_TRUE(writeExportDictionary(file(), Dictionary{{"value", value}}));
        EXPECT_TRUE(read(file()).starts_with("bplist00"));
        const auto dictionary = readExportDictionary(file());
        ASSERT_TRUE(dictionary) << dictionary.error().message;
        EXPECT_EQ(test::ExactText::of((*dictionary)["value"]), test::ExactText::of(value));
    }
    ASSERT_TRUE(writeExportDictionary(file(), Dictionary{{"value", Date{2.0}}}));
    EXPECT_TRUE(read(file()).starts_with("<?xml"));
}

TEST_F(ExportFile, DictionaryThatNoFormCanHoldLeavesTheOldFile) {
    ASSERT_TRUE(write(file(), "old"));
    EXPECT_FALSE(writeExportDictionary(file(), Dictionary{{"value", nullptr}}));
    EXPECT_EQ(read(file()), "old");
}

TEST_F(ExportFile, WhatIsNoDictionaryIsToldFromWhatIsMissing) {
    ASSERT_TRUE(write(file(), "(a, b)"));
    const auto array = readExportDictionary(file());
    ASSERT_FALSE(array);
    EXPECT_EQ(array.error().code, 0);
    ASSERT_TRUE(write(file(), ""));
    const auto empty = readExportDictionary(file());
    ASSERT_FALSE(empty);
    EXPECT_EQ(empty.error().code, 0);
    const auto missing = readExportDictionary(folder() + "/missing");
    ASSERT_FALSE(missing);
    EXPECT_EQ(missing.error().code, ENOENT);
}

TEST_F(ExportFile, DictionaryTooLargeToCopyIsToldFromWhatIsNoDictionary) {
    Value value = Dictionary{{"a", "b"}};
    for (int level = 0; level < 60; ++level)
        value = Dictionary{{"a", value}, {"b", value}};
    const auto bytes = writeBinaryPropertyList(value);
    ASSERT_TRUE(bytes);
    ASSERT_TRUE(writeExportFile(file(), bytes->bytes()));
    const auto dictionary = readExportDictionary(file());
    ASSERT_FALSE(dictionary);
    EXPECT_EQ(dictionary.error().code, EFBIG);
}

// ------------------------------------------------------------------------------------------ Forms of lists

TEST(LosslessPropertyList, IsBinaryForTheSakeOfFractionsOfASecond) {
    const auto whole = losslessPropertyList(Array{Date{1}, 0.5});
    ASSERT_TRUE(whole.ok());
    EXPECT_TRUE(whole->starts_with("<?xml"));
    const auto fractional = losslessPropertyList(Array{Dictionary{{"at", Array{Date{1.5}}}}});
    ASSERT_TRUE(fractional.ok());
    EXPECT_TRUE(fractional->starts_with("bplist00"));
}

TEST(LosslessPropertyList, SharedContainersAreLookedThroughOnce) {
    // The date is looked at last, after all that would be 2^60 containers if they were looked at each time.
    const auto list = losslessPropertyList(Array{Date{1.5}, test::doublingArrays(60)});
    ASSERT_TRUE(list.ok());
    EXPECT_TRUE(list->starts_with("bplist00"));
}

} // namespace
} // namespace moxel
