// Reads the packets of the daemon's longer messages from storage slot 0, acknowledges and joins them.
#include "Helpers/Logging.h"
#include "Protocol/WireLayouts.h"
#include <Moxel/MoxelClientAPI.h>

#include <array>
#include <cstring>
#include <span>
#include <utility>

namespace moxel {

namespace {

/// Reading packets is part of that method, as far as log lines tell.
constexpr const char *packetSelector =
    "-[MoxelClientAPI handleIncomingData:ofLength:withType:andID:fromSender:]";
/// A message that grows beyond this without its last packet is given up: nobody sends one so long.
constexpr size_t longestMessage = size_t{16} << 20;

} // namespace

void MoxelClientAPI::readDataPacket(uint16_t size, bool wantsAnswer) {
    logInfo("%s, **** DataSize Ok.DataSize to read=%i \n", packetSelector, size);
    std::array<uint8_t, wire::requestSizeLimit> buffer{};
    if (!GetReport(m_refHIDChannelDedicated().get(), wire::storageSlot0Read, buffer.data(), &size))
        return;
    logInfo("%s, ******** GetStorageDataSlot0 Ok. \n", packetSelector);
    wire::mxVDataPacket header;
    std::memcpy(&header, buffer.data(), sizeof header);
    logInfo(
        "%s, ******** GetStorageDataSlot0 ..packetbig... mxVDataPacket->header.m_DataID=%x, payloadloen=%i, "
        "numpack=%i\n",
        packetSelector, header.m_DataID, header.m_PayloadLength, header.m_NumPackets);
    if (wantsAnswer) {
        // Before the packet is looked at: the daemon waits for it whatever the packet holds.
        const bool sent = sendPacketACKToDaemon();
        logInfo("%s, ******** GetStorageDataSlot0 ..packetbig - ACK expected, sent->Result=%@\n",
                packetSelector, sent ? "ACK sent" : "error sending ACK!");
    }
    if (header.m_DataID != wire::dataPacket)
        return;
    const std::span packet(buffer.data(), size);
    if (packet.size() < sizeof header || header.m_PayloadLength > packet.size() - sizeof header) {
        logError("%s, Error: a data packet of %i bytes claims %i bytes of payload and is dropped",
                 packetSelector, size, header.m_PayloadLength);
        return;
    }
    const std::span payload = packet.subspan(sizeof header);
    appendPacket(header, payload.first(header.m_PayloadLength));
}

void MoxelClientAPI::appendPacket(const wire::mxVDataPacket &header, std::span<const uint8_t> payload) {
    if (m_DataReceived_.size() + payload.size() > longestMessage) {
        logError("%s, Error: a message without end is dropped after %lu bytes", packetSelector,
                 m_DataReceived_.size());
        m_DataReceived_ = {};
        return;
    }
    m_DataReceived_.insert(m_DataReceived_.end(), payload.begin(), payload.end());
    if (header.m_LastPacket != 1) {
        logInfo(
            "%s, ******** GetStorageDataSlot0 ..packetbig - INcomplete packet, waiting for others, id=%x\n",
            packetSelector, header.m_DataID);
        return;
    }
    const std::vector<uint8_t> message = std::exchange(m_DataReceived_, {});
    const Result<Value> root = unarchiveObjectWithData(message);
    const Dictionary dictionary = root.ok() ? root->asDictionary() : Dictionary();
    const String request = dictionary["req"].asString();
    logInfo("%s, ******** GetStorageDataSlot0 ..packetbig - COMPlete packet, id=%x. Forwarding %@ to app\n",
            packetSelector, header.m_DataID, request);
    if (!root.ok())
        logError("%s, Error: a message is dropped: %@", packetSelector, root.error().message);
    parseDict(dictionary, request);
}

bool MoxelClientAPI::sendPacketACKToDaemon() {
    const HIDDeviceReference channel = m_refHIDChannelDedicated();
    if (!channel || !m_bClientRegistered())
        return false;
    wire::PacketAcknowledgement packet{};
    packet.m_DataID = wire::packetAcknowledgement;
    packet.length = sizeof packet;
    packet.one = 1;
    packet.code = 0x32;
    return SetReport(channel.get(), channelID(), wire::controlReport, &packet, sizeof packet);
}

} // namespace moxel
