// Takes a session's registration back.
#include "ExportedCall.h"
#include "Helpers/Condition.h"
#include "Helpers/Logging.h"
#include "Protocol/WireLayouts.h"
#include "Session/ClientRegistry.h"
#include <Moxel/MoxelClient.h>
#include <Moxel/MoxelClientAPI.h>

namespace moxel {

bool MoxelClientAPI::unregisterConnection() {
    constexpr const char *selector = "-[MoxelClientAPI unregisterConnection]";
    static std::atomic<uint8_t> callcount{0};
    const auto calls = static_cast<uint8_t>(callcount.fetch_add(1) + 1);
    logInfo("****************** %s, %p, Called %i times...", selector, static_cast<const void *>(this),
            calls);
    if (!setAppInfoRecordExitState(wire::leaving))
        return false;
    if (const HIDDeviceReference channel = m_refHIDChannelDedicated()) {
        if (const HIDStatus status = channel->close(); status != HIDStatus::success)
            logError("ERROR: There was an error closing the dedicated channel device %llu, error %i!",
                     channelID(), static_cast<uint32_t>(status));
        setM_refHIDChannelDedicated(nullptr);
        setM_bHIDChannelDedicatedOpen(false);
    }
    const bool sent = sendChannelControl(wire::terminateChannel);
    logInfo("****************** %s returning %i (%@), termination request for cID=%llx", selector, sent,
            successOrFailure(sent), applicationInfo()->channelID().uint64Value());
    const std::shared_ptr<Condition> condition = m_conditionSignal();
    const std::lock_guard lock(*condition);
    setM_bClientRegistered(false);
    condition->signal();
    return true;
}

namespace {

void unregisterClient(uint16_t clientID) {
    constexpr const char *function = "void UnregisterMoxelClient(uint16_t)";
    logInfo("<<<<<<<<<<<<<<<<<< %s clientID %d, thread = %lx", function, clientID, currentThreadKey());
    // Another session of this thread that waits for its registration or cleanup; freed after the lock.
    ClientRegistry::Client replaced;
    const std::lock_guard lock(MoxelClientAPI::classLock());
    const ClientRegistry::Client client = CurrentClientViaClientID(clientID);
    if (!client) {
        logError("%s, Error: No valid client entry found! Can not unregister! Check your thread, please!!!",
                 function);
        return;
    }
    logInfo("%s m_bClientRegistered =%i, channelID=%llx", function, client->m_bClientRegistered(),
            client->applicationInfo()->channelID().uint64Value());
    const bool isRegistered = [&client] {
        const std::shared_ptr<Condition> condition = client->m_conditionSignal();
        const std::lock_guard conditionLock(*condition);
        return client->m_bClientRegistered();
    }();
    if (isRegistered) {
        if (client->unregisterConnection())
            client->closeBaseChannel();
        else
            logError("%s, Error: Call to terminate ", function);
    }
    replaced = gPendingClients().set(currentThreadKey(), client, currentThreadKey());
    // Not only the entry of clientID: that may be 0, and a repeated registration may have changed the number.
    gClients().removeClient(client);
    letGoOf(replaced);
}

} // namespace

} // namespace moxel

using namespace moxel;

void UnregisterMoxelClient(uint16_t clientID) {
    exportedCall("UnregisterMoxelClient", [clientID] { unregisterClient(clientID); });
}
