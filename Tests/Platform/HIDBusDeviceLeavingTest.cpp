// Devices of the user-space HID bus that leave while they are in use.
#include "Platform/UserSpaceDevice.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>

namespace moxel {
namespace {

using test::Bytes;
using test::HIDClient;
using test::PublisherConnection;
using test::UserSpaceDevice;

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
