// What the HID manager and the channels call back; the context is the client object.
#pragma once

#include "Platform/HIDManager.h"

#include <cstddef>
#include <cstdint>

namespace moxel {

// All on the client thread.

void ChannelConnectedEntry(void *context, HIDStatus result, HIDManager *sender,
                           const HIDDeviceReference &device);
void ChannelDisconnectedEntry(void *context, HIDStatus result, HIDManager *sender,
                              const HIDDeviceReference &device);

void HandleIncomingDataEntryBase(void *context, HIDStatus result, HIDDevice *sender, HIDReportType type,
                                 uint32_t reportID, uint8_t *report, size_t length);
void HandleIncomingDataDedicated(void *context, HIDStatus result, HIDDevice *sender, HIDReportType type,
                                 uint32_t reportID, uint8_t *report, size_t length);

} // namespace moxel
