// Requests to the kernel's HID devices, and devices that owe an answer.
#include "Kernel/KernelDevices.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <optional>
#include <thread>
#include <vector>

namespace moxel {
namespace {

using test::Bytes;
using test::HIDClient;
using test::KernelDevices;
using test::oursOnly;
using test::VirtualDevice;
using namespace std::chrono_literals;

TEST_F(KernelDevices, GetOutputReportsByteForByte) {
    const VirtualDevice device;
    const HIDClient client(oursOnly);
    const HIDDeviceReference found = client.awaitDevice("Moxel Test Device");
    ASSERT_TRUE(found);
    EXPECT_EQ(found->setReport(HIDReportType::output, 0x46, Bytes{1}), HIDStatus::notOpen);
    ASSERT_EQ(found->open(), HIDStatus::success);
    Bytes longest(3071);
    for (size_t index = 0; index < longest.size(); ++index)
        longest[index] = static_cast<uint8_t>(index * 7);
    EXPECT_EQ(found->setReport(HIDReportType::output, 0x46, Bytes{1, 2, 3}), HIDStatus::success);
    EXPECT_EQ(found->setReport(HIDReportType::output, 0x46, longest), HIDStatus::success);
    EXPECT_EQ(found->setReport(HIDReportType::output, 0x46, Bytes(4095)), HIDStatus::success);
    EXPECT_EQ(found->setReport(HIDReportType::output, 0x46, Bytes(4096)), HIDStatus::badArgument);
    ASSERT_TRUE(device.await(UHID_OUTPUT, 3));
    const std::vector<Bytes> outputs = device.outputs();
    EXPECT_EQ(outputs[0], (Bytes{0x46, 1, 2, 3}));
    EXPECT_EQ(outputs[1], test::operator+(Bytes{0x46}, longest));
    EXPECT_EQ(outputs[2].size(), 4096U);
    EXPECT_EQ(found->close(), HIDStatus::success);
}

TEST_F(KernelDevices, AnswerRequestsForReports) {
    VirtualDevice device;
    device.setAnswer([](uint8_t reportID) { return Bytes{reportID, 9, 8, 7}; });
    const HIDClient client(oursOnly);
    const HIDDeviceReference found = client.awaitDevice("Moxel Test Device");
    ASSERT_TRUE(found);
    Bytes buffer(100, 0xAA);
    size_t length = 99;
    EXPECT_EQ(found->getReport(HIDReportType::output, 0x46, buffer, length), HIDStatus::notOpen);
    EXPECT_EQ(length, 0U);
    ASSERT_EQ(found->open(), HIDStatus::success);
    ASSERT_EQ(found->getReport(HIDReportType::output, 0x46, buffer, length), HIDStatus::success);
    EXPECT_EQ(length, 3U);
    EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 4), (Bytes{9, 8, 7, 0xAA}));
    ASSERT_EQ(found->getReport(HIDReportType::output, 0x46, std::span(buffer).first(2), length),
              HIDStatus::success);
    EXPECT_EQ(length, 2U);
    device.setAnswer([](uint8_t) { return Bytes(); });
    EXPECT_EQ(found->getReport(HIDReportType::output, 0x46, buffer, length), HIDStatus::error);
    EXPECT_EQ(length, 0U);
    EXPECT_EQ(found->close(), HIDStatus::success);
}

TEST_F(KernelDevices, ThatOweAnAnswerTimeOutAfterASecond) {
    const VirtualDevice device;
    const HIDClient client(oursOnly);
    const HIDDeviceReference found = client.awaitDevice("Moxel Test Device");
    ASSERT_TRUE(found);
    ASSERT_EQ(found->open(), HIDStatus::success);
    Bytes buffer(8);
    size_t length = 0;
    const auto start = Clock::now();
    EXPECT_EQ(found->getReport(HIDReportType::output, 0x46, buffer, length), HIDStatus::timedOut);
    EXPECT_GE(Clock::now() - start, 1s);
    // The kernel waits on; who comes next waits in vain, but no longer.
    EXPECT_EQ(found->setReport(HIDReportType::output, 0x46, Bytes{1}), HIDStatus::timedOut);
    EXPECT_LT(Clock::now() - start, 4s);
    EXPECT_EQ(found->close(), HIDStatus::success);
    EXPECT_LT(Clock::now() - start, 5s);
}

