// Input reports of the user-space HID bus, and how a device that sends them ends.
#include "Platform/HIDDevice.h"
#include "Support/BusPublisher.h"
#include "Support/HIDClient.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>

namespace moxel {
namespace {

using test::Bytes;
using test::HIDClient;
using test::inputMessage;
using test::InputRecorder;
using test::PublisherConnection;
using test::PublisherSocket;
using test::replyMessage;
using test::ServingPublisher;
using test::operator+; // NOLINT(misc-unused-using-decls): used as +

Bytes numberedReport(uint32_t number) {
    return {0x35, static_cast<uint8_t>(number), static_cast<uint8_t>(number >> 8),
            static_cast<uint8_t>(number >> 16)};
}

uint32_t numberOf(const Bytes &report) {
    return static_cast<uint32_t>(report[1] | report[2] << 8 | report[3] << 16);
}

/// A device that serves itself.
class HIDBusInput : public test::HIDBusTest {
  protected:
    /// Opens a device and registers its recorder, as a client does when the device arrives.
    static HIDClient::Hook openWith(InputRecorder &recorder) {
        return [&recorder](HIDClient &, const HIDDeviceReference &device) {
            EXPECT_EQ(device->open(), HIDStatus::success);
            recorder.registerWith(*device);
        };
    }
};

/// A device led by hand, open, whose reports `recorder_` gets.
class HIDBusInputByHand : public test::HIDBusTest {
  protected:
    void SetUp() override {
        HIDBusTest::SetUp();
        socket_ = std::make_unique<PublisherSocket>(bus_, "device");
        client_ = std::make_unique<HIDClient>();
        presence_ = socket_->acceptAs("device");
        device_ = client_->awaitDevice("device");
        auto opened = std::async(std::launch::async, [&] { return device_->open(); });
        input_ = socket_->acceptAs("device");
        EXPECT_EQ(input_.receive()[0], 2);
        recorder_.registerWith(*device_);
        input_.send(replyMessage(2));
        EXPECT_EQ(opened.get(), HIDStatus::success);
    }
    void TearDown() override {
        device_.reset();
        client_.reset();
        presence_.hangUp();
        input_.hangUp();
        socket_.reset();
        HIDBusTest::TearDown();
    }

    /// Keeps the loop busy until the returned promise is kept.
    [[nodiscard]] std::promise<void> holdLoop() const {
        std::promise<void> go;
        std::promise<void> held;
        auto hold = [&held, released = go.get_future().share()] {
            held.set_value();
            released.wait();
        };
        auto started = held.get_future();
        std::thread([this, hold = std::move(hold)] { client_->onLoop(hold); }).detach();
        started.wait();
        return go;
    }

