// Looks into a client object, and makes one without a thread or a bus.
#pragma once

#include "Platform/Thread.h"
#include <Moxel/MoxelClientAPI.h>

#include <memory>
#include <mutex>

namespace moxel {

struct MoxelClientTestAccess {
    using Client = std::shared_ptr<MoxelClientAPI>;

    /// A ready client whose client thread is the test's own.
    static Client make(MoxelMessageHandlerProc message, MoxelAddedHandlerProc added,
                       MoxelRemovedHandlerProc removed, bool threaded) {
        Client client = MoxelClientAPI::create(message, added, removed, threaded);
        client->bClientReady_ = true;
        return client;
    }
    static void setHandlersWithContext(const Client &client, _MoxelMessageHandlerProc message,
                                       _MoxelAddedHandlerProc added, _MoxelRemovedHandlerProc removed,
                                       void *context) {
        client->deviceMessageHandler2_ = message;
        client->deviceAddedHandler2_ = added;
        client->deviceRemovedHandler2_ = removed;
        client->m_ptrClient_ = context;
    }
    static void setReady(const Client &client, bool ready) { client->bClientReady_ = ready; }
    static void setOutstanding(const Client &client, int32_t count) {
        client->outstandingStateCallbacks_ = count;
    }
    static const MoxelStateRecord *ringSlot(const Client &client, size_t index) {
        return &client->stateRing_[index];
    }
    static uint8_t ringIndex(const Client &client) { return client->stateRingIndex_; }
    static size_t bytesBeingJoined(const Client &client) { return client->m_DataReceived_.size(); }
    static std::shared_ptr<Thread> callerThread(const Client &client) { return client->callerThread(); }
    static void setCallerThread(const Client &client, std::shared_ptr<Thread> thread) {
        const std::lock_guard lock(client->fieldMutex_);
        client->callerThread_ = std::move(thread);
    }
    static StateForwarder &stateForwarder(const Client &client) { return *client->stateForwarder_; }
    static void subscribe(const Client &client) { client->subscribe(); }
};

} // namespace moxel
