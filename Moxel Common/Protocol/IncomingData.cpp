// Classifies input reports, completes waits, and joins the packets of the daemon's longer messages.
#include "CheckUserActive.h"
#include "Helpers/Condition.h"
#include "Helpers/Logging.h"
#include "Protocol/StateForwarder.h"
#include "Protocol/WireLayouts.h"
#include "Session/ChannelCallbacks.h"
#include "Session/ClientRegistry.h"
#include <Moxel/MoxelClientAPI.h>
#include <Moxel/MoxelStrings.h>
#include <Moxel/MxlBlockUtil.h>

#include <cstring>
#include <optional>
#include <utility>

namespace moxel {

namespace {

constexpr const char *selector = "-[MoxelClientAPI handleIncomingData:ofLength:withType:andID:fromSender:]";
constexpr size_t shortestReport = 6;
/// A message that grows beyond this without its last packet is given up: nobody sends one so long.
constexpr size_t longestMessage = size_t{16} << 20;

/// Input reports seen on dedicated channels of the process.
std::atomic<uint16_t> sPacketCount{0};

/// A field of a report; absent when the report ends before it.
template <class T>
std::optional<T> fieldAt(std::span<const uint8_t> report, size_t offset) {
    if (offset + sizeof(T) > report.size())
        return std::nullopt;
    T field;
    std::memcpy(&field, report.data() + offset, sizeof field);
    return field;
}

} // namespace

// ------------------------------------------------------------------------------------------ Callbacks

void HandleIncomingDataEntryBase(void *context, HIDStatus, HIDDevice *sender, HIDReportType, uint32_t,
                                 uint8_t *report, size_t length) {
    constexpr const char *function =
        "void HandleIncomingDataEntryBase(void *, IOReturn, void *, IOHIDReportType, "
        "uint32_t, uint8_t *, CFIndex)";
    logInfo("%s on device %@", function, sender ? Value(sender->description()) : Value());
    if (!context || !report || length == 0)
        return;
    const auto &client = *static_cast<MoxelClientAPI *>(context);
    logInfo("*** %s, MoxelClientAPI/client=%p", function, context);
    if (client.bClientReady() && sender == client.m_refHIDChannelBase().get())
        logInfo("%s, --------------> handleIncomingDataBase. BASE channel SIGNALLING! Not used...ignoring.",
                function);
}

void HandleIncomingDataDedicated(void *context, HIDStatus, HIDDevice *sender, HIDReportType type,
                                 uint32_t reportID, uint8_t *report, size_t length) {
    if (!context || !report || length == 0)
        return;
    auto &client = *static_cast<MoxelClientAPI *>(context);
    if (client.bClientReady() && MoxelCheckUserActive())
        client.handleIncomingData(report, length, type, reportID, sender);
}

// ------------------------------------------------------------------------------------------ Classification

void MoxelClientAPI::handleIncomingData(const uint8_t *data, size_t ofLength, HIDReportType withType,
                                        uint32_t andID, HIDDevice *fromSender) {
    if (!fromSender || fromSender != m_refHIDChannelDedicated().get())
        return;
    ++sPacketCount;
    if (!data || ofLength < shortestReport || withType != HIDReportType::input)
        return;
    switch (andID) {
    case wire::programReport0:
        logInfo("%s, >>>> VData_Repost_SetReport_ProgramReportID0 ....", selector);
        return;
    case wire::echoedReport0:
    case wire::storageSlot0Write:
    case wire::storageSlot0Read:
    case wire::echoedStorage:
        logInfo("%s, >>>> VData_Repost_SetReport_HIDReportID0 ....", selector);
        return;
    case wire::daemonMessage:
        handleDaemonMessage({data, ofLength});
        return;
    default:
        return;
    }
}

void MoxelClientAPI::handleDaemonMessage(std::span<const uint8_t> report) {
    switch (fieldAt<uint16_t>(report, offsetof(wire::InputReportHeader, messageID)).value_or(0)) {
    case wire::deviceState:
        // Copied, because the record stands unaligned in the report.
        if (auto state = fieldAt<MoxelStateRecord>(report, offsetof(wire::DeviceStateReport, record)))
            handleDeviceState(*state);
        return;
    case wire::daemonRequest:
        logInfo("%s, *** VData_Post_UserClient_HIDReportID0, MessageID_DaemonRequest ", selector);
        handleDaemonRequest(report);
        return;
    case wire::daemonResponse:
        logInfo("%s, *** VData_Post_UserClient_HIDReportID0, MessageID_DaemonResponse ", selector);
        handleDaemonResponse(report);
        return;
    default:
        return;
    }
}

void MoxelClientAPI::handleDeviceState(MoxelStateRecord &record) {
    if (!hasMessageHandler())
        return;
    if (allowThreadedCallback_)
        callMessageHandler(m_uProductID(), kMoxelMsgDeviceState, &record);
    else if (const std::shared_ptr<Thread> thread = callerThread())
        stateForwarder_->forward(*thread, m_uProductID(), record);
}

void MoxelClientAPI::handleDaemonResponse(std::span<const uint8_t> report) {
    const auto code = fieldAt<uint8_t>(report, offsetof(wire::DaemonResponse, code));
    const std::shared_ptr<Condition> condition = m_conditionSignal();
    if (code == wire::acknowledgement) {
        logInfo("%s, *** Got ACK signal.", selector);
        const std::lock_guard lock(*condition);
        setM_bPacketACK(true);
        condition->signal();
    } else if (code == wire::registrationAnswer) {
        const auto clientID = fieldAt<uint16_t>(report, offsetof(wire::DaemonResponse, clientID));
        const auto assignedChannelID = fieldAt<uint64_t>(report, offsetof(wire::DaemonResponse, channelID));
        if (!clientID || !assignedChannelID)
            return;
        applicationInfo()->setChannelID(*assignedChannelID);
        applicationInfo()->setClientid(*clientID);
        const std::lock_guard lock(*condition);
        setM_bClientRegistered(true);
        condition->signal();
    }
}

void MoxelClientAPI::handleDaemonRequest(std::span<const uint8_t> report) {
    switch (fieldAt<uint16_t>(report, offsetof(wire::DaemonRequest, code)).value_or(0)) {
    case wire::queryStoredData:
        replyToStoredDataQuery();
        return;
    case wire::registerAgain:
        registerAgain();
        return;
    case wire::dataWaiting: {
        const auto size = fieldAt<uint16_t>(report, offsetof(wire::DaemonRequest, dataSize)).value_or(0);
        const auto flag = fieldAt<uint8_t>(report, offsetof(wire::DaemonRequest, wantsAnswer)).value_or(0);
        if (size >= 1 && size <= wire::requestSizeLimit)
            readDataPacket(size, flag != 0);
        return;
    }
    default:
        return;
    }
}

void MoxelClientAPI::replyToStoredDataQuery() {
    if (!m_bClientRegistered())
        return;
    wire::MxControlPacket packet{};
    packet.m_DataID = wire::controlMessage;
    packet.code = wire::storedDataReply;
    const bool sent =
        SetReport(m_refHIDChannelDedicated().get(), channelID(), wire::controlReport, &packet, sizeof packet);
    logInfo("%s, ****> Notifying driver about stored data. Result: %@", selector,
            sent ? "Success." : "FAILED!");
}

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
    const auto setRequested = [this](bool requested) {
        const std::shared_ptr<Condition> condition = m_conditionSignal();
        const std::lock_guard lock(*condition);
        setM_bReRegistrationRequest(requested);
        condition->signal();
    };
    setRequested(true);
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
    setRequested(false);
}

