// Watching a file or a folder through notifications on the observation thread.
#include "Platform/FileEvents.h"
#include "Platform/Thread.h"
#include "Support/CapturedLog.h"
#include "Support/DescriptorShortage.h"
#include "Support/TemporaryFolder.h"
#include <Moxel/CFileObserver.h>
#include <Moxel/MoxelClient.h>

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <future>
#include <mutex>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace moxel {
namespace {

struct Change {
    int32_t reason;
    String fileName;
    String folderName;
    std::string thread;
};

/// Hears the notifications of one observer.
class Listener {
  public:
    explicit Listener(const CFileObserver &observer)
        : subscription_(NotificationCenter::defaultCenter().subscribe(
              observer.notificationString().view(), observer.observerInfo().get(),
              [heard = heard_](const Notification &notification) { heard->hear(notification); })) {}

    [[nodiscard]] std::vector<Change> changes() const {
        const std::lock_guard lock(heard_->mutex);
        return heard_->changes;
    }
    /// Waits for so many changes; false after 10 s.
    [[nodiscard]] bool waitFor(size_t count) {
        std::unique_lock lock(heard_->mutex);
        return heard_->changed.wait_for(lock, std::chrono::seconds(10),
                                        [&] { return heard_->changes.size() >= count; });
    }
    /// Waits for a change with that reason; false after 10 s.
    [[nodiscard]] bool waitForReason(int32_t reason) {
        std::unique_lock lock(heard_->mutex);
        return heard_->changed.wait_for(lock, std::chrono::seconds(10), [&] {
            return std::ranges::any_of(heard_->changes,
                                       [reason](const Change &change) { return change.reason == reason; });
        });
    }

  private:
    /// Shared with the subscription, which may be running when it is taken back.
    struct Heard {
        std::mutex mutex;
        std::condition_variable changed;
        std::vector<Change> changes;

        void hear(const Notification &notification) {
            const auto &info = dynamic_cast<const CFileObserverInfo &>(*notification.object);
            const std::lock_guard lock(mutex);
            changes.push_back(
                {info.eventReason(), info.fileName(), info.folderName(), Thread::current()->name()});
            changed.notify_all();
        }
    };

    std::shared_ptr<Heard> heard_ = std::make_shared<Heard>();
    NotificationSubscription subscription_;
};

class FileObserver : public ::testing::Test {
  protected:
    ~FileObserver() override { observer->stopObservation(); }

    static void write(const std::string &path, const std::string &text = "content") {
        std::ofstream(path) << text;
    }
    [[nodiscard]] std::string path(const std::string &name) const { return folder.path() + "/" + name; }
    /// Hands events to the observer as its stream does.
    void deliver(const std::vector<std::pair<std::string, uint32_t>> &events) {
        std::vector<const char *> paths;
        std::vector<uint32_t> flags;
        for (const auto &[eventPath, eventFlags] : events) {
            paths.push_back(eventPath.c_str());
            flags.push_back(eventFlags);
        }
        const std::vector<uint64_t> identifiers(events.size());
        fsEvtCallback(nullptr, observer.get(), events.size(), paths.data(), flags.data(), identifiers.data());
    }

