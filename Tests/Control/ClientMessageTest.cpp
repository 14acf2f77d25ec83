// Messages of the application's own bytes, whole and in slices.
#include "Support/CapturedLog.h"
#include "Support/ControlledClient.h"
#include "Support/LiveDaemon.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <thread>

namespace moxel {
namespace {

using Bytes = std::vector<uint8_t>;
using Clock = std::chrono::steady_clock;

const std::string function = "int16_t MoxelClientSendMessage(uint16_t, uint32_t, const void *, size_t)";

/// Bytes that are different at different places, zeros among them.
Bytes numberedBytes(size_t size) {
    Bytes bytes(size);
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<uint8_t>(i ^ i >> 8);
    return bytes;
}

int16_t sendMessage(uint16_t clientID, const Bytes &bytes) {
    return MoxelClientSendMessage(clientID, 0, bytes.data(), bytes.size());
}

/// The log's lines that the sending of a message makes itself.
std::vector<std::string> ownLines(const test::CapturedLog &log) {
    std::vector<std::string> own;
    for (const std::string &line : log.lines())
        if (line.starts_with(function) || line.starts_with("reading off"))
            own.push_back(line);
    return own;
}

// ------------------------------------------------------------------------------------------ Requests

class ClientMessage : public test::ControlledClientTest {};

TEST_F(ClientMessage, BytesAreSentAsTheyAre) {
    acknowledges = false;
    const Bytes bytes{0, 1, 0xFF, 0, 'b', 'p', 'l', 'i', 's', 't'};
    EXPECT_EQ(sendMessage(clientID, bytes), 0);
    EXPECT_EQ(blocks(), std::vector<Bytes>{bytes});
    Bytes announcement{6, 0, 49, 0, 10, 0, 0, 0};
    announcement.resize(38);
    EXPECT_EQ(announcements(), std::vector<Bytes>{announcement});
}

TEST_F(ClientMessage, TypeIsNotUsed) {
    acknowledges = false;
    EXPECT_EQ(MoxelClientSendMessage(clientID, 0, "x", 1), 0);
    EXPECT_EQ(MoxelClientSendMessage(clientID, 0xFFFFFFFF, "x", 1), 0);
    ASSERT_EQ(dedicated->reports.size(), 4U);
    EXPECT_EQ(dedicated->reports[0].bytes, dedicated->reports[2].bytes);
    EXPECT_EQ(dedicated->reports[1].bytes, dedicated->reports[3].bytes);
}

TEST_F(ClientMessage, Of2042BytesGoesOutOnceWithoutAcknowledgement) {
    acknowledges = false;
    test::CapturedLog log;
    const Bytes bytes = numberedBytes(2042);
    const auto start = Clock::now();
    EXPECT_EQ(sendMessage(clientID, bytes), 0);
    EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(1900));
    EXPECT_EQ(blocks(), std::vector<Bytes>{bytes});
    EXPECT_EQ(announcements().size(), 1U);
    EXPECT_EQ(ownLines(log), std::vector<std::string>{function + " returning 1 (Success!)"});
}

TEST_F(ClientMessage, Of2043BytesGoesOutAs2042And1BytesEachAcknowledged) {
    test::CapturedLog log;
    const Bytes bytes = numberedBytes(2043);
    EXPECT_EQ(sendMessage(clientID, bytes), 0);
    EXPECT_EQ(blocks(), (std::vector<Bytes>{Bytes(bytes.begin(), bytes.end() - 1), Bytes{bytes.back()}}));
    EXPECT_FALSE(client->m_bPacketACK()) << "both acknowledgements have been consumed";
    EXPECT_EQ(ownLines(log), (std::vector<std::string>{
                                 "reading off 2042 bytes / {0, 2042}",
                                 function + " sendUserRequestData returning, 1 (Success!)",
                                 "reading off 1 bytes / {2042, 1}",
                                 function + " sendUserRequestData returning, 1 (Success!)",
                             }));
}

TEST_F(ClientMessage, OfManySlicesKeepsItsOrder) {
    const Bytes bytes = numberedBytes(size_t{3} * 2042);
    EXPECT_EQ(sendMessage(clientID, bytes), 0);
    ASSERT_EQ(blocks().size(), 3U) << "no empty slice at the end";
    Bytes joined;
    for (const Bytes &block : blocks()) {
        EXPECT_EQ(block.size(), 2042U);
        joined.insert(joined.end(), block.begin(), block.end());
    }
    EXPECT_EQ(joined, bytes);
}

TEST_F(ClientMessage, EachSliceWaitsForItsAcknowledgement) {
    acknowledges = false;
    test::CapturedLog log;
    const auto start = Clock::now();
    EXPECT_EQ(sendMessage(clientID, numberedBytes(2043)), 1);
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(4000));
    EXPECT_EQ(blocks().size(), 2U);
    EXPECT_EQ(log.countContaining("Failed to receive ACK packet in time...!"), 2U);
    EXPECT_EQ(log.count(function + " sendUserRequestData returning, 0 (Failure!)"), 2U);
}

