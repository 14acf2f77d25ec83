// What a watched folder tree reports of files.
#include "Platform/WatchedTree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/stat.h>
#include <utime.h>

namespace moxel::foldertree {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
namespace fs = std::filesystem;

TEST_F(FolderTreeFiles, WhatIsThereAtTheStartIsNotReported) {
    WatchedTree tree(folder.path());
    EXPECT_THAT(tree.events(), IsEmpty());
}

TEST_F(FolderTreeFiles, NewFileIsCreatedAndModified) {
    WatchedTree tree(folder.path());
    append(folder.path("new"), "text");
    EXPECT_THAT(tree.distinctEvents(),
                ElementsAre(Event(folder.path("new"), created), Event(folder.path("new"), modified)));
}

TEST_F(FolderTreeFiles, WrittenFileIsModified) {
    WatchedTree tree(folder.path());
    append(folder.path("known"), "more");
    EXPECT_THAT(tree.distinctEvents(), ElementsAre(Event(folder.path("known"), modified)));
}

TEST_F(FolderTreeFiles, FileClosedAfterWritingIsModified) {
    WatchedTree tree(folder.path());
    const Descriptor file(::open(folder.path("known").c_str(), O_WRONLY | O_CLOEXEC));
    EXPECT_THAT(tree.events(), IsEmpty());
    const_cast<Descriptor &>(file).reset();
    EXPECT_THAT(tree.events(), ElementsAre(Event(folder.path("known"), modified)));
}

TEST_F(FolderTreeFiles, ReadFileIsNotReported) {
    WatchedTree tree(folder.path());
    std::ifstream file(folder.path("known"));
    std::string text;
    file >> text;
    file.close();
    EXPECT_THAT(tree.events(), IsEmpty());
}

TEST_F(FolderTreeFiles, DeletedFileIsRemoved) {
    WatchedTree tree(folder.path());
    fs::remove(folder.path("known"));
    EXPECT_THAT(tree.events(), ElementsAre(Event(folder.path("known"), removed)));
}

TEST_F(FolderTreeFiles, AttributesAreReported) {
    WatchedTree tree(folder.path());
    ASSERT_EQ(::chmod(folder.path("known").c_str(), 0600), 0);
    EXPECT_THAT(tree.events(), ElementsAre(Event(folder.path("known"), attributes)));
    ASSERT_EQ(::utime(folder.path("known").c_str(), nullptr), 0);
    EXPECT_THAT(tree.events(), ElementsAre(Event(folder.path("known"), attributes)));
    ASSERT_EQ(::chmod(folder.path("below").c_str(), 0700), 0);
    EXPECT_THAT(tree.events(), ElementsAre(Event(folder.path("below"), attributes)));
}

TEST_F(FolderTreeFiles, FileMovedIntoPlaceIsCreatedAndRenamed) {
    WatchedTree tree(folder.path());
    fs::rename(outside.write("file"), folder.path("new"));
    fs::rename(outside.write("file"), folder.path("known")); // over the old one, as editors save
    EXPECT_THAT(tree.events(),
                ElementsAre(Event(folder.path("new"), movedIn), Event(folder.path("known"), movedIn)));
}

TEST_F(FolderTreeFiles, FileMovedAwayIsOnlyRenamed) {
    WatchedTree tree(folder.path());
    fs::rename(folder.path("known"), outside.path("file"));
    EXPECT_THAT(tree.events(), ElementsAre(Event(folder.path("known"), renamed)));
}

TEST_F(FolderTreeFiles, FileRenamedInTheTreeIsBoth) {
    WatchedTree tree(folder.path());
    fs::rename(folder.path("known"), folder.path("below/other"));
    EXPECT_THAT(tree.events(), ElementsAre(Event(folder.path("known"), renamed),
                                           Event(folder.path("below/other"), movedIn)));
}

TEST_F(FolderTreeFiles, EverySaveByRenamingIsReported) {
    WatchedTree tree(folder.path());
    for (int i = 0; i < 100; ++i) {
        folder.write("temporary", "content");
        fs::rename(folder.path("temporary"), folder.path("known"));
        EXPECT_THAT(tree.events(), Contains(Event(folder.path("known"), movedIn)));
    }
}

TEST_F(FolderTreeFiles, FileMadeAgainIsRemovedAndCreated) {
    WatchedTree tree(folder.path());
    for (int i = 0; i < 3; ++i) {
        fs::remove(folder.path("known"));
        folder.write("known");
    }
    Events events = tree.distinctEvents();
    std::erase(events, Event(folder.path("known"), modified));
    EXPECT_THAT(events,
                ElementsAre(Event(folder.path("known"), removed), Event(folder.path("known"), created),
                            Event(folder.path("known"), removed), Event(folder.path("known"), created),
                            Event(folder.path("known"), removed), Event(folder.path("known"), created)));
}

TEST_F(FolderTreeFiles, FileThatLivesShortlyIsReportedBothWays) {
    WatchedTree tree(folder.path());
    folder.write("short");
    fs::remove(folder.path("short"));
    const Events events = tree.events();
    EXPECT_EQ(events.front(), Event(folder.path("short"), created));
    EXPECT_EQ(events.back(), Event(folder.path("short"), removed));
}

TEST_F(FolderTreeFiles, NamesMayHoldAnyBytes) {
    WatchedTree tree(folder.path());
    folder.write("new\nline \xFF");
    EXPECT_THAT(tree.events(), Contains(Event(folder.path("new\nline \xFF"), created)));
}

TEST_F(FolderTreeFiles, SymbolicLinksAreFilesToTheTree) {
    WatchedTree tree(folder.path());
    fs::create_directory_symlink(outside.path(), folder.path("link"));
    EXPECT_THAT(tree.events(), ElementsAre(Event(folder.path("link"), created)));
    outside.write("file");
    EXPECT_THAT(tree.events(), IsEmpty());
    fs::remove(folder.path("link"));
    EXPECT_THAT(tree.events(), ElementsAre(Event(folder.path("link"), removed)));
}

} // namespace
} // namespace moxel::foldertree