    std::unique_ptr<PublisherSocket> socket_;
    std::unique_ptr<HIDClient> client_;
    PublisherConnection presence_;
    PublisherConnection input_;
    HIDDeviceReference device_;
    InputRecorder recorder_;
};

// ------------------------------------------------------------------------------------------ Reports

TEST_F(HIDBusInputByHand, ReportArrivesWithItsIdentifierFirst) {
    const Bytes report = {0x35, 3, 0, 0xAA, 0xBB};
    input_.send(Bytes{6, 0, 0x35, 0, 0, 0, 0, 0} + report);
    input_.send(inputMessage(Bytes(64, 0x44)));
    input_.send(inputMessage({0x45}));
    ASSERT_TRUE(recorder_.awaitReports(3));
    EXPECT_EQ(recorder_.reports(), (std::vector<Bytes>{report, Bytes(64, 0x44), {0x45}}));
    EXPECT_EQ(recorder_.identifiers(), (std::vector<uint32_t>{0x35, 0x44, 0x45}));
}

TEST_F(HIDBusInputByHand, ReportIsCutToTheBuffer) {
    InputRecorder small(3);
    small.registerWith(*device_);
    input_.send(inputMessage({1, 2, 3, 4, 5}));
    input_.send(inputMessage({9, 8}));
    ASSERT_TRUE(small.awaitReports(2));
    EXPECT_EQ(small.reports(), (std::vector<Bytes>{{1, 2, 3}, {9, 8}}));
}

TEST_F(HIDBusInputByHand, NewestCallbackGetsTheReports) {
    input_.send(inputMessage({1}));
    ASSERT_TRUE(recorder_.awaitReports(1));
    InputRecorder second;
    second.registerWith(*device_);
    input_.send(inputMessage({2}));
    ASSERT_TRUE(second.awaitReports(1));
    EXPECT_EQ(recorder_.reports().size(), 1U);
}

TEST_F(HIDBusInputByHand, NullStopsTheCallbacksAndReportsArePassedOver) {
    device_->registerInputReportCallback({}, nullptr, nullptr);
    input_.send(inputMessage({1}));
    client_->settle();
    InputRecorder second;
    PublisherSocket marker(bus_, "marker");
    const auto presence = marker.acceptAs("marker");
    client_->awaitDevice("marker"); // The loop has been at its descriptors since.
    client_->settle();
    second.registerWith(*device_);
    input_.send(inputMessage({2}));
    ASSERT_TRUE(second.awaitReports(1));
    EXPECT_EQ(second.reports(), (std::vector<Bytes>{{2}}));
    EXPECT_TRUE(recorder_.reports().empty());
}

TEST_F(HIDBusInput, SeveralDevicesOfOneManagerMayShareABuffer) {
    ServingPublisher first(bus_, "first");
    ServingPublisher second(bus_, "second");
    InputRecorder recorder;
    HIDClient client({}, openWith(recorder));
    ASSERT_TRUE(client.awaitArrivals(2));
    first.sendInput({1, 11});
    ASSERT_TRUE(recorder.awaitReports(1));
    second.sendInput({2, 22});
    ASSERT_TRUE(recorder.awaitReports(2));
    EXPECT_EQ(recorder.reports(), (std::vector<Bytes>{{1, 11}, {2, 22}}));
}

TEST_F(HIDBusInput, EveryOpenManagerGetsEveryReport) {
    ServingPublisher device(bus_, "device");
    InputRecorder firstReports;
    InputRecorder secondReports;
    InputRecorder closedReports;
    HIDClient first({}, openWith(firstReports));
    HIDClient second({}, openWith(secondReports));
    HIDClient closed(
        {}, [&](HIDClient &, const HIDDeviceReference &found) { closedReports.registerWith(*found); });
    ASSERT_TRUE(closed.awaitArrivals(1));
    ASSERT_TRUE(device.awaitOpenConnections(2));
    device.sendInput({7});
    EXPECT_TRUE(firstReports.awaitReports(1));
    EXPECT_TRUE(secondReports.awaitReports(1));
    closed.settle();
    EXPECT_TRUE(closedReports.reports().empty());
}

TEST_F(HIDBusInput, TenThousandReportsArriveInOrderWhileSeveralThreadsSendRequests) {
    constexpr uint32_t reports = 10000;
    constexpr int threads = 3;
    ServingPublisher device(bus_, "device", [](const Bytes &request) -> std::vector<Bytes> {
        if (request[0] == 5)
            return {replyMessage(5) + Bytes{request[2]}};
        return {replyMessage(request[0])};
    });
    std::atomic<int> failures{0};
    const auto request = [&failures](HIDDevice &sender, uint8_t number) {
        Bytes buffer(4);
        size_t length = 0;
        const bool fits =
            sender.setReport(HIDReportType::output, number, Bytes(300, number)) == HIDStatus::success &&
            sender.getReport(HIDReportType::output, number, buffer, length) == HIDStatus::success &&
            length == 1 && buffer[0] == number;
        failures += fits ? 0 : 1;
    };
    InputRecorder recorder(64, [&, count = 0](HIDDevice *sender) mutable {
        if (++count % 50 == 0) // From inside the callback, too.
            request(*sender, 99);
    });
    HIDClient client({}, openWith(recorder));
    const HIDDeviceReference found = client.awaitDevice("device");
    std::atomic<bool> done{false};
    std::vector<std::thread> callers;
    for (int thread = 0; thread < threads; ++thread)
        callers.emplace_back([&, thread] {
            while (!done)
                request(*found, static_cast<uint8_t>(thread + 1));
        });
    for (uint32_t number = 0; number < reports; ++number)
        device.sendInput(numberedReport(number));
    EXPECT_TRUE(recorder.awaitReports(reports));
    done = true;
    for (std::thread &caller : callers)
        caller.join();
    const std::vector<Bytes> received = recorder.reports();
    ASSERT_EQ(received.size(), reports);
    for (uint32_t number = 0; number < reports; ++number)
        ASSERT_EQ(numberOf(received[number]), number);
    EXPECT_EQ(failures, 0);
}

TEST_F(HIDBusInputByHand, FloodLeavesTheLoopToOthers) {
    constexpr size_t queued = 200;
    test::Awaited<size_t> deliveredBefore{SIZE_MAX};
    {
        std::promise<void> go = holdLoop();
        for (uint32_t number = 0; number < queued; ++number)
            ASSERT_TRUE(input_.send(inputMessage(numberedReport(number))));
        // The first item may go before the input; the second is posted when the loop is at it.
        client_->post([&] { client_->post([&] { deliveredBefore.set(recorder_.reports().size()); }); });
        go.set_value();
    }
    ASSERT_TRUE(deliveredBefore.await([](size_t count) { return count != SIZE_MAX; }));
    EXPECT_LT(deliveredBefore.get(), queued);
    ASSERT_TRUE(recorder_.awaitReports(queued));
}

TEST_F(HIDBusInput, EndlessFloodKeepsNobodyFromClosing) {
    std::atomic<bool> done{false};
    ServingPublisher device(bus_, "device");
    InputRecorder recorder;
    HIDClient client({}, openWith(recorder));
    const HIDDeviceReference found = client.awaitDevice("device");
    std::thread flood([&] {
        while (!done)
            device.sendInput(Bytes(64, 1));
    });
    EXPECT_TRUE(recorder.awaitReports(1000));
    client.settle();
    EXPECT_EQ(found->setReport(HIDReportType::output, 1, Bytes{1}), HIDStatus::success);
    EXPECT_EQ(found->close(), HIDStatus::success);
    done = true;
    flood.join();
}

TEST_F(HIDBusInputByHand, FloodInsteadOfTheReplyToCloseTimesOut) {
    std::atomic<bool> done{false};
    std::thread flood([&] {
        while (!done && input_.send(inputMessage(Bytes(64, 1)))) {
        }
    });
    EXPECT_EQ(device_->close(), HIDStatus::timedOut);
    done = true;
    flood.join();
}

// ------------------------------------------------------------------------------------------ Closing

TEST_F(HIDBusInput, NothingIsCalledBackOnceCloseFromAnotherThreadHasReturned) {
    ServingPublisher device(bus_, "device");
    HIDClient client;
    const HIDDeviceReference found = client.awaitDevice("device");
    std::atomic<bool> done{false};
    std::thread flood([&] {
        for (uint32_t number = 0; !done; ++number)
            device.sendInput(numberedReport(number));
    });
    for (int round = 0; round < 30; ++round) {
        InputRecorder recorder;
        recorder.registerWith(*found);
        ASSERT_EQ(found->open(), HIDStatus::success);
        ASSERT_TRUE(recorder.awaitReports(10));
        EXPECT_EQ(found->close(), HIDStatus::success);
        client.onLoop([] {}); // A callback that was running is over.
        const size_t atClose = recorder.reports().size();
        client.settle();
        EXPECT_EQ(recorder.reports().size(), atClose);
        found->registerInputReportCallback({}, nullptr, nullptr);
    }
    done = true;
    flood.join();
}

TEST_F(HIDBusInput, CloseFromAnotherThreadDoesNotWaitForACallback) {
    ServingPublisher device(bus_, "device");
    std::promise<void> entered;
    std::promise<void> closed;
    std::shared_future<void> whenClosed = closed.get_future().share();
    InputRecorder recorder(64, [&](HIDDevice *) {
        entered.set_value();
        whenClosed.wait();
    });
    HIDClient client({}, openWith(recorder));
    const HIDDeviceReference found = client.awaitDevice("device");
    device.sendInput({1});
    device.sendInput({2});
    entered.get_future().wait();
    EXPECT_EQ(found->close(), HIDStatus::success);
    closed.set_value();
    client.settle();
    EXPECT_EQ(recorder.reports(), (std::vector<Bytes>{{1}}));
}

TEST_F(HIDBusInputByHand, ClosedConnectionHangsUpThoughTheLoopIsBusy) {
    std::promise<void> go = holdLoop();
    input_.send(replyMessage(3));
    EXPECT_EQ(device_->close(), HIDStatus::success);
    EXPECT_TRUE(input_.awaitHangUp());
    go.set_value();
}

TEST_F(HIDBusInput, CallbackMayCloseAndOpenItsDevice) {
    ServingPublisher device(bus_, "device");
    std::promise<void> reopened;
    InputRecorder recorder(64, [&, first = true](HIDDevice *sender) mutable {
        if (!std::exchange(first, false))
            return;
        EXPECT_EQ(sender->close(), HIDStatus::success);
        EXPECT_EQ(sender->close(), HIDStatus::notOpen);
        EXPECT_EQ(sender->open(), HIDStatus::success);
        reopened.set_value();
    });
    HIDClient client({}, openWith(recorder));
    client.awaitDevice("device");
    device.sendInput({1});
    reopened.get_future().wait();
    ASSERT_TRUE(device.awaitOpenConnections(1));
    device.sendInput({2});
    ASSERT_TRUE(recorder.awaitReports(2));
    EXPECT_EQ(recorder.reports().back(), Bytes{2});
}

TEST_F(HIDBusInput, CallbackMayRegisterAnother) {
    ServingPublisher device(bus_, "device");
    InputRecorder second;
    InputRecorder first(64, [&](HIDDevice *sender) { second.registerWith(*sender); });
    HIDClient client({}, openWith(first));
    client.awaitDevice("device");
    device.sendInput({1});
    device.sendInput({2});
    ASSERT_TRUE(second.awaitReports(1));
    EXPECT_EQ(first.reports(), (std::vector<Bytes>{{1}}));
    EXPECT_EQ(second.reports(), (std::vector<Bytes>{{2}}));
}

TEST_F(HIDBusInput, CallbackMayUnscheduleItsManager) {
    ServingPublisher device(bus_, "device");
    std::atomic<HIDClient *> self{nullptr};
    InputRecorder recorder(64, [&](HIDDevice *) { self.load()->manager()->unscheduleFromRunLoop(); });
    HIDClient client({}, openWith(recorder));
    self = &client;
    client.awaitDevice("device");
    for (uint8_t number = 1; number < 100; ++number)
        device.sendInput({number});
    ASSERT_TRUE(recorder.awaitReports(1));
    client.settle();
    EXPECT_EQ(recorder.reports(), (std::vector<Bytes>{{1}}));
}

TEST_F(HIDBusInput, CallbackMayDestroyItsManagerAndTheLastReferenceToItsDevice) {
    ServingPublisher device(bus_, "device");
    std::atomic<HIDClient *> self{nullptr};
    InputRecorder recorder(64, [&](HIDDevice *) {
        self.load()->forget();
        self.load()->manager().reset();
    });
    HIDClient client({}, openWith(recorder));
    self = &client;
    ASSERT_TRUE(client.awaitArrivals(1));
    device.sendInput({1});
    device.sendInput({2});
    ASSERT_TRUE(recorder.awaitReports(1));
    client.settle();
    EXPECT_EQ(recorder.reports(), (std::vector<Bytes>{{1}}));
    EXPECT_TRUE(device.awaitOpenConnections(0));
}

TEST_F(HIDBusInputByHand, InputBeforeTheReplyToCloseIsDropped) {
    auto closed = std::async(std::launch::async, [&] { return device_->close(); });
    EXPECT_EQ(input_.receive()[0], 3);
    for (uint8_t number = 0; number < 10; ++number)
        input_.send(inputMessage({number}));
    input_.send(replyMessage(3));
    EXPECT_EQ(closed.get(), HIDStatus::success);
    client_->settle();
    EXPECT_TRUE(recorder_.reports().empty());
}

// ------------------------------------------------------------------------------------------ The end

/// When the removal came, in numbers of reports received before.
class HIDBusRemoval : public HIDBusInputByHand {
  protected:
    void SetUp() override {
        HIDBusInputByHand::SetUp();
        client_->onLoop([this] {
            client_->manager()->registerDeviceRemovalCallback(
                [](void *context, HIDStatus, HIDManager *, const HIDDeviceReference &) {
                    auto &self = *static_cast<HIDBusRemoval *>(context);
                    self.reportsBefore_.set(static_cast<int>(self.recorder_.reports().size()));
                },
                this);
        });
    }

