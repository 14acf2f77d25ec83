// Messages in storage slot 0: how they are cut into packets, and when the next packet comes.
#include "Moxel Daemon/Protocol/DataOutbox.h"
#include "Daemon/RawClient.h"
#include "Platform/RunLoop.h"
#include "Support/CapturedLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace moxel::daemon {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Announcements = std::vector<std::pair<int, bool>>;

TEST(DaemonPackets, ShortArchiveIsOnePacket) {
    const auto packets = packetsOf({7, 8, 9}, 2042, true, {});
    ASSERT_EQ(packets.size(), 1U);
    EXPECT_EQ(packets[0].bytes, (Bytes{2, 0, 3, 0, 1, 1, 7, 8, 9}));
    EXPECT_EQ(packets[0].announcedSize, 9);
    EXPECT_TRUE(packets[0].wantsAnswer);
}

TEST(DaemonPackets, LongArchiveIsCutAt2042Bytes) {
    const auto packets = packetsOf(Data(2 * 2042 + 1, 'x'), 5000, false, {});
    ASSERT_EQ(packets.size(), 3U);
    const Bytes head = {2, 0, 0xFA, 0x07, 0, 3};
    EXPECT_EQ(packets[0].bytes, head + Bytes(2042, 'x'));
    EXPECT_EQ(packets[0].announcedSize, 2048);
    EXPECT_EQ(packets[1].bytes, head + Bytes(2042, 'x'));
    EXPECT_EQ(packets[2].bytes, (Bytes{2, 0, 1, 0, 1, 3, 'x'}));
    EXPECT_FALSE(packets[2].wantsAnswer);
    EXPECT_EQ(packetsOf(Data(2 * 2042, 'x'), 2042, false, {}).size(), 2U);
}

TEST(DaemonPackets, CountOfPacketsEndsAt255) {
    const auto packets = packetsOf(Data(300), 1, false, {});
    ASSERT_EQ(packets.size(), 300U);
    EXPECT_EQ(packets[299].bytes, (Bytes{2, 0, 1, 0, 1, 255, 0}));
}

TEST(DaemonPackets, FaultsChangeThem) {
    Faults faults;
    faults.announcedSize = 2049;
    faults.payloadLength = 9999;
    faults.dataID = 3;
    const auto packets = packetsOf({7}, 2042, true, faults);
    ASSERT_EQ(packets.size(), 1U);
    EXPECT_EQ(packets[0].bytes, (Bytes{3, 0, 0x0F, 0x27, 1, 1, 7}));
    EXPECT_EQ(packets[0].announcedSize, 2049);
    faults = {};
    faults.noLastPacket = true;
    EXPECT_EQ(packetsOf({7, 8}, 1, true, faults).size(), 1U);
    EXPECT_TRUE(packetsOf({7}, 1, true, faults).empty());
}

class DaemonOutbox : public ::testing::Test {
  protected:
    static std::vector<OutgoingPacket> message(std::initializer_list<uint8_t> packets, bool wantsAnswer) {
        std::vector<OutgoingPacket> result;
        for (const uint8_t content : packets)
            result.push_back({Data{content}, 1, wantsAnswer});
        return result;
    }
    DataOutbox &make(std::chrono::milliseconds timeout = 1h) {
        outbox_.emplace(*loop_, timeout, [this](uint16_t size, bool wantsAnswer) {
            announced.emplace_back(size, wantsAnswer);
        });
        return *outbox_;
    }
    /// Runs the loop until so many announcements have been made.
    void awaitAnnouncements(size_t count) {
        while (announced.size() < count)
            ASSERT_TRUE(loop_->runOneSource(patience));
    }

    test::CapturedLog log;
    Announcements announced;

  private:
    std::shared_ptr<RunLoop> loop_ = *RunLoop::current();
    std::optional<DataOutbox> outbox_;
};

