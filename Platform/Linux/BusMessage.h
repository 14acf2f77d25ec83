// Messages of the user-space HID bus as a client reads and writes them.
#pragma once

#include "Platform/HIDDevice.h"
#include "Platform/Linux/HIDBusWire.h"
#include "Platform/Result.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace moxel {

/// A datagram that follows the rules; the payload lies in the datagram.
struct BusMessage {
    hidbus::Operation operation = hidbus::Operation::properties;
    HIDReportType reportType = HIDReportType::input;
    uint8_t reportID = 0;
    int32_t value = 0;
    std::span<const uint8_t> payload;
};

/// Reads a datagram that a device sent. `sentSize` is the size it had when it was sent; `received` holds its
/// first hidbus::messageLimit bytes at least. The error says which rule it breaks.
[[nodiscard]] Result<BusMessage> parseBusMessage(std::span<const uint8_t> received, size_t sentSize);

/// The outcome that a reply carries.
[[nodiscard]] HIDStatus replyStatus(const BusMessage &reply);

/// What a device says of itself in its first message.
struct BusDeviceProperties {
    uint16_t vendorID = 0;
    uint16_t productID = 0;
    uint16_t primaryUsagePage = 0;
    uint16_t primaryUsage = 0;
    std::string name;
    std::string manufacturer;
    std::string product;
    std::string serialNumber;

    bool operator==(const BusDeviceProperties &) const = default;
    /// The value of a property by its platform name.
    [[nodiscard]] std::optional<HIDProperty> property(std::string_view key) const;
    /// The text that stands for a device with these properties in a log line.
    [[nodiscard]] std::string descriptionOf(const HIDDevice &device) const;
};

/// Reads the first message of a connection; the error says which rule it breaks.
[[nodiscard]] Result<BusDeviceProperties> parseBusProperties(const BusMessage &message);

} // namespace moxel
