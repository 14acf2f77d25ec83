// Sends the application's own bytes to the daemon, in slices when they are many.
#include "Control/RequestSending.h"
#include "ExportedCall.h"
#include "Helpers/Logging.h"
#include "Protocol/WireLayouts.h"
#include "Session/ClientRegistry.h"
#include <Moxel/MoxelClient.h>
#include <Moxel/MoxelClientAPI.h>

#include <algorithm>
#include <span>

namespace moxel {

namespace {

constexpr const char *function = "int16_t MoxelClientSendMessage(uint16_t, uint32_t, const void *, size_t)";

/// What MoxelClientSendMessage alone reports when a send fails.
constexpr int16_t sendFailed = 1;

/// Sends every slice, whatever became of the one before; true when the last one has been acknowledged.
bool sendSlices(MoxelClientAPI &client, std::span<const uint8_t> bytes) {
    bool sent = false;
    for (size_t start = 0; start < bytes.size(); start += wire::messageSliceSize) {
        const size_t length = std::min(wire::messageSliceSize, bytes.size() - start);
        logInfo("reading off %lu bytes / %@", length, format("{%lu, %lu}", start, length));
        sent = sendRequest(client, Data(bytes.subspan(start, length)), true);
        logInfo("%s sendUserRequestData returning, %i (%@)", function, sent, successOrFailure(sent));
    }
    return sent;
}

int16_t sendMessage(uint16_t clientID, std::span<const uint8_t> bytes) {
    const std::lock_guard lock(MoxelClientAPI::classLock());
    const ClientRegistry::Client client = CurrentClientViaClientID(clientID);
    if (!client)
        return kMoxelResultFailed;
    if (bytes.size() > wire::messageSliceSize)
        return sendSlices(*client, bytes) ? int16_t{kMoxelResultOK} : sendFailed;
    const bool sent = sendRequest(*client, Data(bytes), false);
    logInfo("%s returning %i (%@)", function, sent, successOrFailure(sent));
    return sent ? int16_t{kMoxelResultOK} : sendFailed;
}

} // namespace

} // namespace moxel

using namespace moxel;

int16_t MoxelClientSendMessage(uint16_t clientID, uint32_t, const void *data, size_t length) {
    if (!data && length > 0)
        return kMoxelResultFailed;
    return exportedCall("MoxelClientSendMessage", static_cast<int16_t>(kMoxelResultFailed), [&] {
        return sendMessage(clientID, std::span(static_cast<const uint8_t *>(data), length));
    });
}
