// Hands the application the device preferences that the daemon sent last.
#include "ExportedCall.h"
#include "Helpers/Logging.h"
#include "Session/ClientRegistry.h"
#include <Moxel/MoxelClient.h>
#include <Moxel/MoxelClientAPI.h>

#include <algorithm>
#include <cstring>

namespace moxel {

namespace {

int16_t currentDevicePreferences(uint32_t deviceID, MoxelDevicePrefs &preferences) {
    const std::lock_guard lock(MoxelClientAPI::classLock());
    const ClientRegistry::Client client = CurrentClientViaClientID(0);
    if (!client)
        return kMoxelResultFailed;
    logInfo("*** %s, client=%p", "int16_t MoxelGetCurrentDevicePrefs(uint32_t, MoxelDevicePrefs *)",
            static_cast<const void *>(client.get()));
    const Data stored = client->m_dataDevicePrefs();
    if (!stored)
        return kMoxelResultFailed;
    MoxelDevicePrefs current{}; // The daemon may have sent less than a whole record.
    const std::span<const uint8_t> bytes = stored.bytes().first(std::min(stored.size(), sizeof current));
    std::ranges::copy(bytes, reinterpret_cast<uint8_t *>(&current));
    if (current.deviceID != deviceID)
        return kMoxelResultFailed;
    preferences = current;
    return kMoxelResultOK;
}

} // namespace

} // namespace moxel

using namespace moxel;

int16_t MoxelGetCurrentDevicePrefs(uint32_t deviceID, MoxelDevicePrefs *preferences) {
    if (!preferences)
        return kMoxelResultFailed;
    return exportedCall("MoxelGetCurrentDevicePrefs", static_cast<int16_t>(kMoxelResultFailed),
                        [&] { return currentDevicePreferences(deviceID, *preferences); });
}

int16_t MoxelSetButtonLabels(uint32_t, const void *) { return kMoxelResultFailed; }
