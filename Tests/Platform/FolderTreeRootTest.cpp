// A watched folder tree whose top folder comes, goes and moves.
#include "Platform/WatchedTree.h"
#include "Support/ChildProcess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/stat.h>

namespace moxel::foldertree {
namespace {

using test::ChildProgram;
using test::TemporaryFolder;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
namespace fs = std::filesystem;

TEST(FolderTreeRoot, PathsBeginWithTheFolderAsGiven) {
    const TemporaryFolder folder;
    for (const std::string &given :
         {folder.path(), folder.path() + "/", folder.path() + "//", folder.path() + "/."}) {
        WatchedTree tree(given);
        fs::create_directory(folder.path("sub"));
        folder.write("sub/file");
        const std::string sub = given.ends_with('/') ? given + "sub" : given + "/sub";
        EXPECT_THAT(tree.events(), ElementsAre(Event(sub, created), Event(sub + "/file", created)));
        fs::remove_all(folder.path("sub"));
        EXPECT_THAT(tree.events(), ElementsAre(Event(sub + "/file", removed), Event(sub, removed)));
    }
}

TEST(FolderTreeRoot, MayBeASymbolicLink) {
    const TemporaryFolder folder;
    fs::create_directory(folder.path("real"));
    fs::create_directory_symlink("real", folder.path("link"));
    WatchedTree tree(folder.path("link"));
    folder.write("real/sub/file");
    EXPECT_THAT(tree.events(), ElementsAre(Event(folder.path("link/sub"), created),
                                           Event(folder.path("link/sub/file"), created)));
}

const ChildProgram watchRelativePath("watchRelativePath", [] {
    const TemporaryFolder folder;
    fs::current_path(folder.path());
    WatchedTree missing("not/there");
    WatchedTree tree(".");
    folder.write("file");
    EXPECT_THAT(tree.events(), Contains(Event("./file", created)));
    folder.write("not/there/file");
    EXPECT_THAT(missing.events(), ElementsAre(Event("not/there", created), Event("not/there/file", created)));
    fs::current_path("/");
});

TEST(FolderTreeRoot, MayBeRelative) { watchRelativePath.run(); }

TEST(FolderTreeRoot, OwnAttributesAreReported) {
    const TemporaryFolder folder;
    WatchedTree tree(folder.path());
    ASSERT_EQ(::chmod(folder.path().c_str(), 0755), 0);
    EXPECT_THAT(tree.events(), ElementsAre(Event(folder.path(), attributes)));
}

TEST(FolderTreeRoot, MissingFolderIsAwaited) {
    const TemporaryFolder folder;
    WatchedTree tree(folder.path("one/two/three"));
    folder.write("one/unrelated");
    folder.write("unrelated");
    EXPECT_THAT(tree.events(), IsEmpty());
    folder.write("one/two/three/file");
    EXPECT_THAT(tree.events(), ElementsAre(Event(folder.path("one/two/three"), created),
                                           Event(folder.path("one/two/three/file"), created)));
    append(folder.path("one/two/three/file"), "more");
    EXPECT_THAT(tree.distinctEvents(), ElementsAre(Event(folder.path("one/two/three/file"), modified)));
}

TEST(FolderTreeRoot, MissingFolderIsAwaitedStepByStep) {
    const TemporaryFolder folder;
    WatchedTree tree(folder.path("one/two/three/"));
    for (const char *name : {"one", "one/two"}) {
        fs::create_directory(folder.path(name));
        EXPECT_THAT(tree.events(), IsEmpty());
    }
    fs::remove(folder.path("one/two"));
    fs::remove(folder.path("one"));
    EXPECT_THAT(tree.events(), IsEmpty());
    fs::create_directories(folder.path("one/two/three"));
    EXPECT_THAT(tree.events(), ElementsAre(Event(folder.path("one/two/three/"), created)));
}

TEST(FolderTreeRoot, MissingFolderMayBeMovedIntoPlace) {
    const TemporaryFolder folder;
    folder.write("other/three/file");
    WatchedTree tree(folder.path("one/two/three"));
    fs::create_directory(folder.path("one"));
    fs::rename(folder.path("other"), folder.path("one/two"));
    EXPECT_THAT(tree.events(), ElementsAre(Event(folder.path("one/two/three"), created),
                                           Event(folder.path("one/two/three/file"), created)));
}

TEST(FolderTreeRoot, FileInTheFoldersPlaceIsNotWatched) {
    const TemporaryFolder folder;
    folder.write("place");
    WatchedTree tree(folder.path("place"));
    append(folder.path("place"), "more");
    EXPECT_THAT(tree.events(), IsEmpty());
    fs::remove(folder.path("place"));
    folder.write("place/file");
    EXPECT_THAT(tree.events(),
                ElementsAre(Event(folder.path("place"), created), Event(folder.path("place/file"), created)));
}

TEST(FolderTreeRoot, RemovedFolderIsWatchedWhenItIsMadeAgain) {
    const TemporaryFolder folder;
    folder.write("root/file");
    WatchedTree tree(folder.path("root"));
    fs::remove_all(folder.path("root"));
    EXPECT_THAT(tree.events(),
                ElementsAre(Event(folder.path("root/file"), removed), Event(folder.path("root"), removed)));
    folder.write("root/file");
    EXPECT_THAT(tree.events(),
                ElementsAre(Event(folder.path("root"), created), Event(folder.path("root/file"), created)));
    fs::remove(folder.path("root/file"));
    EXPECT_THAT(tree.events(), ElementsAre(Event(folder.path("root/file"), removed)));
}

TEST(FolderTreeRoot, FolderMadeAgainAtOnceIsWatched) {
    const TemporaryFolder folder;
    folder.write("parent/root/file");
    WatchedTree tree(folder.path("parent/root"));
    for (int i = 0; i < 5; ++i) {
        fs::remove_all(folder.path(i % 2 == 0 ? "parent" : "parent/root"));
        folder.write("parent/root/file");
    }
    EXPECT_EQ(tree.events().back(), Event(folder.path("parent/root/file"), created));
    append(folder.path("parent/root/file"), "more");
    EXPECT_THAT(tree.distinctEvents(), ElementsAre(Event(folder.path("parent/root/file"), modified)));
}

TEST(FolderTreeRoot, RemovedFolderThatSomebodyHoldsOpenIsReplaced) {
    const TemporaryFolder folder;
    folder.write("root/file");
    WatchedTree tree(folder.path("root"));
    const Descriptor held(::open(folder.path("root").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    fs::remove_all(folder.path("root"));
    EXPECT_THAT(tree.events(), Contains(Event(folder.path("root"), removed)));
    folder.write("root/file");
    EXPECT_THAT(tree.events(),
                ElementsAre(Event(folder.path("root"), created), Event(folder.path("root/file"), created)));
}

TEST(FolderTreeRoot, FolderMovedAwayIsOnlyRenamedAndItsSuccessorWatched) {
    const TemporaryFolder folder;
    folder.write("root/file");
    WatchedTree tree(folder.path("root"));
    fs::rename(folder.path("root"), folder.path("elsewhere"));
    EXPECT_THAT(tree.events(), ElementsAre(Event(folder.path("root"), renamed)));
    append(folder.path("elsewhere/file"), "more");
    EXPECT_THAT(tree.events(), IsEmpty());
    fs::rename(folder.path("elsewhere"), folder.path("root"));
    EXPECT_THAT(tree.events(),
                ElementsAre(Event(folder.path("root"), created), Event(folder.path("root/file"), created)));
}

TEST(FolderTreeRoot, FolderMovedAwayAndBackAtOnceIsStillWatched) {
    const TemporaryFolder folder;
    folder.write("root/file");
    WatchedTree tree(folder.path("root"));
    fs::rename(folder.path("root"), folder.path("elsewhere"));
    fs::rename(folder.path("elsewhere"), folder.path("root"));
    tree.events();
    append(folder.path("root/file"), "more");
    EXPECT_THAT(tree.distinctEvents(), ElementsAre(Event(folder.path("root/file"), modified)));
}

TEST(FolderTreeRoot, MovedParentsAreNoticed) {
    const TemporaryFolder folder;
    folder.write("a/b/root/file");
    WatchedTree tree(folder.path("a/b/root"));
    fs::rename(folder.path("a"), folder.path("moved"));
    EXPECT_THAT(tree.events(), ElementsAre(Event(folder.path("a/b/root"), renamed)));
    append(folder.path("moved/b/root/file"), "more");
    EXPECT_THAT(tree.events(), IsEmpty());
    folder.write("a/b/root/other");
    EXPECT_THAT(tree.events(), ElementsAre(Event(folder.path("a/b/root"), created),
                                           Event(folder.path("a/b/root/other"), created)));
}

TEST(FolderTreeRoot, NewNeighboursOfTheFolderWakeNobody) {
    const TemporaryFolder folder;
    folder.write("root/file");
    Inotify inotify = *Inotify::create();
    FolderTree tree(folder.path("root"), inotify,
                    [](const std::string &path, uint32_t) { ADD_FAILURE() << path; }, {});
    tree.start();
    folder.write("neighbour", "text");
    fs::create_directory(folder.path("other"));
    ASSERT_EQ(::chmod(folder.path("other").c_str(), 0700), 0);
    EXPECT_FALSE(inotify.read([](const InotifyEvent &) {}));
}

TEST(FolderTreeRoot, AwaitedFolderAtRestWakesNobody) {
    const TemporaryFolder folder;
    folder.write("one/file");
    Inotify inotify = *Inotify::create();
    FolderTree tree(folder.path("one/two"), inotify,
                    [](const std::string &path, uint32_t) { ADD_FAILURE() << path; }, {});
    tree.start();
    while (inotify.read([&](const InotifyEvent &event) { tree.handle(event); }))
        continue;
    folder.write("neighbour", "text");
    folder.write("one/file", "text");
    EXPECT_FALSE(inotify.read([](const InotifyEvent &) {}));
}

} // namespace
} // namespace moxel::foldertree
