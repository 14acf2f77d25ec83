#include "Moxel Daemon/Protocol/BaseChannel.h"

#include "Moxel Common/Protocol/WireLayouts.h"

#include <array>
#include <cstdio>
#include <cstring>

namespace moxel::daemon {

std::string BaseChannel::nameForUser(uint32_t user) {
    std::array<char, 9> digits{};
    std::snprintf(digits.data(), digits.size(), "%08X", user);
    return std::string("MxlVirtualHIDData_Base") + digits.data();
}

Reply BaseChannel::handleReport(const Peer &peer, uint8_t reportID, std::span<const uint8_t> payload) {
    if (reportID != wire::controlReport)
        return {};
    wire::MxControlPacket packet{};
    if (payload.size() != sizeof packet) {
        complain("a control message of " + std::to_string(payload.size()) + " bytes is ignored");
        return {};
    }
    std::memcpy(&packet, payload.data(), sizeof packet);
    const uint64_t channelID = packet.channelID;
    if (packet.m_DataID == wire::controlMessage && packet.code == wire::createChannel && channelID != 0)
        return {
            HIDStatus::success, {}, [this, channelID, peer] { delegate_.createChannel(channelID, peer); }};
    if (packet.m_DataID == wire::controlMessage && packet.code == wire::terminateChannel)
        return {HIDStatus::success, {}, [this, channelID] { delegate_.terminateChannel(channelID); }};
    complain("a control message that makes no sense is ignored");
    return {};
}

Reply BaseChannel::handleRead(uint8_t) { return {HIDStatus::error, {}}; }

} // namespace moxel::daemon
