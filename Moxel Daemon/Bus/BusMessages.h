// The messages of the user-space HID bus as a device reads and writes them.
#pragma once

#include "Moxel Daemon/Bus/Channel.h"
#include "Platform/Linux/HIDBusWire.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace moxel::daemon {

/// A request that keeps the rules; the payload lies in the datagram.
struct BusRequest {
    hidbus::Operation operation = hidbus::Operation::open;
    HIDReportType reportType = HIDReportType::input;
    uint8_t reportID = 0;
    int32_t capacity = 0;
    std::span<const uint8_t> payload;
};

/// `datagram` is what was received of `size` bytes; the error says which rule the client broke.
[[nodiscard]] Result<BusRequest> parseBusRequest(std::span<const uint8_t> datagram, size_t size);

/// Fails when a string is longer than its length byte can tell.
[[nodiscard]] Result<Data> busPropertiesMessage(const DeviceDescription &device);
/// `report` begins with its identifier.
[[nodiscard]] Data busInputMessage(std::span<const uint8_t> report);
[[nodiscard]] Data busReplyMessage(const BusRequest &request, HIDStatus status,
                                   std::span<const uint8_t> content = {});

} // namespace moxel::daemon