TEST_F(ClientMessage, HoldsTheClassLockUntilItsLastSliceIsSent) {
    EXPECT_EQ(locksDuring([] { EXPECT_EQ(sendMessage(clientID, numberedBytes(2043)), 0); }),
              (std::vector<bool>{true, true, true, true, false}));
}

TEST_F(ClientMessage, SliceThatFailsDoesNotStopTheOthers) {
    test::CapturedLog log;
    dedicated->onSetReport = [this](const test::SentReport &report) {
        // The first slice is refused.
        dedicated->setReportStatus = dedicated->reports.size() == 1 ? HIDStatus::error : HIDStatus::success;
        if (report.reportID == 0x46)
            acknowledge();
    };
    EXPECT_EQ(sendMessage(clientID, numberedBytes(2043)), 0) << "the last one counts";
    EXPECT_EQ(blocks().size(), 2U);
    EXPECT_EQ(announcements().size(), 1U);
    EXPECT_EQ(ownLines(log), (std::vector<std::string>{
                                 "reading off 2042 bytes / {0, 2042}",
                                 function + " sendUserRequestData returning, 0 (Failure!)",
                                 "reading off 1 bytes / {2042, 1}",
                                 function + " sendUserRequestData returning, 1 (Success!)",
                             }));
}

TEST_F(ClientMessage, WhoseLastSliceFailsReturns1) {
    dedicated->onSetReport = [this](const test::SentReport &report) {
        dedicated->setReportStatus = dedicated->reports.size() == 3 ? HIDStatus::error : HIDStatus::success;
        if (report.reportID == 0x46)
            acknowledge();
    };
    EXPECT_EQ(sendMessage(clientID, numberedBytes(2043)), 1);
    EXPECT_EQ(blocks().size(), 2U);
}

TEST_F(ClientMessage, ThatCannotBeSentReturns1) {
    test::CapturedLog log;
    dedicated->setReportStatus = HIDStatus::error;
    EXPECT_EQ(sendMessage(clientID, {1, 2, 3}), 1);
    EXPECT_EQ(ownLines(log), std::vector<std::string>{function + " returning 0 (Failure!)"});
    client->setM_refHIDChannelDedicated(nullptr);
    EXPECT_EQ(sendMessage(clientID, {1, 2, 3}), 1);
    EXPECT_EQ(sendMessage(clientID, numberedBytes(5000)), 1);
}

TEST_F(ClientMessage, OfNoBytesReturns1) {
    EXPECT_EQ(MoxelClientSendMessage(clientID, 0, "x", 0), 1);
    EXPECT_EQ(MoxelClientSendMessage(clientID, 0, nullptr, 0), 1);
    EXPECT_EQ(reportCount(), 0U);
}

