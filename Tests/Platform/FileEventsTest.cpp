// The stream of file events on a run loop.
#include "Platform/FileEvents.h"
#include "Platform/Linux/Descriptor.h"
#include "Platform/RunLoop.h"
#include "Support/ChildProcess.h"
#include "Support/Namespaces.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <thread>

namespace moxel {
namespace {

using test::ChildProgram;
using test::TemporaryFolder;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::Ge;
using ::testing::IsEmpty;
using ::testing::Lt;
using ::testing::SizeIs;
using Clock = std::chrono::steady_clock;
using Seconds = RunLoop::Seconds;
namespace fs = std::filesystem;

struct Event {
    std::string path;
    uint32_t flags = 0;
    uint64_t identifier = 0;
    bool operator==(const Event &other) const { return path == other.path && flags == other.flags; }
};

void PrintTo(const Event &event, std::ostream *stream) {
    *stream << event.path << " 0x" << std::hex << event.flags;
}

/// A stream and what it delivers.
class Receiver {
  public:
    explicit Receiver(std::vector<std::string> folders, Seconds latency = Seconds(0.1))
        : loop_(*RunLoop::current()),
          stream_(*FileEventStream::create(std::move(folders), latency, &Receiver::received, this)) {
        EXPECT_TRUE(stream_->start(*loop_).ok());
    }

    /// Runs the loop until that many events have come, or no more come for long.
    std::vector<Event> waitFor(size_t count) {
        const auto deadline = Clock::now() + std::chrono::seconds(30);
        while (events_.size() < count && Clock::now() < deadline)
            loop_->runOneSource(Seconds(1));
        return std::exchange(events_, {});
    }

    RunLoop &loop() { return *loop_; }
    FileEventStream &stream() { return *stream_; }
    int deliveries() const { return deliveries_; }
    bool deliveredBySelf() const { return deliveredBySelf_; }

  private:
    static void received(FileEventStream *stream, void *context, size_t count, const char *const *paths,
                         const uint32_t *flags, const uint64_t *identifiers) {
        auto &self = *static_cast<Receiver *>(context);
        ++self.deliveries_;
        self.deliveredBySelf_ = stream == self.stream_.get();
        for (size_t i = 0; i < count; ++i)
            self.events_.push_back({paths[i], flags[i], identifiers[i]});
    }

