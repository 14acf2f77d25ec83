// Opening a device of the user-space HID bus, and requests to it, message by message.
#include "Platform/HIDDevice.h"
#include "Support/BusPublisher.h"
#include "Support/DescriptorShortage.h"
#include "Support/HIDClient.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <thread>

namespace moxel {
namespace {

using test::Bytes;
using test::HIDClient;
using test::propertiesMessage;
using test::PublisherConnection;
using test::PublisherSocket;
using test::replyMessage;
using test::operator+; // NOLINT(misc-unused-using-decls): used as +
using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds limit{1000};
/// What a busy machine may add.
constexpr std::chrono::seconds slack{10};

const std::vector<HIDStatus> allStatuses = {HIDStatus::success,     HIDStatus::error,   HIDStatus::noDevice,
                                            HIDStatus::badArgument, HIDStatus::notOpen, HIDStatus::timedOut,
                                            HIDStatus::notPermitted};

/// One device, published by hand, and one client that knows it.
class UserSpaceDevice : public test::HIDBusTest {
  protected:
    void SetUp() override {
        HIDBusTest::SetUp();
        socket_ = std::make_unique<PublisherSocket>(bus_, "device");
        client_ = std::make_unique<HIDClient>();
        presence_ = accept();
        device_ = client_->awaitDevice("device");
        ASSERT_NE(device_, nullptr);
    }
    void TearDown() override {
        device_.reset();
        client_.reset();
        for (PublisherConnection *connection : {&presence_, &input_, &requests_})
            connection->hangUp();
        socket_.reset();
        HIDBusTest::TearDown();
    }

    [[nodiscard]] PublisherConnection accept() const { return socket_->acceptAs("device"); }

    [[nodiscard]] std::future<HIDStatus> open() const {
        return std::async(std::launch::async, [device = device_] { return device->open(); });
    }
    [[nodiscard]] std::future<HIDStatus> close() const {
        return std::async(std::launch::async, [device = device_] { return device->close(); });
    }
    [[nodiscard]] std::future<HIDStatus> set(Bytes report, uint8_t reportID = 0x46) const {
        return std::async(std::launch::async, [device = device_, report = std::move(report), reportID] {
            return device->setReport(HIDReportType::output, reportID, report);
        });
    }
    struct Got {
        HIDStatus status;
        Bytes report;
    };
    [[nodiscard]] std::future<Got> get(size_t capacity) const {
        return std::async(std::launch::async, [device = device_, capacity] {
            Bytes buffer(capacity, 0xEE);
            size_t length = 99;
            const HIDStatus status = device->getReport(HIDReportType::output, 0x54, buffer, length);
            buffer.resize(length);
            return Got{status, buffer};
        });
    }

    /// Opens the device by the rules.
    void openDevice() {
        auto opened = open();
        input_ = accept();
        EXPECT_EQ(input_.receive(), (Bytes{2, 0, 0, 0, 0, 0, 0, 0}));
        input_.send(replyMessage(2));
        ASSERT_EQ(opened.get(), HIDStatus::success);
    }
    /// Lets the client send one request by the rules, so that it has its connection for requests.
    void makeRequestConnection() {
        auto sent = set({1});
        requests_ = accept();
        EXPECT_EQ(requests_.receive()[0], 4);
        requests_.send(replyMessage(4));
        ASSERT_EQ(sent.get(), HIDStatus::success);
    }

