// What the kernel's files tell of a HID device becomes its properties.
#include "Platform/Linux/HidrawProperties.h"

#include "Platform/Linux/HidrawNode.h"

#include <gtest/gtest.h>

#include <vector>

namespace moxel {
namespace {

const std::vector<uint8_t> descriptor{0x06, 0x00, 0xFF, 0x09, 0x01, 0xA1, 0x01, 0xC0};

std::string uevent(const std::string &identity) {
    return "DRIVER=hid-generic\nHID_ID=" + identity +
           "\nHID_NAME=MxlVirtualHIDData_Base00000000\nHID_PHYS=Moxel/virtual\nHID_UNIQ=S 1\n"
           "MODALIAS=hid:b0006g0001v00004D58p00000002\n";
}

std::string textOf(const BusDeviceProperties &properties, std::string_view key) {
    return std::get<std::string>(*properties.property(key));
}

TEST(HidrawProperties, OfAVirtualDeviceAreInItsUevent) {
    const auto properties = hidrawProperties(uevent("0006:00004D58:00000002"), descriptor, nullptr);
    ASSERT_TRUE(properties.ok());
    EXPECT_EQ(properties->property(hidVendorIDKey), HIDProperty(int64_t{0x4D58}));
    EXPECT_EQ(properties->property(hidProductIDKey), HIDProperty(int64_t{2}));
    EXPECT_EQ(properties->property(hidPrimaryUsagePageKey), HIDProperty(int64_t{0xFF00}));
    EXPECT_EQ(properties->property(hidPrimaryUsageKey), HIDProperty(int64_t{1}));
    EXPECT_EQ(properties->name, "MxlVirtualHIDData_Base00000000");
    EXPECT_EQ(textOf(*properties, hidManufacturerKey), "Moxel");
    EXPECT_EQ(textOf(*properties, hidProductKey), "MxlVirtualHIDData_Base00000000");
    EXPECT_EQ(textOf(*properties, hidSerialNumberKey), "S 1");
}

TEST(HidrawProperties, StringsOfAUSBDeviceComeFromTheDevice) {
    const USBStrings usb{"Maker", "Thing", "42"};
    const auto properties = hidrawProperties(uevent("0003:00004D58:0000C62B"), descriptor, &usb);
    ASSERT_TRUE(properties.ok());
    EXPECT_EQ(properties->productID, 0xC62B);
    EXPECT_EQ(properties->name, "MxlVirtualHIDData_Base00000000");
    EXPECT_EQ(properties->manufacturer, "Maker");
    EXPECT_EQ(properties->product, "Thing");
    EXPECT_EQ(properties->serialNumber, "42");
}

TEST(HidrawProperties, WithoutAManufacturerAUSBDeviceHasNone) {
    const USBStrings usb{};
    EXPECT_EQ(hidrawProperties(uevent("0003:00004D58:00000001"), descriptor, &usb)->manufacturer, "");
}

TEST(HidrawProperties, AddressWithoutASlashIsAllManufacturer) {
    EXPECT_EQ(hidrawProperties("HID_ID=6:1:2\nHID_PHYS=Moxel", {}, nullptr)->manufacturer, "Moxel");
    EXPECT_EQ(hidrawProperties("HID_ID=6:1:2\nHID_PHYS=/Moxel", {}, nullptr)->manufacturer, "");
    EXPECT_EQ(hidrawProperties("HID_ID=6:1:2", {}, nullptr)->manufacturer, "");
}

TEST(HidrawProperties, MalformedIdentityIsAnError) {
    for (const char *identity :
         {"", ":", "::", "0006", "0006:4D58", "0006:4D58:", "0006:4D58:1:2", "0006:4D58:1 ", "x:4D58:1",
          "0006:-1:1", "0006:14D58:1", "0006:4D58:10000", "0006:FFFFFFFFF:1", "6:4D58:1:", "0x6:4D58:1"})
        EXPECT_FALSE(hidrawProperties(uevent(identity), descriptor, nullptr).ok()) << identity;
    EXPECT_FALSE(hidrawProperties("", descriptor, nullptr).ok());
    EXPECT_FALSE(hidrawProperties("XHID_ID=6:1:2\nHID_ID", descriptor, nullptr).ok());
}

TEST(HidrawProperties, TextThatPassesForAnotherLineIsAnError) {
    for (const char *line :
         {"HID_ID=0006:00004D58:00000001", "HID_NAME=b", "HID_PHYS=Moxel/x", "HID_UNIQ=2"}) {
        const std::string name = std::string("HID_NAME=a\n") + line + "\n";
        EXPECT_FALSE(hidrawProperties("HID_ID=0006:00000001:00000002\n" + name + "HID_PHYS=p\nHID_UNIQ=u\n",
                                      {}, nullptr)
                         .ok())
            << line;
    }
    EXPECT_TRUE(
        hidrawProperties("HID_ID=0006:00000001:00000002\nHID_NAME=a\nMODALIAS=HID_NAME=\n", {}, nullptr)
            .ok());
}

TEST(HidrawProperties, NameThatIsNotUTF8IsEscaped) {
    EXPECT_EQ(hidrawProperties("HID_ID=6:1:2\nHID_NAME=a\xFFz\n", {}, nullptr)->name, "a\\xffz");
}

TEST(HidrawNames, ArePrefixAndNumber) {
    EXPECT_TRUE(isHidrawName("hidraw0"));
    EXPECT_TRUE(isHidrawName("hidraw63"));
    for (const char *name : {"", "hidraw", "hidraw-1", "hidraw1x", "xhidraw1", "hiddev0", "hidraw0/.."})
        EXPECT_FALSE(isHidrawName(name)) << name;
}

TEST(UdevRule, NamesTheVendorInFourDigits) {
    EXPECT_EQ(udevRuleForVendor(0x4D58), R"(SUBSYSTEM=="hidraw", KERNELS=="*:4D58:*", TAG+="uaccess")");
    EXPECT_EQ(udevRuleForVendor(0x00A1), R"(SUBSYSTEM=="hidraw", KERNELS=="*:00A1:*", TAG+="uaccess")");
}

} // namespace
} // namespace moxel
