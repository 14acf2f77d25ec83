// Slices of raw messages, joined.
#include "Moxel Daemon/Protocol/MessageJoiner.h"
#include "Daemon/RawClient.h"

#include <gtest/gtest.h>

namespace moxel::daemon {
namespace {

using namespace std::chrono_literals;

class DaemonMessageJoiner : public ::testing::Test {
  protected:
    MessageJoiner &make(std::chrono::milliseconds timeout = patience) {
        joiner_.emplace(*loop_, timeout,
                        [this](ReceivedMessage message) { messages.push_back(std::move(message)); });
        return *joiner_;
    }
    static ReceivedRequest slice(const Bytes &bytes, bool continues, bool mayGoOn) {
        ReceivedRequest block;
        block.channelID = 5;
        block.clientID = 6;
        block.bytes = bytes;
        block.continues = continues;
        block.mayGoOn = mayGoOn;
        return block;
    }
    /// The messages' bytes.
    [[nodiscard]] std::vector<Bytes> contents() const {
        std::vector<Bytes> contents;
        for (const ReceivedMessage &message : messages)
            contents.push_back(message.bytes);
        return contents;
    }

    std::shared_ptr<RunLoop> loop_ = *RunLoop::current();
    std::vector<ReceivedMessage> messages;
    std::optional<MessageJoiner> joiner_;
};

TEST_F(DaemonMessageJoiner, LoneBlockIsAMessage) {
    make().take(slice({1, 2}, false, false));
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_EQ(messages[0].bytes, (Bytes{1, 2}));
    EXPECT_EQ(messages[0].slices, 1U);
    EXPECT_EQ(messages[0].channelID, 5U);
    EXPECT_EQ(messages[0].clientID, 6);
}

TEST_F(DaemonMessageJoiner, SlicesAreOneMessage) {
    MessageJoiner &joiner = make();
    joiner.take(slice({1, 2}, false, true));
    joiner.take(slice({3, 4}, true, true));
    EXPECT_TRUE(messages.empty());
    joiner.take(slice({5}, true, false));
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_EQ(messages[0].bytes, (Bytes{1, 2, 3, 4, 5}));
    EXPECT_EQ(messages[0].slices, 3U);
    joiner.take(slice({6}, false, false));
    EXPECT_EQ(contents(), (std::vector<Bytes>{{1, 2, 3, 4, 5}, {6}}));
}

TEST_F(DaemonMessageJoiner, BlockThatDoesNotGoOnBeginsTheNextMessage) {
    MessageJoiner &joiner = make();
    joiner.take(slice({1}, false, true));
    joiner.take(slice({2}, false, true));
    EXPECT_EQ(contents(), std::vector<Bytes>{{1}});
    joiner.finish();
    EXPECT_EQ(contents(), (std::vector<Bytes>{{1}, {2}}));
    joiner.finish();
    EXPECT_EQ(messages.size(), 2U);
}

TEST_F(DaemonMessageJoiner, RequestEndsTheMessageAndIsNone) {
    MessageJoiner &joiner = make();
    joiner.take(slice({1}, false, true));
    ReceivedRequest request = slice({9}, false, false);
    request.name = "moxclientctrl";
    joiner.take(request);
    EXPECT_EQ(contents(), std::vector<Bytes>{{1}});
    joiner.take(request);
    EXPECT_EQ(messages.size(), 1U);
}

TEST_F(DaemonMessageJoiner, MessageIsOverWhenNoSliceFollowsInTime) {
    MessageJoiner &joiner = make(1ms);
    joiner.take(slice({1}, false, true));
    EXPECT_TRUE(messages.empty());
    EXPECT_TRUE(loop_->runOneSource(RunLoop::Seconds(10)));
    EXPECT_EQ(contents(), std::vector<Bytes>{{1}});
    EXPECT_EQ(loop_->dispatch(0), 0) << "no timer is left";
}

TEST_F(DaemonMessageJoiner, MessageBeyondTheLimitComesInParts) {
    MessageJoiner &joiner = make();
    const Bytes half(MessageJoiner::messageLimit / 2, 1);
    joiner.take(slice(half, false, true));
    joiner.take(slice(half, true, true));
    EXPECT_TRUE(messages.empty());
    joiner.take(slice({2}, true, false));
    ASSERT_EQ(messages.size(), 2U);
    EXPECT_EQ(messages[0].bytes.size(), MessageJoiner::messageLimit);
    EXPECT_EQ(messages[1].bytes, Bytes{2});
}

} // namespace
} // namespace moxel::daemon
