// What a watched folder tree reports of the folders in it.
#include "Platform/WatchedTree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <thread>

namespace moxel::foldertree {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
namespace fs = std::filesystem;

TEST_F(FolderTreeFiles, SubFoldersAreWatched) {
    WatchedTree tree(folder.path());
    append(folder.path("below/known"), "more");
    EXPECT_THAT(tree.distinctEvents(), ElementsAre(Event(folder.path("below/known"), modified)));
}

TEST_F(FolderTreeFiles, LaterSubFoldersAreWatched) {
    WatchedTree tree(folder.path());
    fs::create_directories(folder.path("one/two"));
    EXPECT_THAT(tree.events(),
                ElementsAre(Event(folder.path("one"), created), Event(folder.path("one/two"), created)));
    append(folder.path("one/two/file"), "text");
    EXPECT_THAT(tree.distinctEvents(), ElementsAre(Event(folder.path("one/two/file"), created),
                                                   Event(folder.path("one/two/file"), modified)));
}

TEST_F(FolderTreeFiles, FilesMadeBeforeAFolderIsWatchedAreCreatedOnce) {
    WatchedTree tree(folder.path());
    folder.write("one/a");
    folder.write("one/two/b");
    EXPECT_THAT(tree.events(),
                ElementsAre(Event(folder.path("one"), created), Event(folder.path("one/a"), created),
                            Event(folder.path("one/two"), created),
                            Event(folder.path("one/two/b"), created)));
}

TEST_F(FolderTreeFiles, FilesMadeWhileAFolderIsTakenInAreCreatedOnce) {
    constexpr int folders = 50;
    constexpr int files = 5;
    WatchedTree tree(folder.path());
    std::atomic<bool> done = false;
    std::thread writer([&] {
        for (int i = 0; i < folders; ++i) {
            const std::string name = "new" + std::to_string(i);
            for (int j = 0; j < files; ++j)
                folder.write(name + '/' + std::to_string(j));
        }
        done = true;
    });
    Events events;
    for (bool last = false; !last;) {
        last = done;
        const Events some = tree.events();
        events.insert(events.end(), some.begin(), some.end());
    }
    writer.join();
    auto paths = pathsWith(created, events);
    std::ranges::sort(paths);
    EXPECT_THAT(paths, SizeIs(folders * (files + 1)));
    EXPECT_EQ(std::ranges::adjacent_find(paths), paths.end()) << "reported twice";
    EXPECT_THAT(pathsWith(removed, events), IsEmpty());
}

TEST_F(FolderTreeFiles, RemovedFoldersAreReportedWithTheirContent) {
    WatchedTree tree(folder.path());
    fs::remove_all(folder.path("below"));
    EXPECT_THAT(tree.events(), ElementsAre(Event(folder.path("below/known"), removed),
                                           Event(folder.path("below"), removed)));
}

TEST_F(FolderTreeFiles, FolderMovedInIsReportedWithItsContentAndWatched) {
    outside.write("folder/deep/file");
    WatchedTree tree(folder.path());
    fs::rename(outside.path("folder"), folder.path("new"));
    EXPECT_THAT(tree.events(),
                ElementsAre(Event(folder.path("new"), movedIn), Event(folder.path("new/deep"), movedIn),
                            Event(folder.path("new/deep/file"), movedIn)));
    fs::remove(folder.path("new/deep/file"));
    EXPECT_THAT(tree.events(), ElementsAre(Event(folder.path("new/deep/file"), removed)));
}

TEST_F(FolderTreeFiles, FolderMovedAwayIsNoLongerWatched) {
    WatchedTree tree(folder.path());
    fs::rename(folder.path("below"), outside.path("folder"));
    EXPECT_THAT(tree.events(), ElementsAre(Event(folder.path("below"), renamed)));
    append(outside.path("folder/known"), "more");
    EXPECT_THAT(tree.events(), IsEmpty());
}

TEST_F(FolderTreeFiles, FolderMovedInTheTreeIsFollowed) {
    WatchedTree tree(folder.path());
    fs::rename(folder.path("below"), folder.path("other"));
    EXPECT_THAT(tree.events(),
                ElementsAre(Event(folder.path("below"), renamed), Event(folder.path("other"), movedIn),
                            Event(folder.path("other/known"), movedIn)));
    append(folder.path("other/known"), "more");
    EXPECT_THAT(tree.distinctEvents(), ElementsAre(Event(folder.path("other/known"), modified)));
}

TEST_F(FolderTreeFiles, NewFolderMovedBeforeItIsWatchedIsFollowed) {
    fs::create_directory(folder.path("aaa"));
    WatchedTree tree(folder.path());
    folder.write("zzz/file");
    fs::rename(folder.path("zzz"), folder.path("aaa/zzz"));
    tree.events();
    append(folder.path("aaa/zzz/file"), "more");
    EXPECT_THAT(tree.distinctEvents(), ElementsAre(Event(folder.path("aaa/zzz/file"), modified)));
}

TEST_F(FolderTreeFiles, FolderMadeAgainManyTimesIsWatched) {
    WatchedTree tree(folder.path());
    for (int i = 0; i < 20; ++i) {
        fs::remove_all(folder.path("below"));
        folder.write("below/known");
    }
    EXPECT_EQ(pathsWith(created, tree.events()).back(), folder.path("below/known"));
    append(folder.path("below/known"), "more");
    EXPECT_THAT(tree.distinctEvents(), ElementsAre(Event(folder.path("below/known"), modified)));
}

TEST_F(FolderTreeFiles, RemovedFolderThatSomebodyHoldsOpenIsReportedAndReplaced) {
    WatchedTree tree(folder.path());
    const Descriptor held(::open(folder.path("below").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    fs::remove_all(folder.path("below"));
    EXPECT_THAT(tree.events(), Contains(Event(folder.path("below"), removed)));
    folder.write("below/file");
    EXPECT_THAT(tree.events(),
                ElementsAre(Event(folder.path("below"), created), Event(folder.path("below/file"), created)));
}

} // namespace
} // namespace moxel::foldertree
