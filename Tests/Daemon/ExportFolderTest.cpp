// What may be read below the folder of exports, and how its own files are replaced.
#include "Moxel Daemon/Exports/ExportFolder.h"
#include "Moxel Daemon/Archive/PlainPropertyList.h"
#include "Support/EnvironmentVariable.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

namespace moxel::daemon {
namespace {

using ::testing::HasSubstr;

constexpr const char *list = "<plist><dict><key>a</key><string>b</string></dict></plist>";

class DaemonExportFolder : public ::testing::Test {
  protected:
    void SetUp() override {
        scratch.write("base/app/file.plist", list);
        scratch.write("outside/file.plist", list);
        scratch.write("base/file.plist", list);
    }
    [[nodiscard]] std::string errorFor(const std::string &path) const {
        const Result<Value> value = folder.read(path);
        return value.ok() ? "no error" : value.error().message;
    }

    test::TemporaryFolder scratch;
    ExportFolder folder{scratch.path("base")};
};

TEST_F(DaemonExportFolder, FilesOfApplicationsAreRead) {
    const Result<Value> value = folder.read(scratch.path("base/app/file.plist"));
    ASSERT_TRUE(value.ok()) << value.error().message;
    EXPECT_EQ(*value, Value(Dictionary{{"a", "b"}}));
    scratch.write("base/app/deeper/file.plist", list);
    EXPECT_TRUE(folder.read(scratch.path("base/app/deeper/file.plist")).ok());
}

TEST_F(DaemonExportFolder, PathsThatLeadElsewhereAreRefused) {
    const std::string base = scratch.path("base");
    for (const std::string &path :
         {scratch.path("outside/file.plist"), base + "/../outside/file.plist",
          base + "/app/../../outside/file.plist", base + "/app/../app/file.plist", base + "/./app/file.plist",
          base + "/app//file.plist", base + "/app/file.plist/", base + "//app/file.plist",
          base + "2/app/file.plist", base + "/file.plist", base, base + "/", std::string("app/file.plist"),
          std::string(), std::string("/etc/passwd"), base + "/app/file.plist" + std::string(1, '\0') + "x"})
        EXPECT_THAT(errorFor(path), HasSubstr("is refused")) << path;
}

TEST_F(DaemonExportFolder, RefusalsAreFitForALog) {
    EXPECT_THAT(errorFor("/tmp/\n\x1B[2J"), HasSubstr("/tmp/\\n\\x1b[2J is refused"));
}

TEST_F(DaemonExportFolder, SymbolicLinksAreNotFollowed) {
    std::filesystem::create_symlink(scratch.path("outside/file.plist"), scratch.path("base/app/link.plist"));
    std::filesystem::create_directory_symlink(scratch.path("outside"), scratch.path("base/linked"));
    EXPECT_THAT(errorFor(scratch.path("base/app/link.plist")), HasSubstr("Cannot open"));
    EXPECT_THAT(errorFor(scratch.path("base/linked/file.plist")), HasSubstr("Cannot open"));
}

TEST_F(DaemonExportFolder, OnlyRegularFilesAreRead) {
    ASSERT_EQ(::mkfifo(scratch.path("base/app/pipe").c_str(), 0600), 0);
    std::filesystem::create_directory(scratch.path("base/app/folder"));
    EXPECT_THAT(errorFor(scratch.path("base/app/pipe")), HasSubstr("is not a regular file"));
    EXPECT_THAT(errorFor(scratch.path("base/app/folder")), HasSubstr("is not a regular file"));
    EXPECT_THAT(errorFor(scratch.path("base/app/none")), HasSubstr("Cannot open"));
}

TEST_F(DaemonExportFolder, LongFilesAreNotRead) {
    std::filesystem::resize_file(scratch.path("base/app/file.plist"), propertyListSizeLimit + 1);
    EXPECT_THAT(errorFor(scratch.path("base/app/file.plist")), HasSubstr("is larger than 8388608 bytes"));
}

TEST_F(DaemonExportFolder, FilesThatAreNoPropertyListsAreNamed) {
    scratch.write("base/app/file.plist", "nonsense");
    EXPECT_THAT(errorFor(scratch.path("base/app/file.plist")),
                HasSubstr(scratch.path("base/app/file.plist") + ": not an XML property list"));
}

TEST_F(DaemonExportFolder, WithoutAFolderEverythingIsRefused) {
    const ExportFolder none{""};
    EXPECT_FALSE(none.read("/etc/passwd").ok());
    EXPECT_FALSE(none.readOwn("file.plist").ok());
    EXPECT_FALSE(none.replaceOwn("file.plist", {1}).ok());
}

TEST_F(DaemonExportFolder, OwnFilesAreReplacedInOneStep) {
    EXPECT_EQ(*folder.readOwn("none"), Data());
    ASSERT_TRUE(folder.replaceOwn("index", {1, 2, 3}).ok());
    EXPECT_EQ(*folder.readOwn("index"), (Data{1, 2, 3}));
    std::ifstream reader(scratch.path("base/index"));
    ASSERT_TRUE(folder.replaceOwn("index", {4}).ok());
    EXPECT_EQ(reader.get(), 1) << "a reader sees the file that it opened";
    EXPECT_EQ(*folder.readOwn("index"), (Data{4}));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(scratch.path("base")), {}), 3)
        << "something is left over";
    struct stat status {};
    ASSERT_EQ(::stat(scratch.path("base/index").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U);
}

TEST_F(DaemonExportFolder, OwnFilesAreNotReadThroughLinks) {
    std::filesystem::create_symlink(scratch.path("outside/file.plist"), scratch.path("base/index"));
    EXPECT_FALSE(folder.readOwn("index").ok());
    ASSERT_TRUE(folder.replaceOwn("index", {4}).ok());
    EXPECT_FALSE(std::filesystem::is_symlink(scratch.path("base/index")));
    EXPECT_EQ(std::filesystem::file_size(scratch.path("outside/file.plist")), std::string(list).size());
}

TEST_F(DaemonExportFolder, IsThatOfTheUsersLibraryByDefault) {
    const test::EnvironmentVariable library("XDG_CONFIG_HOME", scratch.path("library"));
    EXPECT_EQ(ExportFolder::defaultPath(), scratch.path("library/Preferences/Moxel/Applications"));
}

} // namespace
} // namespace moxel::daemon
