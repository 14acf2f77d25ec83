// A watched folder tree that has lost events of the kernel's.
#include "Platform/WatchedTree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <sys/inotify.h>
#include <sys/stat.h>

namespace moxel::foldertree {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;
using ::testing::UnorderedElementsAre;
namespace fs = std::filesystem;

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

} // namespace
} // namespace moxel::foldertree
