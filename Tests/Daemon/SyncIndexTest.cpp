// The index of synchronised applications: what stands in it, in which order, and how it outlives mishaps.
#include "Moxel Daemon/Exports/SyncIndex.h"
#include "Moxel Daemon/Archive/PlainPropertyList.h"
#include "Support/CapturedLog.h"
#include "Support/Python.h"
#include "Support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace moxel::daemon {
namespace {

class DaemonSyncIndex : public ::testing::Test {
  protected:
    static ApplicationRecord application(const std::string &bundleID, const std::string &name,
                                         uint32_t signature = 0x54657374) {
        ApplicationRecord record;
        record.bundleID = bundleID;
        record.name = name;
        record.clientName = name + " client";
        record.applicationFileName = name + "-bin";
        record.signature = signature;
        return record;
    }
    void note(const ApplicationRecord &record, const std::string &key, const std::string &path) const {
        const Result<void> noted = index.note(record, key, path);
        EXPECT_TRUE(noted.ok()) << noted.error().message;
    }
    [[nodiscard]] Dictionary content() const {
        const Result<Value> value = readPropertyList(*folder.readOwn("SyncApplications.plist"));
        return value.ok() && value->as<Dictionary>() ? *value->as<Dictionary>() : Dictionary();
    }
    static std::vector<std::string> keys(const Dictionary &dictionary) {
        std::vector<std::string> result;
        for (const Entry &entry : dictionary.entries())
            result.push_back(entry.key);
        return result;
    }
    using Keys = std::vector<std::string>;

    test::TemporaryFolder scratch;
    ExportFolder folder{scratch.path()};
    SyncIndex index{folder};
    test::CapturedLog log;
};

TEST_F(DaemonSyncIndex, HoldsBundlesThenClientsThenNamesAndPaths) {
    note(application("com.example.app", "Viewer"), "commandsfile", "/c");
    note(application("com.example.app", "Viewer"), "imagesfile", "/i");
    note(application("com.example.app", "Viewer"), "settingsfile", "/s");
    note(application("com.example.app", "Viewer"), "commandsfile", "/c2");
    EXPECT_EQ(content(),
              (Dictionary{{"com.example.app",
                           Dictionary{{"Viewer_54657374", Dictionary{{"clientname", "Viewer client"},
                                                                     {"name", "Viewer"},
                                                                     {"processname", "Viewer-bin"},
                                                                     {"commandsfile", "/c2"},
                                                                     {"imagesfile", "/i"},
                                                                     {"settingsfile", "/s"}}}}}}));
}

TEST_F(DaemonSyncIndex, IsAPropertyListToOthers) {
    if (!test::hasPython())
        GTEST_SKIP() << "no python3";
    note(application("com.example.app", "Viewer"), "commandsfile", "/c");
    const test::SubprocessResult read = test::runPython(
        "import plistlib, sys\n"
        "print(plistlib.load(open(sys.argv[1], 'rb'))['com.example.app']['Viewer_54657374']['commandsfile'])",
        {}, {scratch.path("SyncApplications.plist")});
    EXPECT_EQ(read.output, "/c\n");
}

TEST_F(DaemonSyncIndex, ShorterIdentifiersStandFirstSoThatTheExactOneIsFound) {
    for (const char *bundle : {"com.example.app.helper", "com.example.app", "com.example.application"})
        note(application(bundle, "Viewer"), "commandsfile", "/c");
    EXPECT_EQ(keys(content()),
              (Keys{"com.example.app", "com.example.app.helper", "com.example.application"}));
}

TEST_F(DaemonSyncIndex, TheClientThatExportedLastStandsFirst) {
    note(application("com.example.app", "One"), "commandsfile", "/1");
    note(application("com.example.app", "Two"), "commandsfile", "/2");
    note(application("com.example.app", "Two", 7), "commandsfile", "/3");
    note(application("com.example.app", "One"), "imagesfile", "/4");
    EXPECT_EQ(keys(*content().find("com.example.app")->as<Dictionary>()),
              (Keys{"One_54657374", "Two_00000007", "Two_54657374"}));
}

TEST_F(DaemonSyncIndex, ClientsOfABundleAreLimited) {
    for (size_t i = 0; i <= SyncIndex::clientLimit; ++i)
        note(application("com.example.app", std::to_string(i)), "commandsfile", "/c");
    const Keys clients = keys(*content().find("com.example.app")->as<Dictionary>());
    EXPECT_EQ(clients.size(), SyncIndex::clientLimit);
    EXPECT_EQ(clients.front(), std::to_string(SyncIndex::clientLimit) + "_54657374");
}

TEST_F(DaemonSyncIndex, KeepsWhatItDoesNotKnow) {
    scratch.write(
        "SyncApplications.plist",
        "<plist><dict><key>other.bundle.of.someone</key><dict><key>x</key><date>2001-01-01T00:00:01Z</date></"
        "dict>"
        "<key>com.example.app</key><dict><key>Viewer_54657374</key><dict><key>extra</key><real>1.5</real>"
        "</dict></dict></dict></plist>");
    note(application("com.example.app", "Viewer"), "commandsfile", "/c");
    EXPECT_EQ(*content().find("other.bundle.of.someone"), Value(Dictionary{{"x", dateValue(1)}}));
    EXPECT_EQ(*content().find("com.example.app")->as<Dictionary>()->find("Viewer_54657374"),
              Value(Dictionary{{"extra", 1.5},
                               {"clientname", "Viewer client"},
                               {"name", "Viewer"},
                               {"processname", "Viewer-bin"},
                               {"commandsfile", "/c"}}));
}

TEST_F(DaemonSyncIndex, AnEmptyFileIsAnEmptyIndex) {
    scratch.write("SyncApplications.plist", "");
    note(application("com.example.app", "Viewer"), "commandsfile", "/c");
    EXPECT_EQ(content().size(), 1U);
    EXPECT_FALSE(std::filesystem::exists(scratch.path("SyncApplications.damaged.plist")));
}

TEST_F(DaemonSyncIndex, ADamagedFileIsPutAside) {
    for (const char *damaged : {"nonsense", "<plist><array/></plist>"}) {
        scratch.write("SyncApplications.plist", damaged);
        note(application("com.example.app", "Viewer"), "commandsfile", "/c");
        EXPECT_EQ(content().size(), 1U);
        std::ifstream aside(scratch.path("SyncApplications.damaged.plist"));
        EXPECT_EQ(std::string(std::istreambuf_iterator<char>(aside), {}), damaged);
    }
    EXPECT_EQ(
        log.countStarting("Error: SyncApplications.plist is put aside as SyncApplications.damaged.plist: "),
        2U);
}

TEST_F(DaemonSyncIndex, ApplicationsWithoutABundleIdentifierAreNotNoted) {
    ApplicationRecord record = application("", "Viewer");
    record.bundleID.reset();
    EXPECT_FALSE(index.note(record, "commandsfile", "/c").ok());
    EXPECT_FALSE(std::filesystem::exists(scratch.path("SyncApplications.plist")));
}

TEST_F(DaemonSyncIndex, NamesThatWereNotToldAreEmpty) {
    ApplicationRecord record;
    record.bundleID = "com.example.app";
    note(record, "commandsfile", "/c");
    EXPECT_EQ(
        *content().find("com.example.app"),
        Value(Dictionary{
            {"_00000000",
             Dictionary{{"clientname", ""}, {"name", ""}, {"processname", ""}, {"commandsfile", "/c"}}}}));
}

} // namespace
} // namespace moxel::daemon
