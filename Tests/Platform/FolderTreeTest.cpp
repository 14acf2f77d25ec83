// What a watched folder tree reports. The kernel queues its events at once, so that nothing is waited for.
#include "Platform/Linux/FolderTree.h"
#include "Platform/FileEvents.h"
#include "Platform/Log.h"
#include "Support/ChildProcess.h"
#include "Support/Namespaces.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <thread>
#include <utime.h>

namespace moxel {

void PrintTo(const std::pair<std::string, uint32_t> &event, std::ostream *stream) {
    *stream << event.first << " 0x" << std::hex << event.second;
}

namespace {

using test::ChildProgram;
using test::TemporaryFolder;
using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;
using ::testing::Not;
using ::testing::Pair;
using ::testing::SizeIs;
using ::testing::UnorderedElementsAre;
namespace fs = std::filesystem;

using Event = std::pair<std::string, uint32_t>;
using Events = std::vector<Event>;

constexpr uint32_t created = fileEventCreated;
constexpr uint32_t removed = fileEventRemoved;
constexpr uint32_t attributes = fileEventMetadataChanged;
constexpr uint32_t renamed = fileEventRenamed;
constexpr uint32_t movedIn = fileEventCreated | fileEventRenamed;
constexpr uint32_t modified = fileEventModified;

/// A tree over a folder, and what it has reported.
class WatchedTree {
  public:
    explicit WatchedTree(const std::string &folder, FolderTree::Limits limits = {})
        : tree_(
              folder, inotify_,
              [this](const std::string &path, uint32_t flags) { events_.emplace_back(path, flags); },
              limits) {
        tree_.start();
    }

    /// The events since the last call.
    Events events() {
        while (inotify_.read([this](const InotifyEvent &event) { tree_.handle(event); }))
            continue;
        return std::exchange(events_, {});
    }
    /// The same without equal neighbours, where the kernel may report one step or two.
    Events distinctEvents() {
        Events all = events();
        all.erase(std::unique(all.begin(), all.end()), all.end());
        return all;
    }
    /// Loses what the kernel has queued, as a full queue does.
    Events eventsAfterOverflow() {
        while (inotify_.read([](const InotifyEvent &) {}))
            continue;
        tree_.handle({-1, IN_Q_OVERFLOW, {}, 0});
        return events();
    }
    /// Handles up to one buffer of events.
    void handleSome() {
        inotify_.read([this](const InotifyEvent &event) { tree_.handle(event); });
    }

