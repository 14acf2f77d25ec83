// Identity properties of HID devices, and printing of HID values.
#include "Support/FakeHIDDevice.h"
#include <Moxel/HIDUtility.h>

#include <gtest/gtest.h>

#include <array>
#include <string>

namespace moxel {
namespace {

using test::FakeHIDDevice;

std::string printed(const std::function<void()> &body) {
    testing::internal::CaptureStdout();
    body();
    std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

HIDValue desktopValue(uint32_t usage, int32_t value) {
    HIDValue result;
    result.element = {.usagePage = 1,
                      .usage = usage,
                      .type = 3,
                      .reportID = 9,
                      .logicalMinimum = -350,
                      .logicalMaximum = 350,
                      .isRelative = true};
    result.length = 2;
    result.integerValue = value;
    return result;
}

TEST(HIDUtility, ClassNameIsTheRegistryEntrysName) {
    const auto device = FakeHIDDevice::channel("MxlVirtualHIDData_Base00000000");
    char name[HIDUtility::classNameRoom];
    EXPECT_TRUE(HIDUtility::getClassName(name, device.get()));
    EXPECT_STREQ(name, "MxlVirtualHIDData_Base00000000");
}

TEST(HIDUtility, ClassNameFailsForNullDeviceMissingEntryAndEmptyName) {
    char name[HIDUtility::classNameRoom];
    EXPECT_FALSE(HIDUtility::getClassName(name, nullptr));
    const auto device = FakeHIDDevice::channel("");
    EXPECT_FALSE(HIDUtility::getClassName(name, device.get()));
    device->name.reset();
    EXPECT_FALSE(HIDUtility::getClassName(name, device.get()));
}

TEST(HIDUtility, ClassNameIsCutToItsBuffer) {
    const auto device = FakeHIDDevice::channel(std::string(300, 'n'));
    char name[HIDUtility::classNameRoom];
    EXPECT_TRUE(HIDUtility::getClassName(name, device.get()));
    EXPECT_EQ(std::string(name), std::string(127, 'n'));
}

TEST(HIDUtility, VendorIDWithoutItsPropertyIsZeroAndPrintsAnError) {
    const auto device = FakeHIDDevice::channel("x");
    device->properties.erase("VendorID");
    uint16_t vendor = 1;
    EXPECT_EQ(printed([&] { vendor = HIDUtility::getVendorID(device.get()); }),
              " ERROR in get_int_property...");
    EXPECT_EQ(vendor, 0);
}

TEST(HIDUtility, IntegersOfAnotherTypeOrFromNullAreErrors) {
    const auto device = FakeHIDDevice::channel("x");
    constexpr const char *error = " ERROR in get_int_property...";
    EXPECT_EQ(printed([&] { EXPECT_EQ(HIDUtility::getIntProperty(device.get(), "Manufacturer"), 0); }),
              error);
    EXPECT_EQ(printed([&] { EXPECT_EQ(HIDUtility::getIntProperty(nullptr, "VendorID"), 0); }), error);
    EXPECT_EQ(printed([&] { EXPECT_EQ(HIDUtility::getIntProperty(device.get(), nullptr), 0); }), error);
}

TEST(HIDUtility, IdentifiersAreCutTo16Bits) {
    const auto device = FakeHIDDevice::channel("x");
    device->properties["VendorID"] = int64_t{0x14D58};
    device->properties["ProductID"] = int64_t{-1};
    EXPECT_EQ(HIDUtility::getVendorID(device.get()), 0x4D58);
    EXPECT_EQ(HIDUtility::getProductID(device.get()), 0xFFFF);
    EXPECT_EQ(HIDUtility::getIntProperty(device.get(), "VendorID"), 0x14D58);
}

TEST(HIDUtility, ProductStringOfSizeOneWritesOnlyAZeroUnit) {
    const auto device = FakeHIDDevice::channel("x");
    device->properties["Product"] = std::string("Controller");
    std::array<char32_t, 2> buffer{9, 9};
    EXPECT_TRUE(HIDUtility::getProductString(device.get(), buffer.data(), 1));
    EXPECT_EQ(buffer, (std::array<char32_t, 2>{0, 9}));
}

TEST(HIDUtility, StringOfLengthZeroLeavesTheBufferUntouched) {
    const auto device = FakeHIDDevice::channel("x");
    std::array<char32_t, 1> buffer{9};
    EXPECT_FALSE(HIDUtility::getManufacturerString(device.get(), buffer.data(), 0));
    EXPECT_FALSE(HIDUtility::getManufacturerString(nullptr, buffer.data(), 1));
    EXPECT_EQ(buffer[0], 9U);
}

TEST(HIDUtility, MissingStringZeroesTheFirstUnitOnly) {
    const auto device = FakeHIDDevice::channel("x");
    std::array<char32_t, 2> buffer{9, 9};
    EXPECT_FALSE(HIDUtility::getStringProperty(device.get(), "Nothing", buffer.data(), buffer.size()));
    EXPECT_EQ(buffer, (std::array<char32_t, 2>{0, 9}));
    EXPECT_FALSE(HIDUtility::getStringProperty(device.get(), "VendorID", buffer.data(), buffer.size()))
        << "a number is no string";
}

TEST(HIDUtility, StringsAreUTF32CutToTheBuffer) {
    const auto device = FakeHIDDevice::channel("x");
    device->properties["Product"] = std::string("aä€😀!");
    std::array<char32_t, 8> buffer{};
    ASSERT_TRUE(HIDUtility::getProductString(device.get(), buffer.data(), buffer.size()));
    EXPECT_EQ(std::u32string(buffer.data()), U"aä€😀!");
    ASSERT_TRUE(HIDUtility::getProductString(device.get(), buffer.data(), 3));
    EXPECT_EQ(std::u32string(buffer.data()), U"aä");
    ASSERT_TRUE(HIDUtility::getProductString(device.get(), buffer.data(), 5));
    EXPECT_EQ(std::u32string(buffer.data()), U"aä€?") << "the cut falls into a character of two UTF-16 units";
}

TEST(HIDUtility, PrintsAxesButtonsAndKeys) {
    EXPECT_EQ(printed([] { HIDUtility::printHIDValueInfo(desktopValue(0x30, 5)); }),
              " Value length: 2.    Desktop X: 5. \n");
    EXPECT_EQ(printed([] { HIDUtility::printHIDValueInfo(desktopValue(0x35, -7)); }),
              " Value length: 2.    Desktop Rz: -7. \n");
    HIDValue value = desktopValue(3, 1);
    value.element.usagePage = 9;
    EXPECT_EQ(printed([&] { HIDUtility::printHIDValueInfo(value); }),
              " Value length: 2.    Button: 3, 1. \n");
    value.element.usagePage = 7;
    EXPECT_EQ(printed([&] { HIDUtility::printHIDValueInfo(value); }),
              " Value length: 2.    Keyboard/Pad: 3, 1. \n");
}

TEST(HIDUtility, PrintsEveryAxisByItsName) {
    const std::array<std::string, 6> names{"X", "Y", "Z", "Rx", "Ry", "Rz"};
    for (uint32_t i = 0; i < names.size(); ++i)
        EXPECT_EQ(printed([i] { HIDUtility::printHIDValueInfo(desktopValue(0x30 + i, 5)); }),
                  " Value length: 2.    Desktop " + names[i] + ": 5. \n");
}

TEST(HIDUtility, PrintsDetailsOfEverythingElse) {
    const std::string details = "  ElementType = 3.  Value: -1 ( 0xffffffff ). \n  ReportID: 9. \n"
                                "  Logical MinMax: [-350, 350] \n  Relative: true. \n";
    EXPECT_EQ(printed([] { HIDUtility::printHIDValueInfo(desktopValue(0x38, -1)); }),
              " Value length: 2. \n  UsagePage = 1; Usage = 38. \n" + details);
    HIDValue vendorDefined = desktopValue(0x35, -1);
    vendorDefined.element.usagePage = 0xFF00;
    EXPECT_EQ(printed([&] { HIDUtility::printHIDValueInfo(vendorDefined); }),
              " Value length: 2. \n  UsagePage = ff00; Usage = 35. \n" + details);
}

} // namespace
} // namespace moxel
