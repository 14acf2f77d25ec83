// The preferences of the device that the driver speaks of, whichever that is.
#pragma once

#include <Moxel/MoxelClient.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace moxel::tool {

/// The library hands preferences out by device; this remembers the devices that may be meant. On the thread
/// that has registered.
class DevicePreferences {
  public:
    /// A device has arrived.
    void add(uint32_t deviceID);

    /// What the driver sent last, if it belongs to a known device or to the current one.
    [[nodiscard]] std::optional<MoxelDevicePrefs> latest() const;

    /// "mvid": the current device.
    [[nodiscard]] static uint32_t currentDevice();

  private:
    static constexpr size_t deviceLimit = 64;

    std::vector<uint32_t> devices_; ///< The latest ones.
};

} // namespace moxel::tool
