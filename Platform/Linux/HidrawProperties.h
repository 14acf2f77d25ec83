// What the kernel tells of a HID device, as properties of the device.
#pragma once

#include "Platform/Linux/BusMessage.h"
#include "Platform/Result.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace moxel {

/// What a USB device says of itself; empty where it says nothing.
struct USBStrings {
    std::string manufacturer;
    std::string product;
    std::string serialNumber;
};

/// Reads the text of a HID device's uevent file and its report descriptor. `usb` belongs to the USB device
/// that it is part of, null when there is none: its manufacturer is then the text of the physical address
/// before the first '/', and its product the device's name. Fails without a well-formed HID_ID. Any thread.
[[nodiscard]] Result<BusDeviceProperties>
hidrawProperties(std::string_view uevent, std::span<const uint8_t> reportDescriptor, const USBStrings *usb);

} // namespace moxel
