// A watched folder tree with more to watch than it may, or can.
#include "Platform/Log.h"
#include "Platform/WatchedTree.h"
#include "Support/ChildProcess.h"
#include "Support/Namespaces.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace moxel::foldertree {
namespace {

using test::ChildProgram;
using test::TemporaryFolder;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
namespace fs = std::filesystem;

struct ErrorLines {
    std::vector<std::string> lines;
    LogCapture capture{[this](LogLevel level, std::string_view line) {
        if (level == LogLevel::error)
            lines.emplace_back(line);
    }};
};

TEST(FolderTreeLimits, FoldersBeyondTheLimitAreNotWatchedAndThatIsLoggedOnce) {
    const ErrorLines errors;
    const TemporaryFolder folder;
    for (int i = 0; i < 10; ++i)
        fs::create_directory(folder.path(std::to_string(i)));
    WatchedTree tree(folder.path(), {.folders = 4, .entries = 1000});
    for (int i = 0; i < 10; ++i)
        folder.write(std::to_string(i) + "/file");
    EXPECT_THAT(pathsWith(created, tree.events()), SizeIs(3));
    EXPECT_THAT(errors.lines, ElementsAre(HasSubstr("Error: ")));
    fs::remove_all(folder.path("0"));
    tree.events();
    fs::create_directory(folder.path("another"));
    EXPECT_THAT(tree.events(), ElementsAre(Event(folder.path("another"), created)));
    folder.write("another/file");
    EXPECT_THAT(tree.events(), Contains(Event(folder.path("another/file"), created)))
        << "the place was free again";
}

TEST(FolderTreeLimits, FilesBeyondTheLimitAreReportedStill) {
    const ErrorLines errors;
    const TemporaryFolder folder;
    for (int i = 0; i < 10; ++i)
        folder.write(std::to_string(i));
    WatchedTree tree(folder.path(), {.folders = 10, .entries = 4});
    for (int i = 0; i < 10; ++i)
        fs::remove(folder.path(std::to_string(i)));
    EXPECT_THAT(tree.events(), SizeIs(10));
    for (int i = 0; i < 10; ++i)
        folder.write(std::to_string(i));
    EXPECT_THAT(pathsWith(created, tree.events()), SizeIs(10));
    for (int i = 0; i < 10; ++i)
        append(folder.path(std::to_string(i)), "more");
    EXPECT_THAT(tree.distinctEvents(), SizeIs(10));
    EXPECT_THAT(errors.lines, ElementsAre(HasSubstr("Error: ")));
}

TEST(FolderTreeLimits, FoldersBeyondTheLimitOfFilesAreNotWatched) {
    const ErrorLines errors;
    const TemporaryFolder folder;
    fs::create_directory(folder.path("root"));
    WatchedTree tree(folder.path("root"), {.folders = 10, .entries = 1});
    folder.write("root/a/file"); // the file is one too many
    tree.events();
    folder.write("root/b/file");
    EXPECT_THAT(tree.events(), ElementsAre(Event(folder.path("root/b"), created)));
    fs::rename(folder.path("root/b"), folder.path("b"));
    EXPECT_THAT(tree.events(), ElementsAre(Event(folder.path("root/b"), renamed)));
    folder.write("b/other");
    EXPECT_THAT(tree.events(), IsEmpty());
}

const ChildProgram runOutOfWatches("runOutOfWatches", [] {
    test::mountEmpty("/run");
    fs::create_directory("/run/root");
    for (int i = 0; i < 20; ++i)
        fs::create_directory("/run/root/" + std::to_string(i));
    std::ofstream limit("/proc/sys/user/max_inotify_watches");
    limit << "8" << std::flush;
    if (!limit)
        ChildProgram::skip("the number of watches cannot be limited");
    const ErrorLines errors;
    WatchedTree tree("/run/root");
    for (int i = 0; i < 20; ++i)
        std::ofstream("/run/root/" + std::to_string(i) + "/file");
    const auto files = pathsWith(created, tree.events());
    EXPECT_GE(files.size(), 1u);
    EXPECT_LE(files.size(), 8u);
    std::ofstream("/run/root/file");
    EXPECT_THAT(tree.events(), Contains(Event("/run/root/file", created)));
    EXPECT_THAT(errors.lines,
                ElementsAre(::testing::AllOf(HasSubstr("Error: "), HasSubstr("No space left"))));
});

TEST(FolderTreeLimits, RunningOutOfWatchesIsLoggedOnceAndTheRestGoesOn) {
    if (!test::canMakeNamespaces())
        GTEST_SKIP() << "no user namespaces here";
    runOutOfWatches.run({}, ChildProgram::Place::ownNamespaces);
}

TEST(FolderTreeLimits, UnreadableFolderIsLeftOutUntilItMayBeRead) {
    if (::geteuid() == 0)
        GTEST_SKIP() << "nothing is unreadable to the super-user";
    const TemporaryFolder folder;
    fs::create_directory(folder.path("root"));
    fs::permissions(folder.path("root"), fs::perms::none);
    WatchedTree tree(folder.path("root"));
    fs::permissions(folder.path("root"), fs::perms::owner_all);
    folder.write("root/file");
    EXPECT_THAT(tree.events(), Contains(Event(folder.path("root/file"), created)));
}

} // namespace
} // namespace moxel::foldertree