TEST_F(ClientMessage, WithoutDataFails) {
    test::CapturedLog log;
    EXPECT_EQ(MoxelClientSendMessage(clientID, 0, nullptr, 5), -1);
    EXPECT_EQ(reportCount(), 0U);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(ClientMessage, OfAnUnknownClientFails) {
    test::CapturedLog log;
    EXPECT_EQ(sendMessage(clientID + 1, {1}), -1);
    EXPECT_EQ(sendMessage(clientID + 1, numberedBytes(5000)), -1);
    std::thread([] { EXPECT_EQ(sendMessage(0, {1}), -1); }).join();
    EXPECT_EQ(reportCount(), 0U);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(ClientMessage, Client0IsThatOfTheCallingThread) {
    acknowledges = false;
    EXPECT_EQ(sendMessage(0, {1}), 0);
    EXPECT_EQ(blocks().size(), 1U);
}

TEST_F(ClientMessage, LetsNoExceptionOut) {
    dedicated->onSetReport = [](const test::SentReport &) { throw std::runtime_error("from the platform"); };
    EXPECT_EQ(sendMessage(clientID, {1}), 1);
}

// ------------------------------------------------------------------------------------------ Live

using LiveClientMessage = test::LiveDaemonTest;

TEST_F(LiveClientMessage, ShortMessageReachesTheDaemonWhole) {
    startDaemon();
    const uint16_t clientID = beginSession();
    const Bytes bytes = numberedBytes(100);
    EXPECT_EQ(sendMessage(clientID, bytes), 0);
    const auto message = moxeld->waitForMessage(patience);
    ASSERT_TRUE(message);
    EXPECT_EQ(message->bytes, bytes);
    EXPECT_EQ(message->slices, 1U);
    EXPECT_EQ(message->clientID, clientID);
    EXPECT_EQ(message->channelID, moxeld->client(clientID)->channelID);
}

TEST_F(LiveClientMessage, LongMessagesReachTheDaemonWhole) {
    daemon::Options options;
    options.sliceTimeout = patience;
    startDaemon(std::move(options));
    const uint16_t clientID = beginSession();
    for (const size_t size : {size_t{2043}, size_t{5000}, size_t{100'000}}) {
        const Bytes bytes = numberedBytes(size);
        test::CapturedLog log;
        EXPECT_EQ(sendMessage(clientID, bytes), 0);
        EXPECT_EQ(log.countContaining("Failure!"), 0U);
        const auto message =
            moxeld->waitForMessage(patience, [size](const daemon::ReceivedMessage &received) {
                return received.bytes.size() == size;
            });
        ASSERT_TRUE(message) << size;
        EXPECT_EQ(message->bytes, bytes);
        EXPECT_EQ(message->slices, (size + 2041) / 2042);
    }
}

TEST_F(LiveClientMessage, Of2042BytesIsOneRequestThatIsNotAcknowledged) {
    daemon::Options options;
    options.fullBlock = daemon::FullBlock::isMessage;
    startDaemon(std::move(options));
    const uint16_t clientID = beginSession();
    const Bytes bytes = numberedBytes(2042);
    EXPECT_EQ(sendMessage(clientID, bytes), 0);
    const auto message = moxeld->waitForMessage(patience);
    ASSERT_TRUE(message);
    EXPECT_EQ(message->bytes, bytes);
    EXPECT_EQ(message->slices, 1U);
    const auto request = moxeld->waitForRequest(
        [&bytes](const daemon::ReceivedRequest &received) { return received.bytes == bytes; }, patience);
    ASSERT_TRUE(request);
    EXPECT_FALSE(request->acknowledged);
    EXPECT_EQ(MoxelClientControl(clientID, 1, 2, nullptr), 0) << "the session goes on";
}

TEST_F(LiveClientMessage, MessagesOfTwoThreadsDoNotMix) {
    daemon::Options options;
    options.sliceTimeout = patience;
    startDaemon(std::move(options));
    const uint16_t clientID = beginSession();
    constexpr size_t size = 3 * 2042 + 1;
    std::vector<std::thread> senders;
    for (const char letter : {'a', 'b'})
        senders.emplace_back([clientID, letter] {
            for (int i = 0; i < 5; ++i)
                EXPECT_EQ(sendMessage(clientID, Bytes(size, static_cast<uint8_t>(letter))), 0);
        });
    for (std::thread &sender : senders)
        sender.join();
    ASSERT_TRUE(moxeld->waitUntil(
        [](const daemon::Observation &observation) { return observation.messages.size() == 10; }, patience));
    for (const daemon::ReceivedMessage &message : moxeld->observe().messages) {
        EXPECT_EQ(message.bytes.size(), size);
        EXPECT_EQ(message.bytes, Bytes(message.bytes.size(), message.bytes[0]));
    }
}

} // namespace
} // namespace moxel
