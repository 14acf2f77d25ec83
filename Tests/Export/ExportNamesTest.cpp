// What all export functions refuse: names, signatures and folders that would lead elsewhere.
#include "Export/ExportFunctions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace moxel {
namespace {

using test::client0;
using test::ExportFunctions;
using ::testing::IsEmpty;
namespace fs = std::filesystem;

/// Each of the five functions, with arguments that are as they should be.
std::vector<std::pair<const char *, std::function<int16_t()>>>
allFunctions(const MoxelCommandSyncNode_s &tree) {
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

} // namespace
} // namespace moxel
