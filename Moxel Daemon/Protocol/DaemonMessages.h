// The dictionaries that the daemon sends.
#pragma once

#include "Moxel Daemon/Archive/Value.h"

#include <cstdint>
#include <string>

namespace moxel::daemon {

/// "devadd": a device has arrived.
[[nodiscard]] Dictionary deviceAddedMessage(uint32_t deviceID);
/// "devrm": a device has gone.
[[nodiscard]] Dictionary deviceRemovedMessage(uint32_t deviceID);
/// "udev": which device the driver serves now.
[[nodiscard]] Dictionary deviceIdentityMessage(uint16_t vendorID, uint16_t productID);
/// "uprf": the preferences of a device have changed; `preferences` is a MoxelDevicePrefs.
[[nodiscard]] Dictionary preferencesMessage(uint32_t argument, Data preferences);
/// "cmdsync": `block` has wire::commandSyncBlockSize bytes.
[[nodiscard]] Dictionary commandSyncMessage(uint32_t productID, Data block);
/// "pairinfo": what happened to a receiver's pairing, and its details.
[[nodiscard]] Dictionary pairingMessage(const std::string &command, Dictionary details);
/// "cabdev": a device attached by cable.
[[nodiscard]] Dictionary cabledDeviceMessage(Dictionary details);

/// Preferences of a device with nothing set.
[[nodiscard]] Data plainPreferences(uint32_t deviceID);
/// A block whose bytes count up.
[[nodiscard]] Data countingSyncBlock();

} // namespace moxel::daemon
