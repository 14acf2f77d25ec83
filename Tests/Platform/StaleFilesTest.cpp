// Removal of what was created before a given time, at any depth.
#include "Platform/StaleFiles.h"
#include "Platform/Linux/Descriptor.h"
#include "Support/Namespaces.h"
#include "Support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace moxel {
namespace {

namespace fs = std::filesystem;
using test::ChildProgram;
using test::TemporaryFolder;

constexpr std::chrono::nanoseconds tick{1};

/// The time that counts as that of the file's creation.
FileTime creationTime(const std::string &path) {
    struct statx status {};
    EXPECT_EQ(::statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BTIME | STATX_CTIME, &status), 0);
    const auto &time = (status.stx_mask & STATX_BTIME) != 0 ? status.stx_btime : status.stx_ctime;
    return FileTime(std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec));
}

/// Later than what has been created so far, and not later than what will be.
FileTime laterThanEverything(const TemporaryFolder &folder) {
    const auto last = creationTime(folder.write("probe"));
    // The clock of a file system moves in steps.
    for (int i = 0;; ++i) {
        const std::string path = folder.write("probe" + std::to_string(i));
        const auto time = creationTime(path);
        fs::remove(path);
        if (time > last) {
            fs::remove(folder.path("probe"));
            return time;
        }
    }
}

bool isThere(const std::string &path) { return fs::symlink_status(path).type() != fs::file_type::not_found; }

TEST(StaleFiles, StrictlyEarlierOnesGo) {
    const TemporaryFolder folder;
    const std::string file = folder.write("file");
    removeFilesCreatedBefore(folder.path(), creationTime(file));
    EXPECT_TRUE(isThere(file));
    removeFilesCreatedBefore(folder.path(), creationTime(file) + tick);
    EXPECT_FALSE(isThere(file));
    EXPECT_TRUE(isThere(folder.path()));
}

TEST(StaleFiles, NewOnesStayAmongOldOnes) {
    const TemporaryFolder folder;
    folder.write("old");
    folder.write("old folder/old");
    const auto time = laterThanEverything(folder);
    folder.write("new");
    folder.write("new folder/new");
    removeFilesCreatedBefore(folder.path(), time);
    EXPECT_FALSE(isThere(folder.path("old")));
    EXPECT_FALSE(isThere(folder.path("old folder")));
    EXPECT_TRUE(isThere(folder.path("new")));
    EXPECT_TRUE(isThere(folder.path("new folder/new")));
}

TEST(StaleFiles, OldFolderGoesWithEverythingInIt) {
    const TemporaryFolder folder;
    folder.write("old/imagedata/a.imgdata");
    const auto time = laterThanEverything(folder);
    folder.write("old/imagedata/new.imgdata");
    removeFilesCreatedBefore(folder.path(), time);
    EXPECT_FALSE(isThere(folder.path("old")));
}

TEST(StaleFiles, OldOnesInNewFoldersGo) {
    const TemporaryFolder folder;
    folder.write("old");
    const auto time = laterThanEverything(folder);
    fs::create_directories(folder.path("new/newer"));
    fs::rename(folder.path("old"), folder.path("new/newer/old"));
    folder.write("new/newer/kept");
    removeFilesCreatedBefore(folder.path(), time);
    EXPECT_FALSE(isThere(folder.path("new/newer/old")));
    EXPECT_TRUE(isThere(folder.path("new/newer/kept")));
}

TEST(StaleFiles, LinksGoAndWhatTheyLeadToStays) {
    const TemporaryFolder outside;
    const std::string file = outside.write("folder/precious");
    const TemporaryFolder folder;
    fs::create_symlink(file, folder.path("file"));
    fs::create_directory_symlink(outside.path("folder"), folder.path("folder"));
    fs::create_directory(folder.path("old"));
    fs::create_directory_symlink(outside.path("folder"), folder.path("old/folder"));
    removeFilesCreatedBefore(folder.path(), laterThanEverything(folder));
    EXPECT_TRUE(fs::is_empty(folder.path()));
    EXPECT_TRUE(isThere(file));
}

