// What can be seen of a running daemon from outside: its clients and what they sent.
#pragma once

#include "Moxel Daemon/Exports/ExportDesk.h"
#include "Moxel Daemon/Protocol/ClientRequests.h"
#include "Moxel Daemon/Protocol/MessageJoiner.h"
#include "Platform/HIDDevice.h"

#include <Moxel/MoxelClient.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

namespace moxel::daemon {

/// A client, from the moment it asks for a dedicated channel.
struct ClientDescription {
    uint64_t channelID = 0;
    std::string channelName;
    int32_t processID = 0;   ///< Of the process that asked for the channel.
    uint16_t clientID = 0;   ///< 0 before the registration.
    size_t openCount = 0;    ///< Connections that have the dedicated channel open.
    bool registered = false; ///< The registration has been answered.
    int registrations = 0;   ///< Registration requests, the first one included.
    std::optional<ApplicationRecord> application;
    uint32_t eventMask = 0;
    uint32_t buttonMask = 0;
    std::optional<uint16_t> exitState; ///< Of the last application-information record.
    std::string applicationName;       ///< Likewise.
    ClientExports exports;
    int packetsRead = 0;
    int acknowledgements = 0;  ///< Of data packets.
    int storedDataReplies = 0; ///< To stored-data queries.
};

/// A report that a client wrote or wanted to read.
struct ReceivedReport {
    uint64_t sequence = 0; ///< 0 for the first report of the daemon's life.
    std::string channelName;
    uint64_t channelID = 0; ///< 0 but for dedicated channels.
    int32_t processID = 0;
    bool isRead = false; ///< The client wants to read the report; there is neither tag nor bytes.
    HIDReportType type = HIDReportType::output;
    uint8_t reportID = 0;
    uint64_t tag = 0; ///< First eight bytes.
    Data bytes;       ///< What follows the tag.
    HIDStatus status = HIDStatus::success;
};

struct Observation {
    std::vector<ClientDescription> clients; ///< In the order in which they came.
    std::deque<ClientDescription> departed; ///< The last ones that went, oldest first.
    std::deque<ReceivedReport> reports;     ///< The last ones, oldest first.
    uint64_t reportCount = 0;               ///< All there ever were.
    std::deque<ReceivedRequest> requests;   ///< The last ones, oldest first.
    uint64_t requestCount = 0;
    std::deque<ReceivedMessage> messages; ///< Of raw data, joined from their slices; the last ones.
    size_t baseConnections = 0;           ///< Connections to the base channel, open or not.
    size_t baseOpenCount = 0;
    size_t queuedBytes = 0;    ///< What waits for the slowest client of all.
    size_t sendingClients = 0; ///< Clients with a message on its way.
    uint64_t traceEvents = 0;  ///< Trace events played.
    bool traceIsOver = false;  ///< The last trace has come to its end.
    std::string traceProblem;  ///< Why it ended early.
};

} // namespace moxel::daemon
