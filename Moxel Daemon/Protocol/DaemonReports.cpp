#include "Moxel Daemon/Protocol/DaemonReports.h"

#include <cstring>

namespace moxel::daemon {

namespace {

/// Bytes of a response that only tells its code.
constexpr size_t shortResponseSize = offsetof(wire::DaemonResponse, reserved1);

template <class Layout>
Data bytesOf(const Layout &layout, size_t size = sizeof(Layout)) {
    Data bytes(size);
    std::memcpy(bytes.data(), &layout, size);
    return bytes;
}

wire::InputReportHeader header(wire::MessageID messageID) { return {wire::daemonMessage, messageID}; }

Data requestReport(wire::DaemonRequestCode code, uint16_t dataSize, bool wantsAnswer) {
    return bytesOf(wire::DaemonRequest{header(wire::daemonRequest), code, dataSize, wantsAnswer});
}

} // namespace

Data stateReport(const MoxelStateRecord &record) {
    return bytesOf(wire::DeviceStateReport{header(wire::deviceState), {}, record});
}

Data acknowledgementReport() {
    wire::DaemonResponse response{};
    response.header = header(wire::daemonResponse);
    response.code = wire::acknowledgement;
    return bytesOf(response, shortResponseSize);
}

Data registrationAnswerReport(uint16_t clientID, uint64_t channelID) {
    wire::DaemonResponse response{};
    response.header = header(wire::daemonResponse);
    response.code = wire::registrationAnswer;
    response.clientID = clientID;
    response.channelID = channelID;
    return bytesOf(response);
}

Data dataWaitingReport(uint16_t size, bool wantsAnswer) {
    return requestReport(wire::dataWaiting, size, wantsAnswer);
}

Data storedDataQueryReport() { return requestReport(wire::queryStoredData, 0, false); }

Data registerAgainReport() { return requestReport(wire::registerAgain, 0, false); }

} // namespace moxel::daemon
