#include "Moxel Daemon/Protocol/DataChannel.h"

#include "Moxel Common/Protocol/WireLayouts.h"

#include <algorithm>
#include <cstring>

namespace moxel::daemon {

namespace {

bool isWritableReport(uint8_t reportID) {
    return reportID == wire::programReport0 || reportID == wire::controlReport ||
           reportID == wire::storageSlot0Write || reportID == wire::storageSlot1Write ||
           reportID == wire::applicationInfo;
}

} // namespace

Result<void> DataChannel::publish(Publisher &publisher, const DeviceDescription &device) {
    name_ = device.name;
    connectionCount_ = 0;
    Result<std::unique_ptr<Channel>> channel = publisher.publish(device, *this);
    if (!channel.ok())
        return channel.error();
    channel_ = std::move(*channel);
    return {};
}

size_t DataChannel::sendInput(Data report) {
    if (!channel_)
        return 0;
    report.resize(std::max(report.size(), services_.inputReportSize));
    return channel_->sendInput(report);
}

void DataChannel::complain(const std::string &what) { complaints_.log("Error: " + name_ + ": " + what); }

// ------------------------------------------------------------------------------------------ Connections

void DataChannel::connected(const Peer &) {
    ++connectionCount_;
    services_.peersChanged();
}

void DataChannel::disconnected(const Peer &) {
    --connectionCount_;
    services_.peersChanged();
}

Reply DataChannel::open(const Peer &) {
    lastUse_ = Clock::now();
    if (refusesOpen())
        return {HIDStatus::notPermitted, {}};
    return {HIDStatus::success, {}, [this] {
                openCountChanged();
                services_.peersChanged();
            }};
}

void DataChannel::closed(const Peer &) {
    lastUse_ = Clock::now();
    openCountChanged();
    services_.peersChanged();
}

// ------------------------------------------------------------------------------------------ Reports

Reply DataChannel::setReport(const Peer &peer, HIDReportType type, uint8_t reportID,
                             std::span<const uint8_t> report) {
    ReceivedReport received;
    received.channelName = name_;
    received.channelID = channelID();
    received.processID = peer.processID;
    received.type = type;
    received.reportID = reportID;
    const size_t tagSize = std::min(report.size(), wire::channelTagSize);
    std::memcpy(&received.tag, report.data(), tagSize);
    received.bytes.assign(report.begin() + static_cast<ptrdiff_t>(tagSize), report.end());
    Reply reply = serveReport(peer, received, report.size() > wire::channelTagSize);
    received.status = reply.status;
    services_.journal.add(std::move(received));
    return reply;
}

Reply DataChannel::serveReport(const Peer &peer, const ReceivedReport &report, bool isWhole) {
    if (faults().unresponsive)
        return {HIDStatus::timedOut, {}};
    const auto refused = faults().refusedSetReports.find(report.reportID);
    if (refused != faults().refusedSetReports.end())
        return {refused->second, {}};
    if (report.type != HIDReportType::output || !isWritableReport(report.reportID) || !isWhole ||
        report.bytes.size() > wire::reportPayloadLimit)
        return {HIDStatus::badArgument, {}};
    if (report.tag != channelID()) {
        complain("a report of another channel's is ignored");
        return {};
    }
    return handleReport(peer, report.reportID, report.bytes);
}

Reply DataChannel::getReport(const Peer &peer, HIDReportType type, uint8_t reportID, size_t) {
    Reply reply;
    const auto refused = faults().refusedGetReports.find(reportID);
    if (faults().unresponsive)
        reply.status = HIDStatus::timedOut;
    else if (refused != faults().refusedGetReports.end())
        reply.status = refused->second;
    else if (type != HIDReportType::output || reportID != wire::storageSlot0Read)
        reply.status = HIDStatus::badArgument;
    else
        reply = handleRead(reportID);
    ReceivedReport received;
    received.channelName = name_;
    received.channelID = channelID();
    received.processID = peer.processID;
    received.isRead = true;
    received.type = type;
    received.reportID = reportID;
    received.status = reply.status;
    services_.journal.add(std::move(received));
    return reply;
}

} // namespace moxel::daemon
