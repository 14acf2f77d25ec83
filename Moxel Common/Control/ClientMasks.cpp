#include "Control/ClientMasks.h"

#include "Control/RequestSending.h"
#include "ExportedCall.h"
#include "Helpers/Logging.h"
#include "Session/ClientRegistry.h"
#include <Moxel/MoxelClient.h>
#include <Moxel/MoxelClientAPI.h>

namespace moxel {

void SetMoxelClientMasks(uint16_t clientID, bool setMask, uint32_t mask, bool setButtonMask,
                         uint32_t buttonMask) {
    constexpr const char *function = "void SetMoxelClientMasks(uint16_t, bool, uint32_t, bool, uint32_t)";
    logInfo("%s clientID %d mask %d buttonMask %d, thread = %lx", function, clientID, mask, buttonMask,
            currentThreadKey());
    const std::lock_guard lock(MoxelClientAPI::classLock());
    const ClientRegistry::Client client = CurrentClientViaClientID(clientID);
    if (!client)
        return;
    logInfo("*** %s, client=%p", function, static_cast<const void *>(client.get()));
    // The flags are small numbers on the wire, not booleans.
    const bool sent = sendAcknowledgedRequest(*client, {{"req", "setclientmasks"},
                                                        {"bsetmask", uint8_t{setMask}},
                                                        {"clientmask", mask},
                                                        {"bsetbuttonmask", uint8_t{setButtonMask}},
                                                        {"buttonmask", buttonMask}});
    (void)sent; // The setters have no result; the sender has logged what went wrong.
}

} // namespace moxel

using namespace moxel;

void SetMoxelClientMask(uint16_t clientID, uint32_t mask) {
    exportedCall("SetMoxelClientMask", [&] { SetMoxelClientMasks(clientID, true, mask, false, 0); });
}

void SetMoxelClientButtonMask(uint16_t clientID, uint32_t buttonMask) {
    exportedCall("SetMoxelClientButtonMask",
                 [&] { SetMoxelClientMasks(clientID, false, 0, true, buttonMask); });
}
