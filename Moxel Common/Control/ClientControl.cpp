// Sends control codes to the daemon and answers those that the library knows itself.
#include "Control/RequestSending.h"
#include "ExportedCall.h"
#include "Helpers/Logging.h"
#include "Platform/Thread.h"
#include "Session/ClientRegistry.h"
#include <Moxel/MoxelClient.h>
#include <Moxel/MoxelClientAPI.h>

namespace moxel {

namespace {

/// The current device, or the default while none is known.
uint32_t deviceIdentifier(const MoxelClientAPI &client) {
    const uint32_t identifier = client.m_uDeviceID();
    return identifier != 0 ? identifier : uint32_t{kMoxelDefaultDeviceID};
}

void logEntry(uint16_t clientID, uint32_t message, int32_t param) {
    logInfo("Entry: MoxelClientControl, thread = %lx", currentThreadKey());
    logInfo("1 MoxelClientControl id=%i, message=%c%c%c%c, param=%x\n", clientID, message >> 24,
            message >> 16 & 0xFF, message >> 8 & 0xFF, message & 0xFF, param);
    logInfo("2 MoxelClientControl: currThr=%@, nval=%@", Thread::current()->description(),
            Value(currentThreadKey()));
}

int16_t controlClient(uint16_t clientID, uint32_t message, int32_t param, int32_t *result) {
    constexpr const char *function = "int16_t MoxelClientControl(uint16_t, uint32_t, int32_t, int32_t *)";
    logEntry(clientID, message, param);
    const std::lock_guard lock(MoxelClientAPI::classLock());
    const ClientRegistry::Client client = CurrentClientViaClientID(clientID);
    if (!client)
        return kMoxelResultFailed;
    logInfo("*** %s, client=%p", function, static_cast<const void *>(client.get()));
    if (message == kMoxelCtlGetDeviceID) {
        if (!result)
            return kMoxelResultFailed;
        *result = static_cast<int32_t>(deviceIdentifier(*client));
        return kMoxelResultOK;
    }
    const bool sent = sendAcknowledgedRequest(
        *client,
        {{"req", "moxclientctrl"}, {"message", message}, {"ctrlparm", static_cast<uint32_t>(param)}});
    const int16_t outcome = sent ? kMoxelResultOK : kMoxelResultFailed;
    logInfo("Exit: MoxelClientControl message %x param %d error %d", message, param, outcome);
    return outcome;
}

} // namespace

} // namespace moxel

using namespace moxel;

int16_t MoxelControl(uint32_t message, int32_t param, int32_t *result) {
    if (message == kMoxelCtlIgnored)
        return kMoxelResultOK;
    return MoxelClientControl(0, message, param, result);
}

int16_t MoxelClientControl(uint16_t clientID, uint32_t message, int32_t param, int32_t *result) {
    return exportedCall("MoxelClientControl", static_cast<int16_t>(kMoxelResultFailed),
                        [&] { return controlClient(clientID, message, param, result); });
}