TEST_F(KernelDevices, ThatLeaveWakeWhoWaitsForThem) {
    VirtualDevice device;
    const HIDClient client(oursOnly);
    const HIDDeviceReference found = client.awaitDevice("Moxel Test Device");
    ASSERT_TRUE(found);
    ASSERT_EQ(found->open(), HIDStatus::success);
    auto answer = std::async(std::launch::async, [&found] {
        Bytes buffer(8);
        size_t length = 0;
        return found->getReport(HIDReportType::output, 0x46, buffer, length);
    });
    ASSERT_TRUE(device.await(UHID_GET_REPORT));
    const auto start = Clock::now();
    device.unplug();
    // The kernel ends the request with an error, and a moment later the device.
    EXPECT_THAT(answer.get(), ::testing::AnyOf(HIDStatus::error, HIDStatus::noDevice));
    EXPECT_LT(Clock::now() - start, 900ms) << "not because the time was up";
    EXPECT_TRUE(client.awaitRemovals(1));
    EXPECT_EQ(found->setReport(HIDReportType::output, 0x46, Bytes{1}), HIDStatus::noDevice);
}

/// One waits in the kernel, the other for its turn.
TEST_F(KernelDevices, ThatLeaveWakeEveryoneWhoWaits) {
    VirtualDevice device;
    const HIDClient client(oursOnly);
    const HIDDeviceReference found = client.awaitDevice("Moxel Test Device");
    ASSERT_TRUE(found);
    ASSERT_EQ(found->open(), HIDStatus::success);
    std::atomic<int> begun{0};
    const auto ask = [&] {
        Bytes buffer(8);
        size_t length = 0;
        ++begun;
        return found->getReport(HIDReportType::output, 0x46, buffer, length);
    };
    auto first = std::async(std::launch::async, ask);
    ASSERT_TRUE(device.await(UHID_GET_REPORT));
    auto second = std::async(std::launch::async, ask);
    while (begun < 2)
        std::this_thread::yield();
    const auto start = Clock::now();
    device.unplug();
    EXPECT_THAT(first.get(), ::testing::AnyOf(HIDStatus::error, HIDStatus::noDevice));
    EXPECT_THAT(second.get(), ::testing::AnyOf(HIDStatus::error, HIDStatus::noDevice));
    EXPECT_LT(Clock::now() - start, 900ms) << "not because the time was up";
    EXPECT_TRUE(client.awaitRemovals(1));
}

/// A device that owes an answer makes the kernel keep everyone waiting who opens or closes another.
class KernelDevicesBesideASilentOne : public KernelDevices {
  protected:
    void SetUp() override {
        KernelDevices::SetUp();
        if (IsSkipped())
            return;
        silent.emplace(VirtualDevice::Description{.name = "silent"});
        other.emplace(VirtualDevice::Description{.name = "other"});
        client.emplace(oursOnly);
        silentDevice = client->awaitDevice("silent");
        otherDevice = client->awaitDevice("other");
        ASSERT_TRUE(silentDevice && otherDevice);
        ASSERT_EQ(silentDevice->open(), HIDStatus::success);
    }
    void TearDown() override {
        if (answer.valid())
            answer.wait();
        silentDevice.reset();
        otherDevice.reset();
        client.reset();
        silent.reset();
        other.reset();
        KernelDevices::TearDown();
    }
    void askTheSilentOne() {
        answer = std::async(std::launch::async, [this] {
            Bytes buffer(8);
            size_t length = 0;
            return silentDevice->getReport(HIDReportType::output, 0x46, buffer, length);
        });
        ASSERT_TRUE(silent->await(UHID_GET_REPORT));
    }

    std::optional<VirtualDevice> silent;
    std::optional<VirtualDevice> other;
    std::optional<HIDClient> client;
    HIDDeviceReference silentDevice;
    HIDDeviceReference otherDevice;
    std::future<HIDStatus> answer;
};

TEST_F(KernelDevicesBesideASilentOne, AreOpenedTooLateAndArriveAnew) {
    askTheSilentOne();
    EXPECT_EQ(otherDevice->open(), HIDStatus::timedOut);
    EXPECT_EQ(errorsWith("(other) is not used: the kernel keeps everyone waiting"), 1U);
    silent->unplug();
    ASSERT_TRUE(client->awaitRemovals(2));
    ASSERT_TRUE(client->awaitArrivals(3));
    EXPECT_EQ(client->arrivedNames().back(), "other");
    EXPECT_EQ(otherDevice->open(), HIDStatus::noDevice);
    EXPECT_EQ(client->arrived().back()->open(), HIDStatus::success);
    EXPECT_EQ(client->arrived().back()->close(), HIDStatus::success);
}

TEST_F(KernelDevicesBesideASilentOne, CloseWithoutHoldingTheRunLoop) {
    ASSERT_EQ(otherDevice->open(), HIDStatus::success);
    askTheSilentOne();
    const auto start = Clock::now();
    client->onLoop([this] { EXPECT_EQ(otherDevice->close(), HIDStatus::success); });
    client->settle();
    EXPECT_LT(Clock::now() - start, 700ms);
    silent->unplug();
}

} // namespace
} // namespace moxel
