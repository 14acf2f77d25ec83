// Everything that the daemon can be told to do wrong.
#pragma once

#include "Platform/HIDDevice.h"
#include "Platform/Result.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace moxel::daemon {

struct Faults {
    using Milliseconds = std::chrono::milliseconds;

    // Channels
    bool noBaseChannel = false;
    bool refuseBaseOpen = false;
    bool noDedicatedChannel = false;
    bool refuseDedicatedOpen = false;
    Milliseconds dedicatedChannelDelay{0};
    bool dropChannelAfterRegistration = false;
    /// Requests are read, but neither served nor answered.
    bool unresponsive = false;
    /// Statuses for reports of these identifiers, which are then not served.
    std::map<uint8_t, HIDStatus> refusedSetReports;
    std::map<uint8_t, HIDStatus> refusedGetReports;

    // Answers
    bool noRegistrationAnswer = false;
    Milliseconds registrationAnswerDelay{0};
    bool noAcknowledgement = false;
    Milliseconds acknowledgementDelay{0};
    bool duplicateAcknowledgement = false;

    // Packets in storage slot 0
    std::optional<uint16_t> announcedSize;
    std::optional<uint16_t> payloadLength;
    std::optional<uint16_t> dataID;
    bool noLastPacket = false;
    bool malformedArchive = false;

    bool operator==(const Faults &) const = default;
};

/// Adds the fault that a text such as "no-acknowledgement", "late-acknowledgement=250" or
/// "refuse-set-report=0x63:0xE00002BC" names. The error lists what is possible.
[[nodiscard]] Result<void> addFault(Faults &faults, std::string_view text);

/// One line a fault: its text and what it does.
[[nodiscard]] std::string faultList();

} // namespace moxel::daemon
