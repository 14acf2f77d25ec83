// What a virtual HID device is to its publisher and to the code that answers for it.
#pragma once

#include "Moxel Daemon/Archive/Value.h"
#include "Platform/HIDDevice.h"
#include "Platform/Result.h"

#include <Moxel/MoxelClient.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

namespace moxel::daemon {

/// What a device tells of itself. Strings have at most 255 bytes of UTF-8.
struct DeviceDescription {
    std::string name;
    std::string manufacturer = "Moxel";
    std::string product = "Moxel Virtual HID Device";
    std::string serialNumber;
    uint16_t vendorID = kMoxelVendorID;
    uint16_t productID = 1;
    uint16_t primaryUsagePage = 0xFF00; ///< Vendor-defined.
    uint16_t primaryUsage = 1;
};

/// Who sends a request.
struct Peer {
    uint64_t connection = 0; ///< Unique among all connections of the publisher.
    int32_t processID = 0;   ///< 0 when the process cannot be told.
    uint32_t userID = 0;
};

/// The answer to a request.
struct Reply {
    HIDStatus status = HIDStatus::success;
    Data content;                 ///< The report that was asked for, without its identifier.
    std::function<void()> then{}; ///< Runs once the reply is on its way; empty for nothing.
};

/// Answers for one device, on the publisher's thread. It may use every channel, but may destroy none, from
/// inside these calls.
class ChannelHandler {
  public:
    virtual ~ChannelHandler() = default;

    virtual void connected(const Peer &peer) = 0;
    virtual void disconnected(const Peer &peer) = 0;

    virtual Reply open(const Peer &peer) = 0;
    virtual void closed(const Peer &peer) = 0;
    virtual Reply setReport(const Peer &peer, HIDReportType type, uint8_t reportID,
                            std::span<const uint8_t> report) = 0;
    virtual Reply getReport(const Peer &peer, HIDReportType type, uint8_t reportID, size_t capacity) = 0;
    /// False while requests are to remain without their replies.
    [[nodiscard]] virtual bool answersRequests() const = 0;

    /// Messages that waited for a slow client have gone out, or have been given up.
    virtual void queuesShrank() = 0;
};

/// A published device; destroying it takes the device away. Lives on the publisher's thread.
class Channel {
  public:
    virtual ~Channel() = default;

    /// Sends a report, its identifier first and at most 64 bytes, to every client that has opened the device.
    /// Never blocks. Returns the number of those clients.
    virtual size_t sendInput(std::span<const uint8_t> report) = 0;
    [[nodiscard]] virtual size_t openCount() const = 0;
    [[nodiscard]] virtual bool isConnectedTo(int32_t processID) const = 0;
    /// Bytes that wait for the slowest client.
    [[nodiscard]] virtual size_t queuedBytes() const = 0;
};

/// Makes devices appear to the clients of one bus. Lives on one thread.
class Publisher {
  public:
    virtual ~Publisher() = default;

    /// The device is there when this returns, or on its way. `handler` must outlive the channel.
    virtual Result<std::unique_ptr<Channel>> publish(const DeviceDescription &device,
                                                     ChannelHandler &handler) = 0;
    /// How many devices it can publish at a time.
    [[nodiscard]] virtual size_t deviceLimit() const noexcept = 0;
};

} // namespace moxel::daemon