  private:
    Inotify inotify_ = *Inotify::create();
    FolderTree tree_;
    Events events_;
};

void append(const std::string &path, std::string_view text) {
    std::ofstream(path, std::ios::app | std::ios::binary) << text;
}

std::vector<std::string> pathsWith(uint32_t flags, const Events &events) {
    std::vector<std::string> paths;
    for (const auto &[path, eventFlags] : events) {
        if (eventFlags == flags)
            paths.push_back(path);
    }
    return paths;
}

// ------------------------------------------------------------------------------------------ Files

class FolderTreeFiles : public ::testing::Test {
  protected:
    FolderTreeFiles() {
        folder.write("known", "content");
        fs::create_directory(folder.path("below"));
        folder.write("below/known", "content");
    }
    TemporaryFolder folder;
    TemporaryFolder outside;
};

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

// ------------------------------------------------------------------------------------------ Folders

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

// ------------------------------------------------------------------------------------------ The top

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

// ------------------------------------------------------------------------------------------ Overflow

class FolderTreeOverflow : public FolderTreeFiles {};

TEST_F(FolderTreeOverflow, UnchangedTreeReportsNothing) {
    WatchedTree tree(folder.path());
    EXPECT_THAT(tree.eventsAfterOverflow(), IsEmpty());
}

TEST_F(FolderTreeOverflow, DifferencesAreReported) {
    folder.write("changed", "old");
    folder.write("replaced", "old");
    WatchedTree tree(folder.path());
    fs::remove(folder.path("known"));
    append(folder.path("changed"), "more");
    folder.write("new", "text");
    fs::rename(outside.write("file", "new"), folder.path("replaced"));
    append(folder.path("below/known"), "more");
    EXPECT_THAT(
        tree.eventsAfterOverflow(),
        UnorderedElementsAre(Event(folder.path("known"), removed), Event(folder.path("changed"), modified),
                             Event(folder.path("new"), created), Event(folder.path("replaced"), movedIn),
                             Event(folder.path("below/known"), modified)));
    EXPECT_THAT(tree.eventsAfterOverflow(), IsEmpty());
}

TEST_F(FolderTreeOverflow, SameSizeAndNewTimeIsAModification) {
    WatchedTree tree(folder.path());
    fs::last_write_time(folder.path("known"), fs::file_time_type::clock::now() + std::chrono::seconds(5));
    EXPECT_THAT(tree.eventsAfterOverflow(), ElementsAre(Event(folder.path("known"), modified)));
}

TEST_F(FolderTreeOverflow, KnownStateFollowsTheEventsBefore) {
    WatchedTree tree(folder.path());
    append(folder.path("known"), "more");
    folder.write("new", "text");
    tree.events();
    EXPECT_THAT(tree.eventsAfterOverflow(), IsEmpty());
}

TEST_F(FolderTreeOverflow, FoldersThatCameAreReportedAndWatched) {
    WatchedTree tree(folder.path());
    folder.write("one/two/file");
    EXPECT_THAT(tree.eventsAfterOverflow(),
                ElementsAre(Event(folder.path("one"), created), Event(folder.path("one/two"), created),
                            Event(folder.path("one/two/file"), created)));
    fs::remove(folder.path("one/two/file"));
    EXPECT_THAT(tree.events(), ElementsAre(Event(folder.path("one/two/file"), removed)));
}

TEST_F(FolderTreeOverflow, FoldersThatWentAreReportedWithTheirContent) {
    folder.write("below/deep/file");
    WatchedTree tree(folder.path());
    fs::remove_all(folder.path("below"));
    const Events events = tree.eventsAfterOverflow();
    EXPECT_THAT(events, UnorderedElementsAre(Event(folder.path("below"), removed),
                                             Event(folder.path("below/known"), removed),
                                             Event(folder.path("below/deep"), removed),
                                             Event(folder.path("below/deep/file"), removed)));
    EXPECT_EQ(events.back(), Event(folder.path("below"), removed));
}

TEST_F(FolderTreeOverflow, FolderMadeAgainIsReportedAndWatched) {
    WatchedTree tree(folder.path());
    fs::remove_all(folder.path("below"));
    folder.write("below/other");
    EXPECT_THAT(tree.eventsAfterOverflow(),
                ElementsAre(Event(folder.path("below/known"), removed), Event(folder.path("below"), removed),
                            Event(folder.path("below"), created),
                            Event(folder.path("below/other"), created)));
    fs::remove(folder.path("below/other"));
    EXPECT_THAT(tree.events(), ElementsAre(Event(folder.path("below/other"), removed)));
}

TEST_F(FolderTreeOverflow, FileThatBecameAFolderIsReported) {
    WatchedTree tree(folder.path());
    fs::remove(folder.path("known"));
    folder.write("known/file");
    fs::remove_all(folder.path("below"));
    folder.write("below");
    EXPECT_THAT(tree.eventsAfterOverflow(),
                UnorderedElementsAre(
                    Event(folder.path("known"), removed), Event(folder.path("known"), created),
                    Event(folder.path("known/file"), created), Event(folder.path("below/known"), removed),
                    Event(folder.path("below"), removed), Event(folder.path("below"), created)));
}

TEST_F(FolderTreeOverflow, RootThatWentIsReportedAndAwaited) {
    const std::string root = folder.path("below");
    WatchedTree tree(root);
    fs::remove_all(root);
    EXPECT_THAT(tree.eventsAfterOverflow(),
                ElementsAre(Event(root + "/known", removed), Event(root, removed)));
    folder.write("below/new");
    EXPECT_THAT(tree.eventsAfterOverflow(), ElementsAre(Event(root, created), Event(root + "/new", created)));
    fs::remove_all(root);
    folder.write("below/other");
    EXPECT_THAT(tree.eventsAfterOverflow(),
                ElementsAre(Event(root + "/new", removed), Event(root, removed), Event(root, created),
                            Event(root + "/other", created)));
}

TEST_F(FolderTreeOverflow, EventsThatComeAfterTheComparisonAreNotReportedTwice) {
    WatchedTree tree(folder.path());
    // The queue is full of other things; the comparison sees all of it, and some events arrive nevertheless.
    Inotify inotify = *Inotify::create();
    Events events;
    FolderTree watched(folder.path(), inotify,
                       [&](const std::string &path, uint32_t flags) { events.emplace_back(path, flags); },
                       {});
    watched.start();
    fs::remove(folder.path("known"));
    folder.write("new/file");
    fs::rename(outside.write("file"), folder.path("moved"));
    watched.handle({-1, IN_Q_OVERFLOW, {}, 0});
    while (inotify.read([&](const InotifyEvent &event) { watched.handle(event); }))
        continue;
    EXPECT_THAT(pathsWith(removed, events), ElementsAre(folder.path("known")));
    EXPECT_THAT(pathsWith(created, events),
                UnorderedElementsAre(folder.path("new"), folder.path("new/file"), folder.path("moved")));
    EXPECT_THAT(pathsWith(movedIn, events), IsEmpty());
}

TEST_F(FolderTreeOverflow, KernelQueueThatOverflowsLosesNothing) {
    size_t limit = 0;
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> limit;
    if (limit > 100'000)
        GTEST_SKIP() << "the kernel's queue is too long";
    WatchedTree tree(folder.path());
    for (size_t i = 0; i <= limit; ++i)
        ASSERT_EQ(::chmod(folder.path(i % 2 == 0 ? "known" : "below/known").c_str(), 0600), 0);
    folder.write("after the overflow");
    fs::remove(folder.path("below/known"));
    const Events events = tree.events();
    EXPECT_THAT(events, IsSupersetOf({Event(folder.path("after the overflow"), created),
                                      Event(folder.path("below/known"), removed)}));
    append(folder.path("known"), "more");
    EXPECT_THAT(tree.distinctEvents(), ElementsAre(Event(folder.path("known"), modified)));
}

// ------------------------------------------------------------------------------------------ Limits

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

// ------------------------------------------------------------------------------------------ At random

/// What a receiver of the events believes to be there.
class Believer {
  public:
    void hear(const Events &events) {
        for (const Event &event : events) {
            const std::string &path = event.first;
            if ((event.second & created) != 0) {
                believed_.insert(path);
            } else if ((event.second & (removed | renamed)) != 0) {
                std::erase_if(believed_, [&path](const std::string &each) {
                    return each == path || each.starts_with(path + '/');
                });
            }
        }
    }
    const std::set<std::string> &believed() const { return believed_; }

  private:
    std::set<std::string> believed_;
};

std::set<std::string> everythingBelow(const std::string &folder) {
    std::set<std::string> paths;
    for (const auto &entry : fs::recursive_directory_iterator(folder))
        paths.insert(entry.path().string());
    return paths;
}

/// Does something at random to something at random.
class Vandal {
  public:
    Vandal(std::string folder, unsigned seed) : folder_(std::move(folder)), random_(seed) {}

    unsigned random(unsigned bound) { return static_cast<unsigned>(random_() % bound); }

    void act() {
        std::error_code ignored;
        const std::string path = randomPath();
        switch (random(6)) {
        case 0:
        case 1:
            fs::create_directories(path, ignored);
            break;
        case 2:
        case 3: {
            std::ofstream stream(path);
            stream << "text";
            break;
        }
        case 4:
            fs::rename(path, randomPath(), ignored);
            break;
        default:
            fs::remove_all(path, ignored);
        }
    }

  private:
    std::string randomPath() {
        std::string path = folder_;
        for (unsigned depth = random(3) + 1; depth > 0; --depth)
            path += std::string("/") + static_cast<char>('a' + random(3));
        return path;
    }

    std::string folder_;
    std::mt19937 random_;
};

TEST(FolderTreeAtRandom, EventsTellWhatIsThere) {
    for (unsigned seed = 0; seed < 8; ++seed) {
        const TemporaryFolder folder;
        fs::create_directory(folder.path("root"));
        WatchedTree tree(folder.path("root"));
        Vandal vandal(folder.path("root"), seed);
        Believer believer;
        for (int step = 0; step < 200; ++step) {
            vandal.act();
            if (vandal.random(8) == 0)
                believer.hear(tree.events());
            if (vandal.random(60) == 0)
                believer.hear(tree.eventsAfterOverflow());
        }
        believer.hear(tree.events());
        ASSERT_EQ(believer.believed(), everythingBelow(folder.path("root"))) << "seed " << seed;
    }
}

TEST(FolderTreeAtRandom, EventsTellWhatIsThereWhenTheFolderItselfComesAndGoes) {
    for (unsigned seed = 0; seed < 8; ++seed) {
        const TemporaryFolder folder;
        fs::create_directories(folder.path("top/a/b"));
        WatchedTree tree(folder.path("top/a/b"));
        Vandal vandal(folder.path("top"), seed);
        Believer believer;
        for (int step = 0; step < 200; ++step) {
            vandal.act();
            if (vandal.random(8) == 0)
                believer.hear(tree.events());
            if (vandal.random(60) == 0)
                believer.hear(tree.eventsAfterOverflow());
        }
        fs::remove_all(folder.path("top/a"));
        folder.write("top/a/b/c/file");
        believer.hear(tree.events());
        std::set<std::string> there = everythingBelow(folder.path("top/a/b"));
        there.insert(folder.path("top/a/b"));
        ASSERT_EQ(believer.believed(), there) << "seed " << seed;
    }
}

TEST(FolderTreeAtRandom, EventsTellWhatIsThereWhileItChanges) {
    for (unsigned seed = 0; seed < 2; ++seed) {
        const TemporaryFolder folder;
        fs::create_directory(folder.path("root"));
        WatchedTree tree(folder.path("root"));
        std::atomic<bool> done = false;
        std::thread changing([&] {
            Vandal vandal(folder.path("root"), seed);
            for (int step = 0; step < 1000; ++step)
                vandal.act();
            done = true;
        });
        Believer believer;
        while (!done)
            believer.hear(tree.events());
        changing.join();
        believer.hear(tree.events());
        ASSERT_EQ(believer.believed(), everythingBelow(folder.path("root"))) << "seed " << seed;
    }
}

} // namespace
} // namespace moxel