TEST_F(DaemonOutbox, NextPacketComesWhenTheLastWasRead) {
    DataOutbox &outbox = make();
    EXPECT_FALSE(outbox.content());
    ASSERT_TRUE(outbox.send(message({1, 2}, false)));
    ASSERT_TRUE(outbox.send(message({3}, false)));
    EXPECT_EQ(announced.size(), 1U);
    outbox.wasAcknowledged();
    EXPECT_EQ(announced.size(), 1U) << "an acknowledgement that was not asked for";
    for (const uint8_t content : Data{1, 2, 3}) {
        EXPECT_EQ(outbox.content(), Data{content});
        outbox.wasRead();
    }
    EXPECT_EQ(announced.size(), 3U);
    EXPECT_TRUE(outbox.isIdle());
    EXPECT_FALSE(outbox.content());
}

TEST_F(DaemonOutbox, NextPacketWaitsForTheAcknowledgementThatWasAskedFor) {
    DataOutbox &outbox = make();
    ASSERT_TRUE(outbox.send(message({1, 2}, true)));
    outbox.wasAcknowledged();
    EXPECT_EQ(announced.size(), 1U) << "acknowledged before it was read";
    EXPECT_EQ(outbox.content(), Data{1});
    outbox.wasRead();
    EXPECT_EQ(outbox.content(), Data{1}) << "still in the slot";
    outbox.wasRead();
    EXPECT_EQ(announced.size(), 1U);
    outbox.wasAcknowledged();
    EXPECT_THAT(announced, ElementsAre(std::pair(1, true), std::pair(1, true)));
    EXPECT_EQ(outbox.content(), Data{2});
}

TEST_F(DaemonOutbox, MessageThatIsNotReadIsDroppedInTime) {
    DataOutbox &outbox = make(1ms);
    ASSERT_TRUE(outbox.send(message({1, 2, 3}, true)));
    ASSERT_TRUE(outbox.send(message({4}, true)));
    awaitAnnouncements(2);
    EXPECT_EQ(outbox.content(), Data{4});
    EXPECT_EQ(log.countContaining("does not read a data packet"), 1U);
}

TEST_F(DaemonOutbox, MissingAcknowledgementDoesNotStopTheMessage) {
    DataOutbox &outbox = make(1ms);
    ASSERT_TRUE(outbox.send(message({1, 2}, true)));
    EXPECT_EQ(outbox.content(), Data{1});
    awaitAnnouncements(2);
    EXPECT_EQ(outbox.content(), Data{2});
    EXPECT_EQ(log.countContaining("does not acknowledge a data packet"), 1U);
}

TEST_F(DaemonOutbox, AnnouncementsThatNoClientFollowsAreNotWaitedFor) {
    DataOutbox &outbox = make();
    for (const uint16_t size : std::vector<uint16_t>{0, 2049, 65535})
        ASSERT_TRUE(outbox.send({{Data{1}, size, true}}));
    ASSERT_TRUE(outbox.send({{Data{2}, 2048, true}}));
    EXPECT_THAT(announced, ElementsAre(std::pair(0, true), std::pair(2049, true), std::pair(65535, true),
                                       std::pair(2048, true)));
    EXPECT_EQ(outbox.content(), Data{2});
}

TEST_F(DaemonOutbox, QueueIsBounded) {
    DataOutbox &outbox = make();
    const auto big = [] { return std::vector<OutgoingPacket>{{Data(DataOutbox::queueLimit / 2), 8, true}}; };
    EXPECT_TRUE(outbox.send(big())) << "goes to the slot";
    EXPECT_TRUE(outbox.send(big()));
    EXPECT_FALSE(outbox.send(big()));
    (void)outbox.content();
    outbox.wasAcknowledged();
    EXPECT_TRUE(outbox.send(big())) << "there is room again";
}

TEST_F(DaemonOutbox, EmptyMessageIsNothing) {
    DataOutbox &outbox = make();
    EXPECT_TRUE(outbox.send({}));
    EXPECT_THAT(announced, IsEmpty());
    EXPECT_TRUE(outbox.isIdle());
}

} // namespace
} // namespace moxel::daemon
