// The kernel's HID devices as a client finds and opens them.
#include "Kernel/KernelDevices.h"

#include <gtest/gtest.h>

namespace moxel {
namespace {

using test::HIDClient;
using test::KernelDevices;
using test::oursOnly;
using test::VirtualDevice;

TEST_F(KernelDevices, HaveTheNameAndThePropertiesThatTheyWereMadeWith) {
    const VirtualDevice device;
    const HIDClient client(oursOnly);
    const HIDDeviceReference found = client.awaitDevice("Moxel Test Device");
    ASSERT_TRUE(found);
    EXPECT_EQ(numberOf(*found, hidVendorIDKey), 0x4D58);
    EXPECT_EQ(numberOf(*found, hidProductIDKey), 0x0102);
    EXPECT_EQ(numberOf(*found, hidPrimaryUsagePageKey), 0xFF00);
    EXPECT_EQ(numberOf(*found, hidPrimaryUsageKey), 1);
    EXPECT_EQ(textOf(*found, hidManufacturerKey), "Moxel");
    EXPECT_EQ(textOf(*found, hidProductKey), "Moxel Test Device");
    EXPECT_EQ(textOf(*found, hidSerialNumberKey), "S1");
    EXPECT_TRUE(found->description().ends_with(" Moxel Test Device vendor 0x4D58 product 0x0102>"));
}

TEST_F(KernelDevices, AreFoundWhetherTheyComeBeforeTheManagerOrAfterIt) {
    const VirtualDevice before({.name = "before"});
    const HIDClient client(oursOnly);
    EXPECT_TRUE(client.awaitDevice("before"));
    const VirtualDevice after({.name = "after"});
    EXPECT_TRUE(client.awaitDevice("after"));
    EXPECT_EQ(client.arrived().size(), 2U);
}

TEST_F(KernelDevices, LeaveWhenTheyAreUnplugged) {
    VirtualDevice device;
    const HIDClient client(oursOnly);
    ASSERT_TRUE(client.awaitDevice("Moxel Test Device"));
    device.unplug();
    ASSERT_TRUE(client.awaitRemovals(1));
    EXPECT_EQ(client.removed()[0], client.arrived()[0]);
    EXPECT_EQ(client.removed()[0]->open(), HIDStatus::noDevice);
}

TEST_F(KernelDevices, AreNotOpenedUntilTheApplicationOpensThem) {
    const VirtualDevice stranger({.name = "stranger", .vendorID = 0x1234});
    const VirtualDevice ours;
    const HIDClient client(oursOnly);
    const HIDDeviceReference found = client.awaitDevice("Moxel Test Device");
    ASSERT_TRUE(found);
    EXPECT_EQ(ours.count(UHID_OPEN), 0U);
    ASSERT_EQ(found->open(), HIDStatus::success);
    ASSERT_TRUE(ours.await(UHID_OPEN));
    EXPECT_EQ(found->open(), HIDStatus::success);
    ASSERT_EQ(found->close(), HIDStatus::success);
    ASSERT_TRUE(ours.await(UHID_CLOSE));
    EXPECT_EQ(found->close(), HIDStatus::notOpen);
    EXPECT_EQ(ours.count(UHID_OPEN), 1U);
    EXPECT_EQ(stranger.count(UHID_OPEN), 0U);
    EXPECT_EQ(client.arrived().size(), 1U);
}

} // namespace
} // namespace moxel
