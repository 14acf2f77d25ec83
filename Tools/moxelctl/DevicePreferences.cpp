#include "DevicePreferences.h"

#include <algorithm>

namespace moxel::tool {

void DevicePreferences::add(uint32_t deviceID) {
    if (std::ranges::find(devices_, deviceID) != devices_.end())
        return;
    if (devices_.size() == deviceLimit)
        devices_.erase(devices_.begin());
    devices_.push_back(deviceID);
}

std::optional<MoxelDevicePrefs> DevicePreferences::latest() const {
    std::vector<uint32_t> candidates = devices_;
    candidates.push_back(currentDevice());
    for (const uint32_t deviceID : candidates) {
        MoxelDevicePrefs preferences;
        if (MoxelGetCurrentDevicePrefs(deviceID, &preferences) == kMoxelResultOK)
            return preferences;
    }
    return std::nullopt;
}

uint32_t DevicePreferences::currentDevice() {
    int32_t device = 0;
    return MoxelControl(kMoxelCtlGetDeviceID, 0, &device) == kMoxelResultOK ? static_cast<uint32_t>(device)
                                                                            : uint32_t{kMoxelDefaultDeviceID};
}

} // namespace moxel::tool
