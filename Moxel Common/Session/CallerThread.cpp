// Delivery of messages on the thread that installed the handlers.
#include "Protocol/Delivery.h"
#include "Protocol/StateForwarder.h"
#include <Moxel/MoxelClientAPI.h>

#include <algorithm>
#include <cstring>

namespace moxel {

namespace {

/// Outstanding records from which on stale ones are dropped.
constexpr int32_t backlog = 2;

void *pointerTo(const Data &data) { return const_cast<uint8_t *>(data.bytes().data()); }

} // namespace

void MoxelClientAPI::callerThreadProxy(const Dictionary &message) {
    if (!bClientReady())
        return;
    const uint32_t productID = message["pid"].uint32Value();
    switch (message["handler"].int64Value()) {
    case delivery::stateRecord:
        // Without a handler or a record the count of outstanding ones stays.
        if (hasMessageHandler() && message["data"])
            deliverStateData(productID, message["data"].asData());
        return;
    case delivery::preferencesChanged:
        callMessageHandler(productID, kMoxelMsgPrefsChanged, pointerTo(message["prefs"].asData()));
        return;
    case delivery::deviceAdded:
        callAddedHandler(productID);
        return;
    case delivery::deviceRemoved:
        callRemovedHandlers(productID);
        return;
    case delivery::commandSync:
        if (const Data data = message["data"].asData(); data.size() > 0)
            callMessageHandler(productID, kMoxelMsgCommandSync, pointerTo(data));
        return;
    case delivery::settingsFileChanged:
        callMessageHandler(productID, kMoxelMsgSettingsFileChanged, pointerTo(message["arg"].asData()));
        return;
    case delivery::pairingInformation:
        callMessageHandler(productID, kMoxelMsgPairingInfo, pointerTo(message["arg"].asData()));
        return;
    default:
        return;
    }
}

// ------------------------------------------------------------------------------------------ State records

void MoxelClientAPI::deliverStateData(uint32_t productID, const Data &data) {
    if (data.size() > 0) {
        MoxelStateRecord record{};
        std::memcpy(&record, data.bytes().data(), std::min(data.size(), sizeof record));
        deliverStateRecord(productID, record);
    }
    --outstandingStateCallbacks_;
}

void MoxelClientAPI::deliverForwardedState(uint32_t productID, MoxelStateRecord &record) {
    if (bClientReady())
        deliverStateRecord(productID, record);
    --outstandingStateCallbacks_;
}

void MoxelClientAPI::deliverStateRecord(uint32_t productID, MoxelStateRecord &record) {
    const bool isStale = outstandingStateCallbacks_ >= backlog && StateForwarder::isDroppable(record);
    if (const MoxelMessageHandlerProc plain = deviceMessageHandler_) {
        if (stateRingIndex_ >= stateRing_.size())
            stateRingIndex_ = 0;
        MoxelStateRecord &slot = stateRing_[stateRingIndex_];
        slot = record; // Before the record may be dropped: the next one then takes the same slot.
        if (isStale)
            return;
        plain(productID, kMoxelMsgDeviceState, &slot);
        ++stateRingIndex_;
    } else if (const _MoxelMessageHandlerProc withContext = deviceMessageHandler2_; withContext && !isStale) {
        withContext(productID, kMoxelMsgDeviceState, &record, m_ptrClient());
    }
}

// ------------------------------------------------------------------------------------------ Handlers

bool MoxelClientAPI::hasMessageHandler() const noexcept {
    return deviceMessageHandler_ || deviceMessageHandler2_;
}

void MoxelClientAPI::callMessageHandler(uint32_t productID, uint32_t message, void *argument) {
    if (const MoxelMessageHandlerProc plain = deviceMessageHandler_)
        plain(productID, message, argument);
    else if (const _MoxelMessageHandlerProc withContext = deviceMessageHandler2_)
        withContext(productID, message, argument, m_ptrClient());
}

void MoxelClientAPI::callAddedHandler(uint32_t deviceID) {
    if (const MoxelAddedHandlerProc plain = deviceAddedHandler_)
        plain(deviceID);
    else if (const _MoxelAddedHandlerProc withContext = deviceAddedHandler2_)
        withContext(deviceID, m_ptrClient());
}

void MoxelClientAPI::callRemovedHandlers(uint32_t deviceID) {
    // Both, unlike the added handlers, of which one is called.
    if (const MoxelRemovedHandlerProc plain = deviceRemovedHandler_)
        plain(deviceID);
    if (const _MoxelRemovedHandlerProc withContext = deviceRemovedHandler2_)
        withContext(deviceID, m_ptrClient());
}

} // namespace moxel