    test::TemporaryFolder folder;
    std::shared_ptr<CFileObserver> observer = CFileObserver::init();
    Listener listener{*observer};
};

TEST_F(FileObserver, BeginsWithNothing) {
    EXPECT_EQ(observer->notificationString(), String("MxlFileChange"));
    EXPECT_FALSE(observer->isObserving());
    EXPECT_FALSE(observer->m_fileName());
    EXPECT_FALSE(observer->m_folderName());
    EXPECT_EQ(observer->observerInfo()->eventReason(), 0);
    EXPECT_FALSE(observer->observerInfo()->fileName());
    EXPECT_FALSE(observer->observerInfo()->folderName());
}

TEST(FileObserverWithoutDescriptors, IsNotMade) {
    test::CapturedLog log;
    std::shared_ptr<CFileObserver> observer;
    {
        const test::DescriptorShortage shortage;
        observer = CFileObserver::init();
    }
    EXPECT_EQ(observer, nullptr);
    EXPECT_TRUE(log.has("ERROR initializing kqueue()!!"));
}

TEST_F(FileObserver, AFolderIsNoFile) {
    test::CapturedLog log;
    EXPECT_FALSE(observer->observeFile(folder.path()));
    EXPECT_EQ(log.lines(), (std::vector<std::string>{"Error: " + folder.path() +
                                                     " is a directory! Please provide a file!"}));
    EXPECT_FALSE(observer->isObserving());
}

TEST_F(FileObserver, AFileThatDoesNotExistYetIsReportedWhenItIsCreated) {
    EXPECT_TRUE(observer->observeFile(path("settings.plist")));
    EXPECT_TRUE(observer->isObserving());
    EXPECT_EQ(observer->m_fileName(), String("settings.plist"));
    EXPECT_EQ(observer->m_folderName(), String(folder.path()));
    write(path("settings.plist"));
    ASSERT_TRUE(listener.waitFor(1));
    const Change change = listener.changes()[0];
    EXPECT_EQ(change.reason, 2);
    EXPECT_EQ(change.fileName, String("settings.plist"));
    EXPECT_EQ(change.folderName, String(folder.path()));
    EXPECT_EQ(change.thread, "Mxl-FileChangeObserver");
}

TEST_F(FileObserver, DeletingTheFileIsReportedAsReason1AndLogged) {
    test::CapturedLog log;
    write(path("settings.plist"));
    ASSERT_TRUE(observer->observeFile(path("settings.plist")));
    std::filesystem::remove(path("settings.plist"));
    ASSERT_TRUE(listener.waitForReason(1));
    EXPECT_TRUE(log.has("Observer - > file removed"));
}

TEST_F(FileObserver, AnotherFileOfTheFolderPostsNothing) {
    const auto others = {"other.plist", "settings.plist.tmp", "sub/settings.plist"};
    std::filesystem::create_directory(path("sub"));
    for (const char *other : others)
        write(path(other));
    ASSERT_TRUE(observer->observeFile(path("settings.plist")));
    // Removals, because every notification names the watched file: the reason alone tells whose change it is.
    for (const char *other : others)
        std::filesystem::remove(path(other));
    write(path("settings.plist"));
    ASSERT_TRUE(listener.waitFor(1));
    EXPECT_EQ(listener.changes()[0].reason, 2);
}

TEST_F(FileObserver, ChangingAndTouchingTheFileIsReason2) {
    write(path("settings.plist"));
    ASSERT_TRUE(observer->observeFile(path("settings.plist")));
    write(path("settings.plist"), "changed");
    ASSERT_TRUE(listener.waitFor(1));
    const size_t before = listener.changes().size();
    ASSERT_EQ(::chmod(path("settings.plist").c_str(), 0600), 0);
    ASSERT_TRUE(listener.waitFor(before + 1));
    for (const Change &change : listener.changes())
        EXPECT_EQ(change.reason, 2);
}

TEST_F(FileObserver, AFileMovedIntoPlaceIsReason2) {
    write(path("new"));
    ASSERT_TRUE(observer->observeFile(path("settings.plist")));
    std::filesystem::rename(path("new"), path("settings.plist"));
    ASSERT_TRUE(listener.waitFor(1));
    EXPECT_EQ(listener.changes()[0].reason, 2);
}

TEST_F(FileObserver, AFolderPostsForEveryEventInItWithoutAFileName) {
    ASSERT_TRUE(observer->observeFolder(folder.path()));
    EXPECT_FALSE(observer->m_fileName());
    write(path("one"));
    ASSERT_TRUE(listener.waitFor(1));
    const size_t before = listener.changes().size();
    write(path("two"));
    ASSERT_TRUE(listener.waitFor(before + 1));
    for (const Change &change : listener.changes()) {
        EXPECT_FALSE(change.fileName);
        EXPECT_EQ(change.folderName, String(folder.path()));
    }
}

TEST_F(FileObserver, AFileGivenAsAFolderIsRefusedOnlyWhenItIsMissing) {
    test::CapturedLog log;
    write(path("file"));
    EXPECT_TRUE(observer->observeFolder(path("file")));
    EXPECT_TRUE(log.has("Warning: " + path("file") + " - is a file path! Stripping file information."));
    EXPECT_EQ(observer->m_folderName(), String(folder.path()));
    EXPECT_FALSE(observer->m_fileName());
}

TEST_F(FileObserver, AMissingFolderIsRefusedWithItsLine) {
    test::CapturedLog log;
    EXPECT_FALSE(observer->observeFolder(path("missing")));
    EXPECT_EQ(log.lines(), (std::vector<std::string>{"No such folder " + path("missing") + " !"}));
    EXPECT_FALSE(observer->observeFile(path("missing/settings.plist")));
    EXPECT_FALSE(observer->isObserving());
    EXPECT_FALSE(observer->observeFolder(nullptr));
    EXPECT_FALSE(observer->observeFile(nullptr));
}

TEST_F(FileObserver, AfterStoppingItStillReadsObservingButObservesNothing) {
    std::promise<void> ended;
    NotificationSubscription subscription = NotificationCenter::defaultCenter().subscribe(
        threadWillExitNotification, nullptr, [&ended](const Notification &notification) {
            if (dynamic_cast<const Thread &>(*notification.object).name() == "Mxl-FileChangeObserver")
                ended.set_value();
        });
    ASSERT_TRUE(observer->observeFolder(folder.path()));
    observer->stopObservation();
    ended.get_future().wait();
    subscription.reset(); // The thread of the witness below ends, too.
    EXPECT_TRUE(observer->isObserving());
    test::TemporaryFolder other;
    EXPECT_TRUE(observer->observeFolder(other.path()));
    EXPECT_EQ(observer->m_folderName(), String(other.path()));
    // Another observer of that folder tells when this one would have been told.
    const std::shared_ptr<CFileObserver> witness = CFileObserver::init();
    Listener heard(*witness);
    ASSERT_TRUE(witness->observeFolder(other.path()));
    for (const char *name : {"/one", "/two"}) {
        const size_t before = heard.changes().size();
        write(other.path() + name);
        write(folder.path() + name);
        EXPECT_TRUE(heard.waitFor(before + 1));
    }
    witness->stopObservation();
    EXPECT_TRUE(listener.changes().empty());
}

TEST_F(FileObserver, ASecondCallWhileObservingOnlyRenamesTheFolder) {
    ASSERT_TRUE(observer->observeFolder(folder.path()));
    test::TemporaryFolder other;
    EXPECT_TRUE(observer->observeFolder(other.path()));
    write(path("file"));
    ASSERT_TRUE(listener.waitFor(1));
    EXPECT_EQ(listener.changes()[0].folderName, String(other.path()));
}

TEST_F(FileObserver, MayBeStoppedInsideItsOwnNotification) {
    // Lives as long as the callback, which may still be on its way out when this test is over.
    struct Stop {
        std::promise<void> promise;
        std::once_flag once; // The file's later changes may still be told.
    };
    const auto stop = std::make_shared<Stop>();
    auto stopped = stop->promise.get_future();
    const auto stopper = NotificationCenter::defaultCenter().subscribe(
        "MxlFileChange", observer->observerInfo().get(),
        [stop, running = observer.get()](const Notification &) {
            running->stopObservation();
            std::call_once(stop->once, [&stop] { stop->promise.set_value(); });
        });
    ASSERT_TRUE(observer->observeFolder(folder.path()));
    write(path("file"));
    EXPECT_EQ(stopped.wait_for(std::chrono::seconds(10)), std::future_status::ready);
}

TEST_F(FileObserver, FlagsAreTestedInTheirOrder) {
    observer->setM_folderName("/watched");
    deliver(
        {{"/watched/a", fileEventRemoved | fileEventCreated | fileEventModified | fileEventMetadataChanged},
         {"/watched/a", fileEventMetadataChanged},
         {"/watched/a", fileEventCreated},
         {"/watched/a", fileEventModified},
         {"/watched/a", fileEventCreated | fileEventRenamed},
         {"/watched/a", fileEventRenamed},
         {"/watched/a", 0x4000},
         {"/watched/a", 0}});
    std::vector<int32_t> reasons;
    for (const Change &change : listener.changes())
        reasons.push_back(change.reason);
    EXPECT_EQ(reasons, (std::vector<int32_t>{1, 2, 2, 2, 2}));
    EXPECT_EQ(observer->observerInfo()->eventReason(), 0) << "between notifications there is no event";
}

TEST_F(FileObserver, OnlyTheFileDirectlyInTheFolderPasses) {
    observer->setM_folderName("/watched");
    observer->setM_fileName("file");
    deliver({{"/watched/file", fileEventCreated},
             {"/watchedfile", fileEventCreated}, // No slash stands there, none is skipped.
             {"/watched/sub/file", fileEventCreated},
             {"/watched/file2", fileEventCreated},
             {"/watched/", fileEventCreated},
             {"/watched", fileEventCreated},
             {"/other/file", fileEventCreated},
             {"/w", fileEventCreated}});
    EXPECT_EQ(listener.changes().size(), 2U);
}

TEST_F(FileObserver, NullArgumentsOfTheCallbackAreIgnored) {
    fsEvtCallback(nullptr, nullptr, 1, nullptr, nullptr, nullptr);
    fsEvtCallback(nullptr, observer.get(), 1, nullptr, nullptr, nullptr);
    EXPECT_TRUE(listener.changes().empty());
}

} // namespace
} // namespace moxel
