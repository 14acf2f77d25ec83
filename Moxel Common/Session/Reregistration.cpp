// Registers a session again when the daemon asks for it.
#include "Helpers/Condition.h"
#include "Helpers/Logging.h"
#include "Platform/Thread.h"
#include "Protocol/StateForwarder.h"
#include "Session/ClientRegistry.h"
#include <Moxel/MoxelClientAPI.h>
#include <Moxel/MoxelStrings.h>
#include <Moxel/MxlBlockUtil.h>

#include <array>
#include <utility>

namespace moxel {

void MoxelClientAPI::registerAgain() {
    stateForwarder_->keepOrder();
    std::shared_ptr<void> place = placeInCallerQueue(0);
    if (!place)
        return;
    auto again = [self = weak_from_this(), place = std::move(place)]() mutable {
        place.reset(); // It does not wait any more.
        if (const std::shared_ptr<MoxelClientAPI> client = self.lock())
            client->registerAgainOnCallerThread();
    };
    MxlBlockUtil::performBlock(std::move(again), callerThread(), 0, false);
}

void MoxelClientAPI::registerAgainOnCallerThread() {
    // Requests of other threads use the same storage slot and wait for the same acknowledgement.
    const std::lock_guard serialised(classLock());
    struct Request { // Until the end, also when memory runs out.
        MoxelClientAPI &client;
        explicit Request(MoxelClientAPI &requested) : client(requested) { set(true); }
        ~Request() { set(false); }
        Request(const Request &) = delete;
        Request &operator=(const Request &) = delete;
        void set(bool requested) const {
            const std::shared_ptr<Condition> condition = client.m_conditionSignal();
            const std::lock_guard lock(*condition);
            client.setM_bReRegistrationRequest(requested);
            condition->signal();
        }
    };
    const Request request(*this);
    const Ref<MxlApplication> record = applicationInfo();
    const String name = record->name().asString();
    std::array<uint8_t, 256> pascalName{};
    getPascalString(name, pascalName.data());
    const std::shared_ptr<MoxelClientAPI> client = CurrentClientViaClientID(record->clientid().uint16Value());
    uint16_t clientID = 0;
    if (client && client->m_bReRegistrationRequest())
        clientID =
            client->registerMoxelClient(record->signature().uint32Value(), name ? pascalName.data() : nullptr,
                                        record->mode().uint16Value(), record->mask().uint32Value());
    logInfo("blockoperation re-register returned cID=%i", clientID);
}

} // namespace moxel
