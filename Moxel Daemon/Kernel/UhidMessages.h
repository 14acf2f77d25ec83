// The messages by which a program lets the kernel have a virtual HID device, and serves it.
#pragma once

#include "Moxel Daemon/Bus/Channel.h"

#include <cstddef>
#include <cstdint>
#include <linux/uhid.h>
#include <optional>
#include <span>

namespace moxel::daemon {

/// Bytes of every input report, identifier included. The kernel may drop shorter ones than declared.
inline constexpr size_t uhidInputReportSize = 64;

/// What the kernel tells of a device.
struct UhidEvent {
    enum class Kind {
        started, ///< It has its driver in the kernel.
        stopped,
        opened, ///< Somebody is the first to open it.
        closed, ///< The last one has closed it.
        setReport,
        getReport,
        other,
    };
    Kind kind = Kind::other;
    HIDReportType reportType = HIDReportType::output;
    uint8_t reportID = 0;
    /// Names a request that waits for a reply.
    std::optional<uint32_t> request;
    std::span<const uint8_t> report; ///< Without its identifier; lies in the event.
};

/// The reports of the driver's channels, in the form that HID devices describe themselves in.
[[nodiscard]] Data channelReportDescriptor(uint16_t usagePage, uint16_t usage);

/// Makes the device. Fails when a text is longer than the kernel can keep.
[[nodiscard]] Result<Data> uhidCreateMessage(const DeviceDescription &device);
/// `report` begins with its identifier and is filled up with zeros, or cut, to its declared size.
[[nodiscard]] Data uhidInputMessage(std::span<const uint8_t> report);
[[nodiscard]] Data uhidSetReply(uint32_t request, HIDStatus status);
[[nodiscard]] Data uhidGetReply(uint32_t request, uint8_t reportID, HIDStatus status,
                                std::span<const uint8_t> content);

/// Reads what the kernel wrote. Absent when it is shorter than its kind needs.
[[nodiscard]] std::optional<UhidEvent> parseUhidEvent(std::span<const uint8_t> message);

} // namespace moxel::daemon
