// The thread that reads for all devices, when there is no memory for what it reads.
#include "Moxel Daemon/Kernel/UhidReader.h"
#include "Support/Await.h"
#include "Support/CapturedLog.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <memory>
#include <new>
#include <sys/socket.h>
#include <unistd.h>

namespace moxel::daemon {
namespace {

using Clock = std::chrono::steady_clock;

/// Takes a byte at a time, and has no memory for a while.
class ShortOfMemory final : public UhidReader::Inbox {
  public:
    explicit ShortOfMemory(int failures) : failures_(failures) {
        int ends[2];
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends), 0);
        device_.reset(ends[0]);
        kernel_.reset(ends[1]);
    }

    void tell() const { EXPECT_EQ(::send(kernel_.get(), "", 1, MSG_NOSIGNAL), 1); }

    [[nodiscard]] int descriptor() const noexcept override { return device_.get(); }
    [[nodiscard]] bool drain() override {
        asked.change([](int &times) { ++times; });
        if (failures_ > 0) {
            --failures_;
            throw std::bad_alloc();
        }
        std::array<char, 8> bytes{};
        while (::read(device_.get(), bytes.data(), bytes.size()) > 0)
            taken.change([](int &count) { ++count; });
        return true;
    }

    test::Awaited<int> asked;
    test::Awaited<int> taken;

  private:
    std::atomic<int> failures_;
    Descriptor device_;
    Descriptor kernel_;
};

constexpr int forEver = 1'000'000;

class DaemonUhidReader : public ::testing::Test {
  protected:
    test::CapturedLog log;
    std::shared_ptr<UhidReader> reader = *UhidReader::start();
};

TEST_F(DaemonUhidReader, AsksAgainAfterAPauseWhileThereIsNoMemory) {
    constexpr int failures = 3;
    const auto inbox = std::make_shared<ShortOfMemory>(failures);
    const auto start = Clock::now();
    inbox->tell();
    ASSERT_TRUE(reader->add(inbox).ok());
    EXPECT_TRUE(inbox->taken.awaitValue(1));
    EXPECT_GE(Clock::now() - start, failures * UhidReader::shortagePause);
    EXPECT_EQ(log.countContaining("there is no memory for it"), 1U);
    reader->remove(*inbox);
}

TEST_F(DaemonUhidReader, OthersAreReadMeanwhile) {
    const auto inbox = std::make_shared<ShortOfMemory>(forEver);
    inbox->tell();
    ASSERT_TRUE(reader->add(inbox).ok());
    ASSERT_TRUE(inbox->asked.await([](int times) { return times > 0; }));
    const auto other = std::make_shared<ShortOfMemory>(0);
    ASSERT_TRUE(reader->add(other).ok());
    for (int count = 1; count <= 20; ++count) {
        other->tell();
        ASSERT_TRUE(other->taken.awaitValue(count));
    }
    EXPECT_EQ(log.countContaining("there is no memory for it"), 1U);
    reader->remove(*inbox);
    reader->remove(*other);
}

TEST_F(DaemonUhidReader, EachShortageIsLogged) {
    for (size_t round = 1; round <= 2; ++round) {
        const auto inbox = std::make_shared<ShortOfMemory>(2);
        inbox->tell();
        ASSERT_TRUE(reader->add(inbox).ok());
        ASSERT_TRUE(inbox->taken.awaitValue(1));
        EXPECT_EQ(log.countContaining("there is no memory for it"), round);
        reader->remove(*inbox);
    }
}

TEST_F(DaemonUhidReader, EndsWhileThereIsNoMemory) {
    const auto inbox = std::make_shared<ShortOfMemory>(forEver);
    inbox->tell();
    ASSERT_TRUE(reader->add(inbox).ok());
    ASSERT_TRUE(inbox->asked.await([](int times) { return times > 1; }));
    const auto start = Clock::now();
    reader.reset();
    EXPECT_LT(Clock::now() - start, test::patience);
}

} // namespace
} // namespace moxel::daemon
