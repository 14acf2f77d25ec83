// Classifies input reports, and completes the waits that they answer.
#include "CheckUserActive.h"
#include "Helpers/Condition.h"
#include "Helpers/Logging.h"
#include "Protocol/StateForwarder.h"
#include "Protocol/WireLayouts.h"
#include "Session/ChannelCallbacks.h"
#include <Moxel/MoxelClientAPI.h>

#include <cstring>
#include <optional>

namespace moxel {

namespace {

constexpr const char *selector = "-[MoxelClientAPI handleIncomingData:ofLength:withType:andID:fromSender:]";
constexpr size_t shortestReport = 6;

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

} // namespace moxel
