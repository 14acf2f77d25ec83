// Reads identity properties of HID devices and prints HID values for diagnosis.
#pragma once

#include "MoxelBase.h"
#include "Platform/HIDDevice.h"
#include "Platform/HIDValue.h"

#include <cstddef>
#include <cstdint>

namespace moxel {

/// Class operations only; any thread. Buffers of 32-bit units hold UTF-32 text.
class MOXEL_EXPORT HIDUtility {
  public:
    HIDUtility() = delete;

    /// Bytes of a class name, the zero at its end included.
    static constexpr size_t classNameRoom = 128;

    /// +[HIDUtility getClassName:fromDevice:]
    /// The name of the device's registry entry, cut to 127 bytes. False for a null device, or without a name.
    [[nodiscard]] static bool getClassName(char (&name)[classNameRoom], HIDDevice *fromDevice);
    /// +[HIDUtility printHIDValueInfo:]
    /// On standard output.
    static void printHIDValueInfo(const HIDValue &value);
    /// +[HIDUtility getIntProperty:forKey:]
    /// 0, and a line on standard output, when there is no such number.
    static int32_t getIntProperty(HIDDevice *device, const char *forKey);
    /// +[HIDUtility getStringProperty:forKey:intoBuffer:ofLength:]
    /// Cut to `ofLength` - 1 units and a zero. False, the first unit zeroed, when there is no such property.
    [[nodiscard]] static bool getStringProperty(HIDDevice *device, const char *forKey, char32_t *intoBuffer,
                                                uint64_t ofLength);
    /// +[HIDUtility getVendorID:]
    static uint16_t getVendorID(HIDDevice *device);
    /// +[HIDUtility getProductID:]
    static uint16_t getProductID(HIDDevice *device);
    /// +[HIDUtility getManufacturerString:intoBuffer:ofSize:]
    [[nodiscard]] static bool getManufacturerString(HIDDevice *device, char32_t *intoBuffer, uint64_t ofSize);
    /// +[HIDUtility getProductString:intoBuffer:ofSize:]
    [[nodiscard]] static bool getProductString(HIDDevice *device, char32_t *intoBuffer, uint64_t ofSize);
};

} // namespace moxel
