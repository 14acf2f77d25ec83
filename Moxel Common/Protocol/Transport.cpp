// Frames output reports, sends them, and reads the daemon's storage slot.
#include "ExportedCall.h"
#include "Helpers/Logging.h"
#include "Platform/HIDDevice.h"
#include "Protocol/WireLayouts.h"
#include <Moxel/MoxelClient.h>

#include <array>
#include <cstring>
#include <mutex>
#include <span>

const uint16_t DEXT_Storage_DataID_SetReportStatus = 3;
const uint16_t DEXT_Storage_DataID_GetReportStatus = 4;
const uint16_t DEXT_Storage_DataID_ReleaseChannelSlotDataStatus = 5;
const uint16_t DEXT_Storage_Status_OK = 0;
const uint16_t DEXT_Storage_Status_MemoryAllocated = 1;
const uint16_t DEXT_Storage_Status_MemoryAllocationError = 2;
const uint16_t DEXT_Storage_Status_NoData = 3;
const uint16_t DEXT_Storage_Status_SmallBuffer = 4;

namespace moxel {

namespace {

/// The one framing buffer of the process; its lock is held while a report goes out, so sends are serialised.
std::array<uint8_t, wire::channelTagSize + wire::reportPayloadRoom> ms_SetReportDataBuffer;

std::mutex &sendLock() {
    static std::mutex &lock = *new std::mutex;
    return lock;
}

bool setReport(HIDDevice *device, uint64_t channelTag, uint8_t reportID, const void *data, uint16_t length) {
    // A length of 0 wraps to the largest value and is refused with those above the limit.
    if (!device || !data || static_cast<uint16_t>(length - 1) > wire::reportPayloadLimit - 1)
        return false;
    const std::lock_guard lock(sendLock());
    std::memcpy(ms_SetReportDataBuffer.data(), &channelTag, wire::channelTagSize);
    std::memcpy(ms_SetReportDataBuffer.data() + wire::channelTagSize, data, length);
    const std::span report(ms_SetReportDataBuffer.data(), wire::channelTagSize + length);
    return device->setReport(HIDReportType::output, reportID, report) == HIDStatus::success;
}

bool getReport(HIDDevice *device, uint8_t reportID, void *buffer, const uint16_t *length) {
    if (!device || !buffer || !length || *length == 0)
        return false;
    size_t received = 0;
    const std::span room(static_cast<uint8_t *>(buffer), *length);
    const HIDStatus status = device->getReport(HIDReportType::output, reportID, room, received);
    const bool success = status == HIDStatus::success;
    logInfo("%s, IOHIDDeviceGetReport(reportID=%x) returns with %s(%i)",
            "bool GetReport(IOHIDDeviceRef, uint8_t, void *, uint16_t *)", reportID,
            success ? "Success" : "Error", static_cast<uint32_t>(status));
    return success;
}

} // namespace

} // namespace moxel

using namespace moxel;

bool SetReport(MoxelHIDDeviceRef device, uint64_t channelTag, uint8_t reportID, const void *data,
               uint16_t length) {
    return exportedCall("SetReport", false,
                        [&] { return setReport(device, channelTag, reportID, data, length); });
}

bool GetReport(MoxelHIDDeviceRef device, uint8_t reportID, void *buffer, uint16_t *length) {
    return exportedCall("GetReport", false, [&] { return getReport(device, reportID, buffer, length); });
}

bool SetStorageDataSlot0(MoxelHIDDeviceRef device, uint64_t channelTag, const void *data, uint16_t length) {
    return SetReport(device, channelTag, wire::storageSlot0Write, data, length);
}

bool SetStorageDataSlot1(MoxelHIDDeviceRef device, uint64_t channelTag, const void *data, uint16_t length) {
    return SetReport(device, channelTag, wire::storageSlot1Write, data, length);
}

bool GetStorageDataSlot0(MoxelHIDDeviceRef device, void *buffer, uint16_t *length) {
    return GetReport(device, wire::storageSlot0Read, buffer, length);
}

bool VDataChannel_SendReportID0_SetReport(MoxelHIDDeviceRef device, uint64_t channelTag, const void *data,
                                          uint16_t length) {
    return SetReport(device, channelTag, wire::programReport0, data, length);
}

bool VDataChannel_SendReportID1_SetReport(MoxelHIDDeviceRef device, uint64_t channelTag, const void *data,
                                          uint16_t length) {
    return SetReport(device, channelTag, wire::controlReport, data, length);
}

bool VDataChannel_SetAppInfoRecord(MoxelHIDDeviceRef device, uint64_t channelTag,
                                   const MoxelAppInfoRecord *record) {
    if (!record)
        return false;
    const MoxelAppInfoRecord copy = *record;
    return SetReport(device, channelTag, wire::applicationInfo, &copy, sizeof copy);
}