    static constexpr int queued = 100;

    void queueReports() const {
        for (uint32_t number = 0; number < queued; ++number)
            ASSERT_TRUE(input_.send(inputMessage(numberedReport(number))));
    }
    void expectRemovalAfterAllReports() const {
        EXPECT_TRUE(reportsBefore_.await([](int reports) { return reports >= 0; }));
        EXPECT_EQ(reportsBefore_.get(), queued);
        client_->settle();
        EXPECT_EQ(recorder_.reports().size(), static_cast<size_t>(queued));
    }

    test::Awaited<int> reportsBefore_{-1};
};

TEST_F(HIDBusRemoval, ComesAfterTheInputThatIsQueued) {
    std::promise<void> go = holdLoop();
    queueReports();
    input_.hangUp();
    presence_.hangUp();
    go.set_value();
    expectRemovalAfterAllReports();
}

TEST_F(HIDBusRemoval, ByThePresenceAloneComesAfterTheInputThatIsQueued) {
    std::promise<void> go = holdLoop();
    queueReports();
    presence_.hangUp();
    go.set_value();
    expectRemovalAfterAllReports();
    EXPECT_TRUE(input_.awaitHangUp());
}

TEST_F(HIDBusRemoval, ByTheInputConnectionAloneComesAfterTheInputThatIsQueued) {
    std::promise<void> go = holdLoop();
    queueReports();
    input_.hangUp();
    go.set_value();
    expectRemovalAfterAllReports();
    EXPECT_EQ(device_->setReport(HIDReportType::output, 1, Bytes{1}), HIDStatus::noDevice);
}

TEST_F(HIDBusRemoval, ByAPublisherThatLeavesARequestUnreadComesAfterTheInputThatIsQueued) {
    // The kernel reports the reset ahead of what is queued.
    auto closed = std::async(std::launch::async, [&] { return device_->close(); });
    EXPECT_EQ(input_.receive()[0], 3);
    input_.send(replyMessage(3));
    EXPECT_EQ(closed.get(), HIDStatus::success);
    auto opened = std::async(std::launch::async, [&] { return device_->open(); });
    input_ = socket_->acceptAs("device");
    input_.send(replyMessage(2)); // Without having read the request.
    EXPECT_EQ(opened.get(), HIDStatus::success);
    std::promise<void> go = holdLoop();
    queueReports();
    input_.hangUp();
    presence_.hangUp();
    go.set_value();
    expectRemovalAfterAllReports();
}

TEST_F(HIDBusRemoval, OfADeviceThatIsNotReadComesAtOnce) {
    auto closed = std::async(std::launch::async, [&] { return device_->close(); });
    EXPECT_EQ(input_.receive()[0], 3);
    input_.send(replyMessage(3));
    EXPECT_EQ(closed.get(), HIDStatus::success);
    presence_.hangUp();
    EXPECT_TRUE(reportsBefore_.awaitValue(0));
}

TEST_F(HIDBusRemoval, ComesWhenTheDeviceIsClosedWhileItsLastInputIsDelivered) {
    std::promise<void> go = holdLoop();
    queueReports();
    presence_.hangUp();
    EXPECT_EQ(device_->close(), HIDStatus::noDevice);
    go.set_value();
    EXPECT_TRUE(reportsBefore_.awaitValue(0));
}

class HIDBusBadInput : public HIDBusRemoval, public ::testing::WithParamInterface<Bytes> {};

TEST_P(HIDBusBadInput, IsARemovalAfterTheReportsBeforeIt) {
    std::promise<void> go = holdLoop();
    queueReports();
    EXPECT_TRUE(input_.send(GetParam()));
    EXPECT_TRUE(input_.send(inputMessage(numberedReport(queued))));
    go.set_value();
    expectRemovalAfterAllReports();
    EXPECT_TRUE(input_.awaitHangUp());
    EXPECT_TRUE(presence_.awaitHangUp());
    EXPECT_EQ(errors().size(), 1U);
    EXPECT_EQ(device_->open(), HIDStatus::noDevice);
}

INSTANTIATE_TEST_SUITE_P(Kinds, HIDBusBadInput,
                         ::testing::Values(Bytes{6}, Bytes{6, 0, 0, 0, 0, 0, 0}, // short header
                                           inputMessage({}),                     // no report
                                           inputMessage(Bytes(65, 1)),           // too long
                                           inputMessage(Bytes(4097, 1)),         // over the limit
                                           inputMessage(Bytes(20000, 1)),        //
                                           Bytes{6, 1, 1, 0, 0, 0, 0, 0, 1},     // another type
                                           Bytes{6, 0, 1, 1, 0, 0, 0, 0, 1},     // reserved byte
                                           replyMessage(2), replyMessage(3),     // unasked replies
                                           replyMessage(5), test::propertiesMessage("device"), //
                                           replyMessage(0), replyMessage(7))); // unknown operations

TEST_F(HIDBusInputByHand, EmptyDatagramEndsTheDevice) {
    EXPECT_EQ(::send(input_.descriptor(), "", 0, MSG_NOSIGNAL), 0);
    EXPECT_TRUE(client_->awaitRemovals(1));
}

TEST_F(HIDBusInputByHand, PassedDescriptorsAreNotKept) {
    const int passed = ::dup(input_.descriptor());
    Bytes message = inputMessage({1});
    iovec part{message.data(), message.size()};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof passed)] = {};
    msghdr header{};
    header.msg_iov = &part;
    header.msg_iovlen = 1;
    header.msg_control = control;
    header.msg_controllen = sizeof control;
    cmsghdr *rights = CMSG_FIRSTHDR(&header);
    rights->cmsg_level = SOL_SOCKET;
    rights->cmsg_type = SCM_RIGHTS;
    rights->cmsg_len = CMSG_LEN(sizeof passed);
    std::memcpy(CMSG_DATA(rights), &passed, sizeof passed);
    EXPECT_GT(::sendmsg(input_.descriptor(), &header, MSG_NOSIGNAL), 0);
    ::close(passed);
    ASSERT_TRUE(recorder_.awaitReports(1)); // And no descriptor is left at the end of the test.
}

} // namespace
} // namespace moxel