    std::shared_ptr<RunLoop> loop_;
    std::vector<Event> events_;
    int deliveries_ = 0;
    bool deliveredBySelf_ = false;
    std::unique_ptr<FileEventStream> stream_;
};

/// Runs a test's body on a thread with a loop of its own.
void onFreshLoop(const std::function<void()> &body) { std::thread(body).join(); }

TEST(FileEventStream, DeliversInOrderWithGrowingIdentifiers) {
    onFreshLoop([] {
        const TemporaryFolder folder;
        const std::string old = folder.write("old", "text");
        Receiver receiver({folder.path()});
        const std::string fresh = folder.write("new", "text");
        fs::remove(old);
        const std::string again = folder.write("old");
        auto events = receiver.waitFor(3);
        const std::vector<Event> expected{{fresh, fileEventCreated | fileEventModified},
                                          {old, fileEventRemoved},
                                          {again, fileEventCreated | fileEventModified}};
        ASSERT_EQ(events, expected);
        EXPECT_TRUE(receiver.deliveredBySelf());
        EXPECT_EQ(receiver.deliveries(), 1);
        fs::remove(fresh);
        events.push_back(receiver.waitFor(1).at(0));
        EXPECT_TRUE(std::ranges::is_sorted(events, std::ranges::less_equal{}, &Event::identifier));
        EXPECT_EQ(std::ranges::adjacent_find(events, {}, &Event::identifier), events.end());
        EXPECT_EQ(receiver.deliveries(), 2);
    });
}

TEST(FileEventStream, GathersEventsForTheLatency) {
    onFreshLoop([] {
        const TemporaryFolder folder;
        Receiver receiver({folder.path()}, Seconds(1));
        const auto start = Clock::now();
        folder.write("first");
        EXPECT_TRUE(receiver.loop().runOneSource(Seconds(10))); // reads the first event
        EXPECT_EQ(receiver.deliveries(), 0);
        folder.write("second");
        EXPECT_THAT(receiver.waitFor(2), SizeIs(2));
        EXPECT_EQ(receiver.deliveries(), 1);
        EXPECT_GE(Clock::now() - start, std::chrono::seconds(1));
    });
}

/// Lets the loop run for `time`. It may wake: the folders above the watched one are other programs' as well.
void runFor(RunLoop &loop, Seconds time) {
    const auto end = std::chrono::steady_clock::now() + time;
    while (std::chrono::steady_clock::now() < end)
        (void)loop.runOneSource(end - std::chrono::steady_clock::now());
}

TEST(FileEventStream, NothingToDoIsNotDelivered) {
    onFreshLoop([] {
        const TemporaryFolder folder;
        Receiver receiver({folder.path()}, Seconds(0.01));
        runFor(receiver.loop(), Seconds(0.05));
        EXPECT_EQ(receiver.deliveries(), 0);
        folder.write("file");
        EXPECT_THAT(receiver.waitFor(1), SizeIs(1));
        runFor(receiver.loop(), Seconds(0.1));
        EXPECT_EQ(receiver.deliveries(), 1);
    });
}

TEST(FileEventStream, WatchesSeveralFoldersEvenInsideEachOther) {
    onFreshLoop([] {
        const TemporaryFolder folder;
        fs::create_directories(folder.path("outer/inner"));
        fs::create_directories(folder.path("other"));
        Receiver receiver({folder.path("outer/"), folder.path("outer/inner"), folder.path("other")});
        fs::create_directory(folder.path("other/a"));
        fs::create_directory(folder.path("outer/inner/b"));
        const std::vector<Event> expected{{folder.path("other/a"), fileEventCreated},
                                          {folder.path("outer/inner/b"), fileEventCreated}};
        EXPECT_EQ(receiver.waitFor(2), expected); // what both tell is told once
        fs::remove(folder.path("outer/inner/b"));
        fs::remove(folder.path("outer/inner"));
        fs::remove(folder.path("outer"));
        fs::create_directories(folder.path("outer/inner"));
        std::vector<Event> last;
        while (last.empty() || !(last.back() == Event{folder.path("outer/inner"), fileEventCreated})) {
            last = receiver.waitFor(1);
            ASSERT_THAT(last, ::testing::Not(IsEmpty()));
        }
    });
}

TEST(FileEventStream, ReportsAFolderThatIsMadeLater) {
    onFreshLoop([] {
        const TemporaryFolder folder;
        Receiver receiver({folder.path("later")});
        folder.write("later/file");
        const std::vector<Event> expected{{folder.path("later"), fileEventCreated},
                                          {folder.path("later/file"), fileEventCreated}};
        EXPECT_EQ(receiver.waitFor(2), expected);
    });
}

TEST(FileEventStream, ReportsFilesOfOtherProcesses) {
    onFreshLoop([] {
        const TemporaryFolder folder;
        Receiver receiver({folder.path()});
        test::ChildProcess child({"mkdir", folder.path("made elsewhere")});
        EXPECT_EQ(receiver.waitFor(1),
                  (std::vector<Event>{{folder.path("made elsewhere"), fileEventCreated}}));
    });
}

TEST(FileEventStream, AStormOfEventsIsNotHeldBack) {
    onFreshLoop([] {
        const TemporaryFolder folder;
        const std::string files[] = {folder.write("a"), folder.write("b")};
        Receiver receiver({folder.path()}, Seconds(3600));
        for (int i = 0; i < 20'000; ++i) {
            ASSERT_EQ(::chmod(files[i % 2].c_str(), 0600), 0);
            if (i % 2000 == 0) {
                EXPECT_TRUE(receiver.loop().runOneSource(Seconds(30)));
            }
        }
        EXPECT_EQ(receiver.deliveries(), 1);
    });
}

struct SelfDestroying {
    std::unique_ptr<FileEventStream> stream;
    int deliveries = 0;
    static void received(FileEventStream *, void *context, size_t, const char *const *, const uint32_t *,
                         const uint64_t *) {
        auto &self = *static_cast<SelfDestroying *>(context);
        ++self.deliveries;
        self.stream.reset();
    }
};

TEST(FileEventStream, MayBeDestroyedByItsCallback) {
    onFreshLoop([] {
        const TemporaryFolder folder;
        const auto loop = *RunLoop::current();
        SelfDestroying receiver;
        receiver.stream =
            *FileEventStream::create({folder.path()}, Seconds(0.01), &SelfDestroying::received, &receiver);
        ASSERT_TRUE(receiver.stream->start(*loop).ok());
        folder.write("one");
        while (receiver.stream)
            ASSERT_TRUE(loop->runOneSource(Seconds(30)));
        folder.write("two");
        EXPECT_FALSE(loop->runOneSource(Seconds(0.05)));
        EXPECT_EQ(receiver.deliveries, 1);
    });
}

TEST(FileEventStream, EndsWithEventsStillToDeliver) {
    onFreshLoop([] {
        const TemporaryFolder folder;
        const auto loop = *RunLoop::current();
        {
            Receiver receiver({folder.path()}, Seconds(0.02));
            folder.write("file");
            EXPECT_TRUE(loop->runOneSource(Seconds(10)));
            EXPECT_EQ(receiver.deliveries(), 0);
        }
        EXPECT_FALSE(loop->runOneSource(Seconds(0.06)));
    });
}

TEST(FileEventStream, SaysNothingBeforeItIsStarted) {
    onFreshLoop([] {
        const TemporaryFolder folder;
        const auto loop = *RunLoop::current();
        SelfDestroying receiver;
        receiver.stream =
            *FileEventStream::create({folder.path()}, Seconds(0), &SelfDestroying::received, &receiver);
        folder.write("before");
        ASSERT_TRUE(receiver.stream->start(*loop).ok());
        runFor(*loop, Seconds(0.05));
        EXPECT_EQ(receiver.deliveries, 0);
        folder.write("after");
        while (receiver.stream)
            ASSERT_TRUE(loop->runOneSource(Seconds(30)));
        EXPECT_EQ(receiver.deliveries, 1);
    });
}

TEST(FileEventStream, StartsOnce) {
    onFreshLoop([] {
        const TemporaryFolder folder;
        Receiver receiver({folder.path()});
        EXPECT_FALSE(receiver.stream().start(receiver.loop()).ok());
    });
}

TEST(FileEventStream, NeedsFoldersToWatch) {
    const auto ignore = [](FileEventStream *, void *, size_t, const char *const *, const uint32_t *,
                           const uint64_t *) {};
    EXPECT_FALSE(FileEventStream::create({}, Seconds(0.1), ignore, nullptr).ok());
    EXPECT_FALSE(FileEventStream::create({""}, Seconds(0.1), ignore, nullptr).ok());
    EXPECT_FALSE(FileEventStream::create({std::string("/tmp\0x", 6)}, Seconds(0.1), ignore, nullptr).ok());
}

const ChildProgram createWithoutInotify("createWithoutInotify", [] {
    std::ofstream limit("/proc/sys/user/max_inotify_instances");
    limit << "0" << std::flush;
    if (!limit)
        ChildProgram::skip("the number of inotify instances cannot be limited");
    const auto ignore = [](FileEventStream *, void *, size_t, const char *const *, const uint32_t *,
                           const uint64_t *) {};
    const auto stream = FileEventStream::create({"/tmp"}, Seconds(0.1), ignore, nullptr);
    ASSERT_FALSE(stream.ok());
    EXPECT_EQ(stream.error().code, EMFILE);
});

TEST(FileEventStream, CannotBeMadeWhenTheSystemIsShortOfIt) {
    if (!test::canMakeNamespaces())
        GTEST_SKIP() << "no user namespaces here";
    createWithoutInotify.run({}, ChildProgram::Place::ownNamespaces);
}

} // namespace
} // namespace moxel
