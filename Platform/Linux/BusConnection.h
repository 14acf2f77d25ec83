// A connection to a device of the user-space bus over which a thread waits for replies.
#pragma once

#include "Platform/HIDDevice.h"
#include "Platform/Linux/Descriptor.h"
#include "Platform/Linux/HIDBusWire.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>

namespace moxel {

class UserSpaceBusEntry;

using BusBuffer = std::array<uint8_t, hidbus::messageLimit>;

/// What became of an attempt to receive a datagram without waiting.
struct BusReceipt {
    enum class Kind { datagram, nothing, hangUp };
    Kind kind = Kind::nothing;
    size_t sentSize = 0; ///< Size of the datagram when it was sent, which may be more than the buffer's.
};

[[nodiscard]] BusReceipt receiveBusDatagram(int descriptor, BusBuffer &buffer) noexcept;

/// One request as the client words it.
struct BusRequest {
    hidbus::Operation operation = hidbus::Operation::open;
    HIDReportType reportType = HIDReportType::input;
    uint8_t reportID = 0;
    uint16_t capacity = 0; ///< Bytes that the reply's payload may have.
    std::span<const uint8_t> payload = {};
};

struct BusAnswer {
    HIDStatus status = HIDStatus::error;
    bool isReply = false; ///< False when no proper reply came: the connection can be used no more.
    size_t length = 0;    ///< Bytes of the reply's payload.
};

/// Empty by default. Any thread, one at a time.
class BusConnection {
  public:
    using Clock = std::chrono::steady_clock;

    /// Connects anew, checks who publishes the device, and that it is still the same device. No wait is
    /// longer than until `deadline`, and none goes on when the device leaves.
    HIDStatus connect(const UserSpaceBusEntry &entry, Clock::time_point deadline);

    /// Sends a request and waits for its reply, whose payload goes to `replyPayload`. Input that arrives
    /// before the reply to a close is dropped.
    BusAnswer perform(const UserSpaceBusEntry &entry, const BusRequest &request,
                      std::span<uint8_t> replyPayload, Clock::time_point deadline);

    /// False when something has come in that nobody asked for, or the other end is gone.
    [[nodiscard]] bool isQuiet() const noexcept;

    explicit operator bool() const noexcept { return static_cast<bool>(descriptor_); }
    [[nodiscard]] int descriptor() const noexcept { return descriptor_.get(); }
    void reset() noexcept { descriptor_.reset(); }

  private:
    Descriptor descriptor_;
};

} // namespace moxel
