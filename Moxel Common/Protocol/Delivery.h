// The kinds of message that are forwarded to the caller thread, under "handler" in a forwarded message.
#pragma once

namespace moxel::delivery {

enum Kind : int {
    stateRecord = 0,         ///< "data": 48 bytes.
    preferencesChanged = 1,  ///< "prefs": bytes or absent.
    deviceAdded = 2,         ///< "pid": device identifier.
    deviceRemoved = 3,       ///< "pid": device identifier.
    commandSync = 5,         ///< "data": 506 bytes.
    settingsFileChanged = 6, ///< "arg": a MoxelSettingsChange.
    pairingInformation = 7,  ///< "arg": length and archive.
    kinds = 8,
};

} // namespace moxel::delivery
