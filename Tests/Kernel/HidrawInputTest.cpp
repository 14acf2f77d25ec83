// Input of the kernel's HID devices, and devices that come and go.
#include "Kernel/KernelDevices.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <ctime>
#include <string>

namespace moxel {
namespace {

using test::Bytes;
using test::HIDClient;
using test::InputRecorder;
using test::KernelDevices;
using test::oursOnly;
using test::VirtualDevice;
using namespace std::chrono_literals;

TEST_F(KernelDevices, DeliverInputInItsOrder) {
    const VirtualDevice device;
    const HIDClient client(oursOnly);
    const HIDDeviceReference found = client.awaitDevice("Moxel Test Device");
    ASSERT_TRUE(found);
    InputRecorder recorder;
    recorder.registerWith(*found);
    ASSERT_EQ(found->open(), HIDStatus::success);
    ASSERT_TRUE(device.await(UHID_OPEN));
    for (uint8_t index = 0; index < 50; ++index)
        device.sendInput(inputReport(index));
    ASSERT_TRUE(recorder.awaitReports(50));
    for (uint8_t index = 0; index < 50; ++index)
        EXPECT_EQ(recorder.reports()[index], inputReport(index));
    EXPECT_EQ(recorder.identifiers()[0], 0x35U);
    EXPECT_EQ(found->close(), HIDStatus::success);
}

TEST_F(KernelDevices, WithoutIdentifiersDeliverReportsOfIdentifier0) {
    const VirtualDevice device({.descriptor = VirtualDevice::unnumberedReports()});
    const HIDClient client(oursOnly);
    const HIDDeviceReference found = client.awaitDevice("Moxel Test Device");
    ASSERT_TRUE(found);
    InputRecorder recorder;
    recorder.registerWith(*found);
    ASSERT_EQ(found->open(), HIDStatus::success);
    ASSERT_TRUE(device.await(UHID_OPEN));
    device.sendInput({1, 2, 3, 4});
    ASSERT_TRUE(recorder.awaitReports(1));
    EXPECT_EQ(recorder.reports()[0], (Bytes{0, 1, 2, 3, 4}));
    EXPECT_EQ(recorder.identifiers()[0], 0U);
    EXPECT_EQ(found->close(), HIDStatus::success);
}

TEST_F(KernelDevices, DeliverWhatIsQueuedBeforeTheyLeave) {
    VirtualDevice device;
    InputRecorder recorder;
    std::atomic<size_t> reportsBeforeRemoval{0};
    const HIDClient client(oursOnly, {}, [&](HIDClient &, const HIDDeviceReference &) {
        reportsBeforeRemoval = recorder.reports().size();
    });
    const HIDDeviceReference found = client.awaitDevice("Moxel Test Device");
    ASSERT_TRUE(found);
    recorder.registerWith(*found);
    ASSERT_EQ(found->open(), HIDStatus::success);
    ASSERT_TRUE(device.await(UHID_OPEN));
    client.onLoop([&] { // Nothing is read meanwhile.
        for (uint8_t index = 0; index < 5; ++index)
            device.sendInput(inputReport(index));
        device.unplug();
    });
    ASSERT_TRUE(client.awaitRemovals(1));
    EXPECT_EQ(reportsBeforeRemoval, 5U);
    EXPECT_EQ(found->close(), HIDStatus::noDevice);
}

TEST_F(KernelDevices, ThatLeftCostNoTime) {
    VirtualDevice leaving({.name = "leaving"});
    const VirtualDevice silent({.name = "silent"});
    const HIDClient client(oursOnly);
    const HIDDeviceReference left = client.awaitDevice("leaving");
    const HIDDeviceReference other = client.awaitDevice("silent");
    ASSERT_TRUE(left && other);
    ASSERT_EQ(left->open(), HIDStatus::success);
    ASSERT_EQ(other->open(), HIDStatus::success);
    leaving.unplug();
    ASSERT_TRUE(client.awaitRemovals(1));
    const auto cpuTime = [] {
        timespec time{};
        ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
        return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
    };
    const auto before = cpuTime();
    Bytes buffer(8);
    size_t length = 0;
    EXPECT_EQ(other->getReport(HIDReportType::output, 0x46, buffer, length),
              HIDStatus::timedOut); // A second.
    EXPECT_LT(cpuTime() - before, 500ms);
}

TEST_F(KernelDevices, ThatTakeTheNumberOfAnEarlierOneAreOthers) {
    const HIDClient client(oursOnly);
    for (int round = 0; round < 20; ++round) {
        const std::string name = "round " + std::to_string(round);
        VirtualDevice device({.name = name});
        const HIDDeviceReference found = client.awaitDevice(name);
        ASSERT_TRUE(found);
        ASSERT_EQ(found->open(), HIDStatus::success);
        device.unplug();
        const VirtualDevice next({.name = "next"});
        EXPECT_TRUE(client.awaitRemovals(static_cast<size_t>(2 * round + 1)));
        EXPECT_EQ(found->open(), HIDStatus::noDevice);
        ASSERT_TRUE(client.awaitArrivals(static_cast<size_t>(2 * round + 2)));
        EXPECT_EQ(client.arrivedNames().back(), "next");
    }
    EXPECT_TRUE(client.awaitRemovals(40));
}

TEST_F(KernelDevices, AreKeptForTwoManagersAtATime) {
    const VirtualDevice device;
    const HIDClient first(oursOnly);
    const HIDClient second(oursOnly);
    InputRecorder firstInput;
    InputRecorder secondInput;
    for (auto &[client, input] : {std::pair(&first, &firstInput), std::pair(&second, &secondInput)}) {
        const HIDDeviceReference found = client->awaitDevice("Moxel Test Device");
        ASSERT_TRUE(found);
        input->registerWith(*found);
        ASSERT_EQ(found->open(), HIDStatus::success);
    }
    device.sendInput(inputReport(1));
    EXPECT_TRUE(firstInput.awaitReports(1));
    EXPECT_TRUE(secondInput.awaitReports(1));
}

} // namespace
} // namespace moxel
