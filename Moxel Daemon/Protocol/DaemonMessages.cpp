#include "Moxel Daemon/Protocol/DaemonMessages.h"

#include "Moxel Common/Protocol/WireLayouts.h"

#include <cstring>
#include <numeric>

namespace moxel::daemon {

Dictionary deviceAddedMessage(uint32_t deviceID) { return {{"req", "devadd"}, {"pid", deviceID}}; }

Dictionary deviceRemovedMessage(uint32_t deviceID) { return {{"req", "devrm"}, {"pid", deviceID}}; }

Dictionary deviceIdentityMessage(uint16_t vendorID, uint16_t productID) {
    return {{"req", "udev"}, {"vid", vendorID}, {"pid", productID}};
}

Dictionary preferencesMessage(uint32_t argument, Data preferences) {
    return {{"req", "uprf"}, {"arg", argument}, {"prefs", std::move(preferences)}};
}

Dictionary commandSyncMessage(uint32_t productID, Data block) {
    return {{"req", "cmdsync"}, {"pid", productID}, {"data", std::move(block)}};
}

Dictionary pairingMessage(const std::string &command, Dictionary details) {
    details.set("req", "pairinfo");
    details.set("ctrlcmd", command);
    return details;
}

Dictionary cabledDeviceMessage(Dictionary details) {
    details.set("req", "cabdev");
    return details;
}

Data plainPreferences(uint32_t deviceID) {
    MoxelDevicePrefs preferences{};
    preferences.deviceID = deviceID;
    Data bytes(sizeof preferences);
    std::memcpy(bytes.data(), &preferences, sizeof preferences);
    return bytes;
}

Data countingSyncBlock() {
    Data block(wire::commandSyncBlockSize);
    std::iota(block.begin(), block.end(), uint8_t{0});
    return block;
}

} // namespace moxel::daemon