    std::unique_ptr<PublisherSocket> socket_;
    std::unique_ptr<HIDClient> client_;
    PublisherConnection presence_;
    PublisherConnection input_;
    PublisherConnection requests_;
    HIDDeviceReference device_;
};

// ------------------------------------------------------------------------------------------ Identity

TEST_F(UserSpaceDevice, HasTheNameAndThePropertiesThatItsPublisherGave) {
    EXPECT_EQ(device_->registryEntryName(), "device");
    EXPECT_EQ(device_->property(hidVendorIDKey), HIDProperty(int64_t{0x4D58}));
    EXPECT_EQ(device_->property(hidProductIDKey), HIDProperty(int64_t{0x0102}));
    EXPECT_EQ(device_->property(hidPrimaryUsagePageKey), HIDProperty(int64_t{0xFF00}));
    EXPECT_EQ(device_->property(hidPrimaryUsageKey), HIDProperty(int64_t{1}));
    EXPECT_EQ(device_->property(hidManufacturerKey), HIDProperty("Moxel"));
    EXPECT_EQ(device_->property(hidProductKey), HIDProperty("Channel"));
    EXPECT_EQ(device_->property(hidSerialNumberKey), HIDProperty("S1"));
    EXPECT_EQ(device_->property("Unknown"), std::nullopt);
}

TEST_F(UserSpaceDevice, DescribesItselfInPrintableCharacters) {
    EXPECT_NE(device_->description().find("device vendor 0x4D58 product 0x0102"), std::string::npos);
    PublisherSocket odd(bus_, "odd");
    const auto presence = odd.acceptAs("a\nb\x1b[m");
    ASSERT_TRUE(client_->awaitArrivals(2));
    const HIDDeviceReference device = client_->arrived()[1];
    EXPECT_EQ(device->registryEntryName(), "a\nb\x1b[m");
    EXPECT_NE(device->description().find(" a\\nb\\x1b[m vendor"), std::string::npos);
}

// ------------------------------------------------------------------------------------------ Open and close

TEST_F(UserSpaceDevice, OpenSendsOpenOnAConnectionOfItsOwnAndWaitsForTheReply) { openDevice(); }

TEST_F(UserSpaceDevice, CloseSendsCloseOnTheSameConnectionAndHangsUp) {
    openDevice();
    auto closed = close();
    EXPECT_EQ(input_.receive(), (Bytes{3, 0, 0, 0, 0, 0, 0, 0}));
    input_.send(replyMessage(3));
    EXPECT_EQ(closed.get(), HIDStatus::success);
    EXPECT_TRUE(input_.awaitHangUp());
}

TEST_F(UserSpaceDevice, EveryStatusOfOpenIsReturnedAndOnlySuccessOpens) {
    for (const HIDStatus status : allStatuses) {
        auto opened = open();
        input_ = accept();
        (void)input_.receive();
        input_.send(replyMessage(2, static_cast<uint32_t>(status)));
        EXPECT_EQ(opened.get(), status);
        const bool isOpen = status == HIDStatus::success;
        if (!isOpen) {
            EXPECT_TRUE(input_.awaitHangUp());
            EXPECT_EQ(device_->close(), HIDStatus::notOpen);
            continue;
        }
        auto closed = close();
        EXPECT_EQ(input_.receive()[0], 3);
        input_.send(replyMessage(3));
        EXPECT_EQ(closed.get(), HIDStatus::success);
    }
}

TEST_F(UserSpaceDevice, EveryStatusOfCloseIsReturnedAndTheDeviceIsClosedAllTheSame) {
    for (const HIDStatus status : allStatuses) {
        openDevice();
        auto closed = close();
        (void)input_.receive();
        input_.send(replyMessage(3, static_cast<uint32_t>(status)));
        EXPECT_EQ(closed.get(), status);
        EXPECT_TRUE(input_.awaitHangUp());
        EXPECT_EQ(device_->close(), HIDStatus::notOpen);
    }
}

TEST_F(UserSpaceDevice, OpenOfAnOpenDeviceSucceedsWithoutAMessage) {
    openDevice();
    EXPECT_EQ(device_->open(), HIDStatus::success);
    auto closed = close();
    EXPECT_EQ(input_.receive()[0], 3);
    input_.send(replyMessage(3));
    EXPECT_EQ(closed.get(), HIDStatus::success);
}

TEST_F(UserSpaceDevice, IsNotOpenUntilItIsOpened) {
    size_t length = 0;
    Bytes buffer(8);
    EXPECT_EQ(device_->close(), HIDStatus::notOpen);
    EXPECT_EQ(device_->setReport(HIDReportType::output, 1, buffer), HIDStatus::notOpen);
    EXPECT_EQ(device_->getReport(HIDReportType::output, 1, buffer, length), HIDStatus::notOpen);
    openDevice(); // And none of them has connected.
}

TEST_F(UserSpaceDevice, OpenOfAPublisherThatSaysNothingTimesOut) {
    const auto start = Clock::now();
    auto opened = open();
    const auto silent = socket_->accept();
    EXPECT_EQ(opened.get(), HIDStatus::timedOut);
    EXPECT_GE(Clock::now() - start, limit);
    EXPECT_LT(Clock::now() - start, limit + slack);
    EXPECT_TRUE(silent.awaitHangUp());
}

TEST_F(UserSpaceDevice, OpenThatIsNotAnsweredTimesOut) {
    auto opened = open();
    const auto silent = accept();
    EXPECT_EQ(opened.get(), HIDStatus::timedOut);
    EXPECT_EQ(silent.receive()[0], 2);
    EXPECT_TRUE(silent.awaitHangUp());
}

TEST_F(UserSpaceDevice, OpenTakesOneSecondInAll) {
    auto opened = open();
    const auto slow = socket_->accept();
    // Neither step alone takes too long.
    EXPECT_EQ(opened.wait_for(limit * 6 / 10), std::future_status::timeout);
    slow.send(propertiesMessage("device"));
    EXPECT_EQ(slow.receive()[0], 2);
    const auto asked = Clock::now();
    EXPECT_EQ(opened.get(), HIDStatus::timedOut);
    EXPECT_LT(Clock::now() - asked, limit * 9 / 10);
}

TEST_F(UserSpaceDevice, OpenWaitsForAQueueThatIsFull) {
    PublisherSocket busy(bus_, "busy", PublisherSocket::Appear::now, SOCK_SEQPACKET, 0);
    const auto presence = busy.acceptAs("busy");
    const HIDDeviceReference device = client_->awaitDevice("busy");
    EXPECT_EQ(device->open(), HIDStatus::timedOut); // Fills the queue and waits for the properties.
    const auto start = Clock::now();
    EXPECT_EQ(device->open(), HIDStatus::timedOut); // Waits for a place in the queue.
    EXPECT_GE(Clock::now() - start, limit);
    EXPECT_LT(Clock::now() - start, limit + slack);
}

TEST_F(UserSpaceDevice, OpenOfADeviceWithOtherPropertiesThanBeforeFails) {
    auto opened = open();
    auto input = socket_->acceptAs("other");
    EXPECT_EQ(opened.get(), HIDStatus::error);
    EXPECT_TRUE(input.awaitHangUp());
    EXPECT_TRUE(awaitError("other properties than before"));
}

TEST_F(UserSpaceDevice, OpenOfADeviceThatAnotherUserPublishesByNowIsNotPermitted) {
    if (::geteuid() != 0)
        GTEST_SKIP() << "needs root to become another user";
    socket_->listenAs(65534);
    EXPECT_EQ(device_->open(), HIDStatus::notPermitted);
    EXPECT_TRUE(awaitError("runs as user 65534"));
    EXPECT_TRUE(socket_->accept().awaitHangUp());
}

TEST_F(UserSpaceDevice, OpenWithoutADescriptorFailsAndLaterWorks) {
    {
        const test::DescriptorShortage shortage;
        EXPECT_EQ(device_->open(), HIDStatus::error);
    }
    EXPECT_TRUE(awaitError("Too many open files"));
    openDevice();
}

TEST_F(UserSpaceDevice, DroppedReferencesHangUp) {
    openDevice();
    makeRequestConnection();
    client_.reset();
    device_.reset();
    for (const PublisherConnection *connection : {&presence_, &input_, &requests_})
        EXPECT_TRUE(connection->awaitHangUp());
}

// ------------------------------------------------------------------------------------------ Requests

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

// ------------------------------------------------------------------------------------------ Broken rules

class UserSpaceDeviceReply : public UserSpaceDevice, public ::testing::WithParamInterface<Bytes> {};

TEST_P(UserSpaceDeviceReply, ThatBreaksTheRulesIsAnErrorAndDropsItsConnection) {
    openDevice();
    makeRequestConnection();
    auto got = get(16);
    (void)requests_.receive();
    requests_.send(GetParam());
    EXPECT_EQ(got.get().status, HIDStatus::error);
    EXPECT_TRUE(requests_.awaitHangUp());
    EXPECT_EQ(errors().size(), 1U);
    makeRequestConnection();
}

INSTANTIATE_TEST_SUITE_P(Kinds, UserSpaceDeviceReply,
                         ::testing::Values(Bytes{5}, Bytes{5, 0, 0, 0, 0, 0, 0}, // short header
                                           replyMessage(0), replyMessage(7),     // unknown operation
                                           replyMessage(2), replyMessage(4),     // of another request
                                           test::inputMessage({1, 2}),           // not open
                                           propertiesMessage("device"),          // only once
                                           replyMessage(5) + Bytes(17),          // over the capacity
                                           replyMessage(5) + Bytes(4097),        // over the limit
                                           replyMessage(5) + Bytes(65536),       //
                                           Bytes{5, 3, 0, 0, 0, 0, 0, 0},        // unknown type
                                           Bytes{5, 0, 0, 1, 0, 0, 0, 0}));      // reserved byte

class UserSpaceDeviceOpenReply : public UserSpaceDevice, public ::testing::WithParamInterface<Bytes> {};

TEST_P(UserSpaceDeviceOpenReply, ThatBreaksTheRulesIsAnErrorAndDropsItsConnection) {
    auto opened = open();
    input_ = accept();
    (void)input_.receive();
    input_.send(GetParam());
    EXPECT_EQ(opened.get(), HIDStatus::error);
    EXPECT_TRUE(input_.awaitHangUp());
    openDevice();
}

INSTANTIATE_TEST_SUITE_P(Kinds, UserSpaceDeviceOpenReply,
                         ::testing::Values(Bytes{2}, replyMessage(9), replyMessage(3),
                                           replyMessage(2) + Bytes{0}, test::inputMessage({1, 2}),
                                           propertiesMessage("device")));

class HIDBusFirstMessage : public test::HIDBusTest, public ::testing::WithParamInterface<Bytes> {};

TEST_P(HIDBusFirstMessage, ThatBreaksTheRulesMakesNoDeviceAndHoldsUpNobody) {
    PublisherSocket bad(bus_, "bad");
    HIDClient client;
    const auto connection = bad.accept();
    connection.send(GetParam());
    EXPECT_TRUE(connection.awaitHangUp());
    EXPECT_TRUE(awaitError("HID device " + bad.path().string() + " is not used: it sent "));
    test::ServingPublisher good(bus_, "good");
    client.awaitDevice("good");
    EXPECT_EQ(client.arrived().size(), 1U);
    EXPECT_EQ(errors().size(), 1U);
}

INSTANTIATE_TEST_SUITE_P(Kinds, HIDBusFirstMessage,
                         ::testing::Values(Bytes{1}, replyMessage(1), replyMessage(2), replyMessage(77),
                                           test::inputMessage({1, 2}),
                                           Bytes{1, 0, 0, 0, 0, 0, 0, 0, 1, 0, 1, 0, 1, 0, 1, 0, 200, 'a'},
                                           propertiesMessage("device") + Bytes{0}, propertiesMessage("\xFF"),
                                           propertiesMessage("device") + Bytes(5000)));

TEST_F(UserSpaceDevice, SecondMessageOnAConnectionThatIsNotOpenIsARemoval) {
    presence_.send(replyMessage(4));
    EXPECT_TRUE(client_->awaitRemovals(1));
    EXPECT_TRUE(presence_.awaitHangUp());
    EXPECT_TRUE(awaitError("second message"));
}

// ------------------------------------------------------------------------------------------ Slow publishers

TEST_F(UserSpaceDevice, SilentPublisherHoldsUpNobodyAndIsTriedAgain) {
    PublisherSocket silent(bus_, "silent");
    const auto start = Clock::now();
    const auto first = silent.accept();
    test::ServingPublisher other(bus_, "other");
    client_->awaitDevice("other");
    EXPECT_TRUE(first.awaitHangUp());
    EXPECT_GE(Clock::now() - start, limit * 9 / 10);
    const auto second = silent.acceptAs("silent");
    client_->awaitDevice("silent");
}

TEST_F(UserSpaceDevice, PublisherWithAFullQueueHoldsUpNobodyAndIsTriedAgain) {
    PublisherSocket busy(bus_, "busy", PublisherSocket::Appear::later, SOCK_SEQPACKET, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, busy.hiddenPath().c_str(), sizeof address.sun_path - 1);
    std::vector<PublisherConnection> waiting;
    int connected = 0;
    while (connected == 0) {
        waiting.emplace_back(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
        connected = ::connect(waiting.back().descriptor(), reinterpret_cast<const sockaddr *>(&address),
                              sizeof address);
    }
    EXPECT_EQ(errno, EAGAIN);
    busy.show();
    test::ServingPublisher other(bus_, "other");
    client_->awaitDevice("other");
    EXPECT_EQ(client_->arrived().size(), 2U);
    for (size_t i = 0; i + 1 < waiting.size(); ++i)
        (void)busy.accept();
    const auto presence = busy.acceptAs("busy");
    client_->awaitDevice("busy");
}

// ---------------------------------------------------------------------- Devices that leave

TEST_F(UserSpaceDevice, RequestThatWaitsWhenThePublisherGoesEndsAtOnceWithNoDevice) {
    openDevice();
    makeRequestConnection();
    const auto start = Clock::now();
    auto sent = set({2});
    EXPECT_EQ(requests_.receive()[8], 2);
    for (PublisherConnection *connection : {&presence_, &input_, &requests_})
        connection->hangUp();
    EXPECT_EQ(sent.get(), HIDStatus::noDevice);
    EXPECT_LT(Clock::now() - start, limit);
    EXPECT_TRUE(client_->awaitRemovals(1));
}

TEST_F(UserSpaceDevice, RequestThatWaitsOnTheLoopItselfEndsWhenOnlyThePresenceIsGone) {
    openDevice();
    makeRequestConnection();
    const auto start = Clock::now();
    auto status = HIDStatus::success;
    auto sent = std::async(std::launch::async, [&] {
        client_->onLoop([&] { status = device_->setReport(HIDReportType::output, 1, Bytes{2}); });
    });
    EXPECT_EQ(requests_.receive()[8], 2);
    presence_.hangUp();
    sent.get();
    EXPECT_EQ(status, HIDStatus::noDevice);
    EXPECT_LT(Clock::now() - start, limit);
    EXPECT_TRUE(client_->awaitRemovals(1));
}

TEST_F(UserSpaceDevice, RequestThatWaitsEndsWhenThePresenceBreaksTheRules) {
    openDevice();
    makeRequestConnection();
    const auto start = Clock::now();
    auto sent = set({2});
    (void)requests_.receive();
    presence_.send({1});
    EXPECT_EQ(sent.get(), HIDStatus::noDevice);
    EXPECT_LT(Clock::now() - start, limit);
}

TEST_F(UserSpaceDevice, OpenAndCloseThatWaitEndAtOnceWithNoDevice) {
    openDevice();
    auto closed = close();
    EXPECT_EQ(input_.receive()[0], 3);
    HIDClient other;
    const HIDDeviceReference device = other.awaitDevice("device");
    auto opened = std::async(std::launch::async, [&] { return device->open(); });
    const auto input = accept();
    EXPECT_EQ(input.receive()[0], 2);
    const auto start = Clock::now();
    presence_.hangUp();
    EXPECT_EQ(closed.get(), HIDStatus::noDevice);
    EXPECT_EQ(opened.get(), HIDStatus::noDevice);
    EXPECT_LT(Clock::now() - start, limit);
}

TEST_F(UserSpaceDevice, EverythingFailsWithNoDeviceOnceItHasLeft) {
    presence_.hangUp();
    ASSERT_TRUE(client_->awaitRemovals(1));
    size_t length = 1;
    Bytes buffer(8);
    EXPECT_EQ(device_->open(), HIDStatus::noDevice);
    EXPECT_EQ(device_->close(), HIDStatus::noDevice);
    EXPECT_EQ(device_->setReport(HIDReportType::output, 1, buffer), HIDStatus::noDevice);
    EXPECT_EQ(device_->getReport(HIDReportType::output, 1, buffer, length), HIDStatus::noDevice);
    EXPECT_EQ(length, 0U);
    EXPECT_EQ(device_->registryEntryName(), "device");
}

TEST_F(UserSpaceDevice, PublisherThatStopsListeningCannotBeOpenedButStays) {
    socket_->stopListening();
    EXPECT_EQ(device_->open(), HIDStatus::noDevice);
    client_->settle();
    EXPECT_TRUE(client_->removed().empty());
}

} // namespace
} // namespace moxel
