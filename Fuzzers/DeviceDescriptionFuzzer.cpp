// What a device tells of itself: its report descriptor, the kernel's file about it, its strings, and what the
// client makes of them.
#include "Fuzzers/FuzzInput.h"
#include "Moxel Daemon/Kernel/UhidMessages.h"
#include "Platform/Linux/HidrawProperties.h"
#include "Platform/Linux/ReportDescriptor.h"
#include "Platform/Utf8.h"
#include "Support/FakeHIDDevice.h"
#include <Moxel/HIDUtility.h>

#include <array>
#include <cstring>

using namespace moxel;
using fuzz::FuzzInput;

namespace {

/// A device of the driver's own is recognised again by its descriptor.
void describeOwnDevice(FuzzInput &input) {
    const auto page = input.number<uint16_t>();
    const auto usage = input.number<uint16_t>();
    const ReportDescriptorSummary summary =
        summarizeReportDescriptor(daemon::channelReportDescriptor(page, usage));
    fuzz::require(summary == ReportDescriptorSummary{page, usage, true});
}

/// A device that tells any properties, as the client asks for them.
void askDevice(FuzzInput &input, const BusDeviceProperties &properties) {
    test::FakeHIDDevice device;
    device.name = input.text(300);
    for (const std::string_view key : {hidManufacturerKey, hidProductKey, hidSerialNumberKey})
        device.properties.emplace(key, *properties.property(key));
    device.properties.emplace(hidVendorIDKey, int64_t{input.number<int64_t>()});
    device.properties.emplace("Raw", input.text(300));

    char name[HIDUtility::classNameRoom] = "";
    const bool hasName = HIDUtility::getClassName(name, &device);
    fuzz::require(std::memchr(name, 0, sizeof name) != nullptr);
    fuzz::require(hasName == (name[0] != '\0'));
    (void)HIDUtility::getVendorID(&device);
    std::array<char32_t, 64> text;
    const uint64_t room = input.number<uint8_t>() % (text.size() + 1);
    for (const char *key : {hidManufacturerKey.data(), "Raw", "Missing"}) {
        text.fill(0xFFFFFFFF);
        if (HIDUtility::getStringProperty(&device, key, text.data(), room))
            fuzz::require(std::find(text.begin(), text.begin() + room, U'\0') != text.begin() + room);
        for (size_t i = room; i < text.size(); ++i)
            fuzz::require(text[i] == 0xFFFFFFFF);
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) { return 0; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzInput input(data, size);
    const bool isUSB = input.number<uint8_t>() % 2 == 1;
    const std::vector<uint8_t> descriptor = input.bytes(4096);
    (void)summarizeReportDescriptor(descriptor);
    const std::string uevent = input.text(4096);
    USBStrings usb;
    if (isUSB)
        usb = {input.text(300), input.text(300), input.text(300)};
    describeOwnDevice(input);
    const auto properties = hidrawProperties(uevent, descriptor, isUSB ? &usb : nullptr);
    if (!properties)
        return 0;
    for (const std::string &text :
         {properties->name, properties->manufacturer, properties->product, properties->serialNumber})
        fuzz::require(isUtf8(text));
    askDevice(input, *properties);
    return 0;
}
