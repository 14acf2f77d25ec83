// Requests to a device of the user-space HID bus, message by message.
#include "Platform/UserSpaceDevice.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <vector>

namespace moxel {
namespace {

using test::Bytes;
using test::PublisherConnection;
using test::replyMessage;
using test::UserSpaceDevice;
using test::operator+; // NOLINT(misc-unused-using-decls): used as +

TEST_F(UserSpaceDevice, SetReportSendsTheReportOnASecondConnection) {
    openDevice();
    Bytes report(3071);
    for (size_t i = 0; i < report.size(); ++i)
        report[i] = static_cast<uint8_t>(i * 7);
    auto sent = set(report);
    requests_ = accept();
    EXPECT_EQ(requests_.receive(), (Bytes{4, 1, 0x46, 0, 0, 0, 0, 0} + report));
    requests_.send(replyMessage(4));
    EXPECT_EQ(sent.get(), HIDStatus::success);
}

TEST_F(UserSpaceDevice, GetReportSendsItsCapacityAndReturnsTheReport) {
    openDevice();
    auto got = get(2048);
    requests_ = accept();
    EXPECT_EQ(requests_.receive(), (Bytes{5, 1, 0x54, 0, 0x00, 0x08, 0, 0}));
    requests_.send(replyMessage(5) + Bytes{1, 2, 3});
    const auto [status, report] = got.get();
    EXPECT_EQ(status, HIDStatus::success);
    EXPECT_EQ(report, (Bytes{1, 2, 3}));
}

TEST_F(UserSpaceDevice, ReportMayFillTheWholeCapacity) {
    openDevice();
    auto got = get(16);
    requests_ = accept();
    EXPECT_EQ(requests_.receive(), (Bytes{5, 1, 0x54, 0, 16, 0, 0, 0}));
    requests_.send(replyMessage(5) + Bytes(16, 7));
    EXPECT_EQ(got.get().report, Bytes(16, 7));
}

TEST_F(UserSpaceDevice, CapacityIsAtMostThatOfAMessage) {
    openDevice();
    auto got = get(100000);
    requests_ = accept();
    EXPECT_EQ(requests_.receive(), (Bytes{5, 1, 0x54, 0, 0x00, 0x10, 0, 0}));
    requests_.send(replyMessage(5) + Bytes(4096, 7));
    EXPECT_EQ(got.get().report, Bytes(4096, 7));
}

TEST_F(UserSpaceDevice, ReplyThatIsTooLongForAMessageIsNotTakenForItsBeginning) {
    openDevice();
    auto got = get(4096);
    requests_ = accept();
    (void)requests_.receive();
    requests_.send(replyMessage(5) + Bytes(4097, 7));
    EXPECT_EQ(got.get().status, HIDStatus::error);
}

TEST_F(UserSpaceDevice, EmptyReportCanBeSetAndGot) {
    openDevice();
    auto sent = set({});
    requests_ = accept();
    EXPECT_EQ(requests_.receive(), (Bytes{4, 1, 0x46, 0, 0, 0, 0, 0}));
    requests_.send(replyMessage(4));
    EXPECT_EQ(sent.get(), HIDStatus::success);
    auto got = get(1);
    EXPECT_EQ(requests_.receive()[4], 1);
    requests_.send(replyMessage(5));
    EXPECT_EQ(got.get().report, Bytes{});
}

TEST_F(UserSpaceDevice, ReportThatIsTooLongOrHasNoRoomIsABadArgumentAndSendsNothing) {
    openDevice();
    EXPECT_EQ(device_->setReport(HIDReportType::output, 1, Bytes(4097)), HIDStatus::badArgument);
    size_t length = 7;
    EXPECT_EQ(device_->getReport(HIDReportType::output, 1, {}, length), HIDStatus::badArgument);
    EXPECT_EQ(length, 0U);
    auto sent = set(Bytes(4096, 9));
    requests_ = accept();
    EXPECT_EQ(requests_.receive().size(), 8U + 4096U);
    requests_.send(replyMessage(4));
    EXPECT_EQ(sent.get(), HIDStatus::success);
}

TEST_F(UserSpaceDevice, EveryReportTypeIsSent) {
    openDevice();
    makeRequestConnection();
    for (const HIDReportType type : {HIDReportType::input, HIDReportType::output, HIDReportType::feature}) {
        auto sent = std::async(std::launch::async, [&] { return device_->setReport(type, 0xFF, Bytes{5}); });
        EXPECT_EQ(requests_.receive(), (Bytes{4, static_cast<uint8_t>(type), 0xFF, 0, 0, 0, 0, 0, 5}));
        requests_.send(replyMessage(4));
        EXPECT_EQ(sent.get(), HIDStatus::success);
    }
}

TEST_F(UserSpaceDevice, EveryStatusOfARequestIsReturnedOnTheSameConnection) {
    openDevice();
    makeRequestConnection();
    for (const HIDStatus status : allStatuses) {
        auto sent = set({1});
        EXPECT_EQ(requests_.receive()[0], 4);
        requests_.send(replyMessage(4, static_cast<uint32_t>(status)));
        EXPECT_EQ(sent.get(), status);
        auto got = get(8);
        EXPECT_EQ(requests_.receive()[0], 5);
        requests_.send(replyMessage(5, static_cast<uint32_t>(status)) + Bytes{1, 2});
        const auto [gotStatus, report] = got.get();
        EXPECT_EQ(gotStatus, status);
        EXPECT_EQ(report.size(), status == HIDStatus::success ? 2U : 0U);
    }
}

TEST_F(UserSpaceDevice, ReplyMayEchoTypeAndIdentifier) {
    openDevice();
    makeRequestConnection();
    auto sent = set({1});
    (void)requests_.receive();
    requests_.send({4, 1, 0x46, 0, 0, 0, 0, 0});
    EXPECT_EQ(sent.get(), HIDStatus::success);
}

TEST_F(UserSpaceDevice, RequestWithoutReplyTimesOutAndDropsItsConnectionOnly) {
    openDevice();
    makeRequestConnection();
    const auto start = Clock::now();
    EXPECT_EQ(set({2}).get(), HIDStatus::timedOut);
    EXPECT_GE(Clock::now() - start, limit);
    EXPECT_LT(Clock::now() - start, limit + slack);
    EXPECT_EQ(requests_.receive()[8], 2);
    EXPECT_TRUE(requests_.awaitHangUp());
    makeRequestConnection(); // A new one; the device is still open.
}

TEST_F(UserSpaceDevice, LateReplyIsNotTakenForTheNextOne) {
    openDevice();
    makeRequestConnection();
    EXPECT_EQ(set({2}).get(), HIDStatus::timedOut);
    PublisherConnection late = std::move(requests_);
    auto sent = set({3});
    late.send(replyMessage(4, 0xE00002BC));
    requests_ = accept();
    EXPECT_EQ(requests_.receive()[8], 3);
    requests_.send(replyMessage(4));
    EXPECT_EQ(sent.get(), HIDStatus::success);
}

TEST_F(UserSpaceDevice, ConnectionWithAnUnaskedMessageIsNotUsedForARequest) {
    openDevice();
    makeRequestConnection();
    requests_.send(replyMessage(4, 0xE00002BC));
    auto sent = set({3});
    EXPECT_TRUE(requests_.awaitHangUp());
    requests_ = accept();
    EXPECT_EQ(requests_.receive()[8], 3);
    requests_.send(replyMessage(4));
    EXPECT_EQ(sent.get(), HIDStatus::success);
}

TEST_F(UserSpaceDevice, ConnectionThatThePublisherDroppedIsMadeAgain) {
    openDevice();
    makeRequestConnection();
    requests_.hangUp();
    makeRequestConnection();
}

TEST_F(UserSpaceDevice, CloseDropsTheConnectionForRequests) {
    openDevice();
    makeRequestConnection();
    auto closed = close();
    (void)input_.receive();
    input_.send(replyMessage(3));
    EXPECT_EQ(closed.get(), HIDStatus::success);
    EXPECT_TRUE(requests_.awaitHangUp());
    EXPECT_EQ(set({1}).get(), HIDStatus::notOpen);
    openDevice();
    makeRequestConnection();
}

TEST_F(UserSpaceDevice, RequestsOfSeveralThreadsAreServedOneAfterTheOther) {
    constexpr int threads = 4;
    constexpr int requestsEach = 50;
    openDevice();
    makeRequestConnection();
    std::vector<std::future<bool>> callers;
    for (int thread = 0; thread < threads; ++thread)
        callers.push_back(std::async(std::launch::async, [this, thread] {
            bool allFit = true;
            for (int i = 0; i < requestsEach; ++i) {
                const Bytes report = {static_cast<uint8_t>(thread), static_cast<uint8_t>(i)};
                const HIDStatus status = device_->setReport(HIDReportType::output, 1, report);
                // Every caller gets its own reply.
                allFit = allFit && status == (i % 2 == 0 ? HIDStatus::success : HIDStatus::badArgument);
            }
            return allFit;
        }));
    for (int i = 0; i < threads * requestsEach; ++i) {
        const Bytes request = requests_.receive();
        ASSERT_EQ(request.size(), 10U);
        uint8_t more = 0;
        EXPECT_LT(::recv(requests_.descriptor(), &more, 1, MSG_DONTWAIT), 0);
        requests_.send(replyMessage(4, request[9] % 2 == 0 ? 0 : 0xE00002C2));
    }
    for (auto &caller : callers)
        EXPECT_TRUE(caller.get());
}

} // namespace
} // namespace moxel