// ------------------------------------------------------------------------------------------ Data packets

void MoxelClientAPI::readDataPacket(uint16_t size, bool wantsAnswer) {
    logInfo("%s, **** DataSize Ok.DataSize to read=%i \n", selector, size);
    std::array<uint8_t, wire::requestSizeLimit> buffer{};
    if (!GetReport(m_refHIDChannelDedicated().get(), wire::storageSlot0Read, buffer.data(), &size))
        return;
    logInfo("%s, ******** GetStorageDataSlot0 Ok. \n", selector);
    wire::mxVDataPacket header;
    std::memcpy(&header, buffer.data(), sizeof header);
    logInfo(
        "%s, ******** GetStorageDataSlot0 ..packetbig... mxVDataPacket->header.m_DataID=%x, payloadloen=%i, "
        "numpack=%i\n",
        selector, header.m_DataID, header.m_PayloadLength, header.m_NumPackets);
    if (wantsAnswer) {
        // Before the packet is looked at: the daemon waits for it whatever the packet holds.
        const bool sent = sendPacketACKToDaemon();
        logInfo("%s, ******** GetStorageDataSlot0 ..packetbig - ACK expected, sent->Result=%@\n", selector,
                sent ? "ACK sent" : "error sending ACK!");
    }
    if (header.m_DataID != wire::dataPacket)
        return;
    const std::span packet(buffer.data(), size);
    if (packet.size() < sizeof header || header.m_PayloadLength > packet.size() - sizeof header) {
        logError("%s, Error: a data packet of %i bytes claims %i bytes of payload and is dropped", selector,
                 size, header.m_PayloadLength);
        return;
    }
    const std::span payload = packet.subspan(sizeof header);
    appendPacket(header, payload.first(header.m_PayloadLength));
}

void MoxelClientAPI::appendPacket(const wire::mxVDataPacket &header, std::span<const uint8_t> payload) {
    if (m_DataReceived_.size() + payload.size() > longestMessage) {
        logError("%s, Error: a message without end is dropped after %lu bytes", selector,
                 m_DataReceived_.size());
        m_DataReceived_ = {};
        return;
    }
    m_DataReceived_.insert(m_DataReceived_.end(), payload.begin(), payload.end());
    if (header.m_LastPacket != 1) {
        logInfo(
            "%s, ******** GetStorageDataSlot0 ..packetbig - INcomplete packet, waiting for others, id=%x\n",
            selector, header.m_DataID);
        return;
    }
    const std::vector<uint8_t> message = std::exchange(m_DataReceived_, {});
    const Result<Value> root = unarchiveObjectWithData(message);
    const Dictionary dictionary = root.ok() ? root->asDictionary() : Dictionary();
    const String request = dictionary["req"].asString();
    logInfo("%s, ******** GetStorageDataSlot0 ..packetbig - COMPlete packet, id=%x. Forwarding %@ to app\n",
            selector, header.m_DataID, request);
    if (!root.ok())
        logError("%s, Error: a message is dropped: %@", selector, root.error().message);
    parseDict(dictionary, request);
}

} // namespace moxel
