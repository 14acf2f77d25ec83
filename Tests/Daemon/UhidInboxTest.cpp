// What waits between the kernel and the daemon, with the reader's part done by hand.
#include "Moxel Daemon/Kernel/UhidInbox.h"
#include "Platform/Linux/Descriptor.h"
#include "Platform/RunLoop.h"
#include "Support/Await.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <sys/socket.h>
#include <vector>

namespace moxel::daemon {
namespace {

class DaemonUhidInbox : public ::testing::Test, protected UhidInbox::Listener {
  protected:
    DaemonUhidInbox() {
        int ends[2];
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends), 0);
        device.reset(ends[0]);
        kernel.reset(ends[1]);
        UhidInbox::Listener &listener = *this;
        inbox = std::make_shared<UhidInbox>(device.get(), listener);
    }
    ~DaemonUhidInbox() override { inbox->close(); }

    void received(std::span<const uint8_t> message) override { numbers.push_back(message[0]); }
    void overflowed() override { told.emplace_back("overflowed"); }
    void hasRoom() override { told.emplace_back("has room"); }
    void ended() override { told.emplace_back("ended"); }

    /// True when the inbox takes more.
    bool tell(size_t number) {
        const auto byte = static_cast<uint8_t>(number);
        EXPECT_EQ(::send(kernel.get(), &byte, 1, MSG_NOSIGNAL), 1);
        return inbox->drain();
    }
    void fill() {
        for (size_t count = 0; count < UhidInbox::limit; ++count)
            numbersTold.push_back(static_cast<uint8_t>(count));
        for (size_t count = 0; count + 1 < UhidInbox::limit; ++count)
            ASSERT_TRUE(tell(count)) << count;
        ASSERT_FALSE(tell(UhidInbox::limit - 1)) << "what comes stays with the kernel";
    }
    void runUntilServed(size_t count) {
        while (numbers.size() < count)
            ASSERT_TRUE(loop->runOneSource(test::patience)) << "nothing happens any more";
    }

    std::shared_ptr<RunLoop> loop = *RunLoop::current();
    Descriptor device;
    Descriptor kernel;
    std::shared_ptr<UhidInbox> inbox;
    std::vector<uint8_t> numbers;
    std::vector<uint8_t> numbersTold;
    std::vector<std::string> told;
};

TEST_F(DaemonUhidInbox, ServesATurnAtATime) {
    fill();
    ASSERT_TRUE(loop->runOneSource(test::patience));
    EXPECT_EQ(numbers.size(), UhidInbox::servedPerTurn);
    ASSERT_TRUE(loop->runOneSource(test::patience));
    EXPECT_EQ(numbers.size(), 2 * UhidInbox::servedPerTurn);
}

TEST_F(DaemonUhidInbox, FullOneAsksForMoreWhenHalfOfItIsServed) {
    fill();
    runUntilServed(UhidInbox::limit / 2 - 1);
    EXPECT_EQ(told, std::vector<std::string>{"has room"}) << "it was full, and nothing more had come";
    EXPECT_TRUE(inbox->drain());
    runUntilServed(UhidInbox::limit);
    EXPECT_EQ(numbers, numbersTold);
    EXPECT_EQ(told.size(), 1U);
}

TEST_F(DaemonUhidInbox, TellsOfEachOverflow) {
    for (int round = 0; round < 2; ++round) {
        numbers.clear();
        told.clear();
        fill();
        EXPECT_FALSE(tell(0));
        runUntilServed(UhidInbox::limit);
        EXPECT_EQ(told, (std::vector<std::string>{"overflowed", "has room"}));
        EXPECT_TRUE(inbox->drain());
        runUntilServed(UhidInbox::limit + 1);
    }
}

TEST_F(DaemonUhidInbox, EndComesAfterWhatWasTold) {
    ASSERT_TRUE(tell(7));
    kernel.reset();
    EXPECT_FALSE(inbox->drain());
    while (told.empty())
        ASSERT_TRUE(loop->runOneSource(test::patience));
    EXPECT_EQ(numbers, std::vector<uint8_t>{7});
    EXPECT_EQ(told, std::vector<std::string>{"ended"});
    EXPECT_FALSE(inbox->drain());
    while (loop->runOneSource(RunLoop::Seconds(0))) {
    }
    EXPECT_EQ(told.size(), 1U);
}

TEST_F(DaemonUhidInbox, ClosedOneReadsAndServesNothing) {
    ASSERT_TRUE(tell(7));
    inbox->close();
    EXPECT_FALSE(tell(8));
    while (loop->runOneSource(RunLoop::Seconds(0))) {
    }
    EXPECT_TRUE(numbers.empty());
    EXPECT_TRUE(told.empty());
}

} // namespace
} // namespace moxel::daemon
