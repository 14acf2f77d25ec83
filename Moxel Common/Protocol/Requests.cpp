// Sends requests through storage slot 1 and waits for their acknowledgement.
#include "Helpers/Condition.h"
#include "Helpers/Logging.h"
#include "Protocol/WireLayouts.h"
#include <Moxel/MoxelClientAPI.h>

namespace moxel {

namespace {

constexpr const char *sendSelector =
    "-[MoxelClientAPI sendUserRequestData:onChannel:requestID:andCommand:requireACK:]";
constexpr std::chrono::seconds acknowledgementLimit{2};

/// Writes a request into storage slot 1 and announces it.
bool placeRequest(HIDDevice *channel, uint64_t tag, std::span<const uint8_t> request, uint16_t requestID,
                  uint16_t command) {
    const auto length = static_cast<uint16_t>(request.size());
    if (!SetReport(channel, tag, wire::storageSlot1Write, request.data(), length)) {
        logError("%s, SetStorageDataSlot1(reID=%i, reqCmd=%i) executed returning an error!", sendSelector,
                 requestID, command);
        return false;
    }
    logInfo("%s, **** New data placed in Storage. Len=%lu %i\n", sendSelector, request.size(), length);
    wire::MxControlPacket notification{};
    notification.m_DataID = wire::controlMessage;
    notification.code = requestID;
    notification.request = {length, command};
    return SetReport(channel, tag, wire::controlReport, &notification, sizeof notification);
}

} // namespace

bool MoxelClientAPI::sendUserRequestData(const Data &data, const HIDDeviceReference &onChannel,
                                         uint16_t requestID, uint16_t andCommand, bool requireACK) {
    const bool sent = [&] {
        if (!data || !onChannel)
            return false;
        if (data.size() > wire::requestSizeLimit) {
            logError("%s, SetStorageDataSlot1(reID=%i, reqCmd=%i) data size %lu exceeds %i!", sendSelector,
                     requestID, andCommand, data.size(), wire::requestSizeLimit);
            return false;
        }
        const bool placed =
            placeRequest(onChannel.get(), channelTagFor(onChannel), data.bytes(), requestID, andCommand);
        return requireACK && placed ? waitForAcknowledgement() : placed;
    }();
    logInfo("<<<< =====================================================\n");
    return sent;
}

uint64_t MoxelClientAPI::channelTagFor(const HIDDeviceReference &channel) const {
    const std::shared_ptr<Condition> condition = m_conditionSignal();
    const std::lock_guard lock(*condition);
    if (channel == m_refHIDChannelBase())
        return wire::baseChannelTag;
    return channel == m_refHIDChannelDedicated() ? channelID() : wire::foreignDeviceTag;
}

bool MoxelClientAPI::waitForAcknowledgement() {
    const std::shared_ptr<Condition> condition = m_conditionSignal();
    const auto deadline = Condition::Clock::now() + acknowledgementLimit;
    const std::lock_guard lock(*condition);
    const bool acknowledged = condition->waitUntil(deadline, [this] { return m_bPacketACK(); });
    if (!acknowledged)
        logError("%s, Error: Timeout - Failed to receive ACK packet in time...!", sendSelector);
    setM_bPacketACK(false);
    return acknowledged;
}

} // namespace moxel
