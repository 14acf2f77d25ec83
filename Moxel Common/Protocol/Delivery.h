// The kinds of message that are forwarded to the caller thread, under "handler" in a forwarded message.
#pragma once

namespace moxel::delivery {

enum Kind : int {
    /// "data": 48 bytes. Not sent by the library, whose own records need no dictionary (StateForwarder.h).
    stateRecord = 0,
    /// "prefs": bytes or absent. The library sends "arg" instead, so that the handler gets null.
    preferencesChanged = 1,
    deviceAdded = 2,         ///< "pid": device identifier.
    deviceRemoved = 3,       ///< "pid": device identifier.
    commandSync = 5,         ///< "data": 506 bytes.
    settingsFileChanged = 6, ///< "arg": a MoxelSettingsChange.
    pairingInformation = 7,  ///< "arg": length and archive.
};

} // namespace moxel::delivery
