// Settings that an application stores and reads: their files, requests, results and log lines.
#include "Export/ExportFunctions.h"
#include "Platform/FolderLock.h"
#include "Support/PlistJSON.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <future>
#include <string>
#include <vector>

namespace moxel {
namespace {

using test::client0;
using test::ExportFunctions;
using test::jsonFromPlistlib;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;
namespace fs = std::filesystem;

class SettingValues : public ExportFunctions {};

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

} // namespace
} // namespace moxel
