// A device of the user-space HID bus that a test publishes by hand, and a client that knows it.
#pragma once

#include "Platform/HIDDevice.h"
#include "Support/BusPublisher.h"
#include "Support/HIDClient.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>
#include <utility>
#include <vector>

namespace moxel::test {

/// One device, published by hand, and one client that knows it.
class UserSpaceDevice : public HIDBusTest {
  protected:
    using Clock = std::chrono::steady_clock;
    /// What a request may take.
    static constexpr std::chrono::milliseconds limit{1000};
    /// What a busy machine may add.
    static constexpr std::chrono::seconds slack{10};
    static constexpr HIDStatus allStatuses[] = {
        HIDStatus::success, HIDStatus::error,    HIDStatus::noDevice,    HIDStatus::badArgument,
        HIDStatus::notOpen, HIDStatus::timedOut, HIDStatus::notPermitted};

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

} // namespace moxel::test