TEST(StaleFiles, OldFilesBehindANewLinkStay) {
    const TemporaryFolder outside;
    const std::string file = outside.write("precious");
    const TemporaryFolder folder;
    const auto time = laterThanEverything(folder);
    fs::create_directory_symlink(outside.path(), folder.path("link"));
    removeFilesCreatedBefore(folder.path(), time);
    EXPECT_TRUE(isThere(folder.path("link")));
    EXPECT_TRUE(isThere(file));
}

TEST(StaleFiles, LinkToTheFolderItselfIsFollowed) {
    const TemporaryFolder folder;
    folder.write("real/old");
    fs::create_directory_symlink(folder.path("real"), folder.path("link"));
    removeFilesCreatedBefore(folder.path("link"), laterThanEverything(folder));
    EXPECT_FALSE(isThere(folder.path("real/old")));
    EXPECT_TRUE(isThere(folder.path("link")));
}

TEST(StaleFiles, MissingFolderIsNoError) {
    const TemporaryFolder folder;
    removeFilesCreatedBefore(folder.path("missing"), FileTime::max());
    removeFilesCreatedBefore(folder.write("file"), FileTime::max());
    EXPECT_TRUE(isThere(folder.path("file")));
}

/// Folders within each other, deeper than any path can say.
void makeDeepTree(const std::string &top, int depth) {
    Descriptor folder(::open(top.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (int i = 0; i < depth; ++i) {
        ASSERT_EQ(::mkdirat(folder.get(), "d", 0700), 0);
        folder.reset(::openat(folder.get(), "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        ASSERT_TRUE(folder);
    }
    ASSERT_TRUE(Descriptor(::openat(folder.get(), "file", O_WRONLY | O_CREAT | O_CLOEXEC, 0600)));
}

TEST(StaleFiles, TreesOfAnyDepthAreWalkedAndRemoved) {
    const TemporaryFolder folder;
    const auto before = laterThanEverything(folder);
    makeDeepTree(folder.path(), 5'000); // more than there are descriptors
    removeFilesCreatedBefore(folder.path(), before);
    EXPECT_TRUE(isThere(folder.path("d/d/d/d")));
    removeFilesCreatedBefore(folder.path(), laterThanEverything(folder));
    EXPECT_TRUE(fs::is_empty(folder.path()));
}

TEST(StaleFiles, WideFoldersAreRemoved) {
    const TemporaryFolder folder;
    for (int i = 0; i < 3'000; ++i)
        folder.write("wide/" + std::to_string(i));
    removeFilesCreatedBefore(folder.path(), laterThanEverything(folder));
    EXPECT_TRUE(fs::is_empty(folder.path()));
}

TEST(StaleFiles, FolderThatCannotBeReadStaysAndStopsNothing) {
    if (::geteuid() == 0)
        GTEST_SKIP() << "the super-user may read everything";
    const TemporaryFolder folder;
    for (const auto *name : {"a", "m", "z"})
        folder.write(std::string(name) + "/file");
    fs::permissions(folder.path("a"), fs::perms::none);
    fs::permissions(folder.path("m"), fs::perms::owner_read);
    removeFilesCreatedBefore(folder.path(), laterThanEverything(folder));
    fs::permissions(folder.path("a"), fs::perms::owner_all);
    fs::permissions(folder.path("m"), fs::perms::owner_all);
    EXPECT_TRUE(isThere(folder.path("a/file")));
    EXPECT_TRUE(isThere(folder.path("m/file")));
    EXPECT_FALSE(isThere(folder.path("z")));
}

const ChildProgram mountedInside("mountedInside", [] {
    const std::string top = std::getenv("MOXEL_TEST_FOLDER");
    test::mountEmpty((top + "/old/mounted").c_str());
    std::ofstream(top + "/old/mounted/precious").flush();
    removeFilesCreatedBefore(top, FileTime::max());
    EXPECT_TRUE(isThere(top + "/old/mounted/precious"));
    EXPECT_FALSE(isThere(top + "/old/file"));
});

TEST(StaleFiles, OtherFileSystemsAreLeftAlone) {
    if (!test::canMakeNamespaces())
        GTEST_SKIP() << "no user namespaces here";
    const TemporaryFolder folder;
    folder.write("old/file");
    fs::create_directory(folder.path("old/mounted"));
    mountedInside.run({{"MOXEL_TEST_FOLDER", folder.path()}}, ChildProgram::Place::ownNamespaces);
}

} // namespace
} // namespace moxel
