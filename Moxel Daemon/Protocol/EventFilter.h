// Which device-state records a client wants.
#pragma once

#include <Moxel/MoxelClient.h>

#include <cstdint>
#include <optional>

namespace moxel::daemon {

/// What a device-state record reports, with the bit of the client's event mask that asks for it. Records of
/// other commands are for every client.
///
/// | command | reports                                       | event mask |
/// |---------|-----------------------------------------------|------------|
/// | 2       | the buttons changed                           | bit 1      |
/// | 3       | the cap moved                                 | bit 0      |
/// | 10      | an application event was pressed or released  | bit 2      |
/// | 11      | an action of the device itself                | bit 2      |
enum StateCommand : uint16_t {
    buttonsChanged = kMoxelStateButtons,
    capMoved = kMoxelStateMotion,
    applicationEvent = kMoxelStateApplicationEvent,
    deviceAction = kMoxelStateDeviceAction,
};

enum EventMask : uint32_t {
    motionEvents = kMoxelWantsMotion,
    buttonEvents = kMoxelWantsButtons,
    applicationEvents = kMoxelWantsApplication,
};

/// The masks of one client. The button mask takes bits away from every record that carries buttons; a record
/// of buttons whose only changes it takes away is not sent. Lives on the daemon's thread.
class EventFilter {
  public:
    uint32_t eventMask = 0;
    uint32_t buttonMask = 0;

    /// The record as the client shall see it; absent when the client does not want it.
    [[nodiscard]] std::optional<MoxelStateRecord> apply(MoxelStateRecord record);

  private:
    uint32_t lastButtons_ = 0; ///< Of the device, all bits.
};

} // namespace moxel::daemon
