// The datagram that carries one state record over the bus.
#pragma once

#include "Platform/Linux/HIDBusWire.h"
#include "Protocol/WireLayouts.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <sys/socket.h>

namespace moxel::benchmarks {

class StateDatagram {
  public:
    static constexpr size_t recordOffset =
        sizeof(hidbus::MessageHeader) + offsetof(wire::DeviceStateReport, record);
    static constexpr size_t size = sizeof(hidbus::MessageHeader) + sizeof(wire::DeviceStateReport);

    StateDatagram() {
        const hidbus::MessageHeader header{static_cast<uint8_t>(hidbus::Operation::input), 0,
                                           wire::daemonMessage, 0, 0};
        wire::DeviceStateReport report{};
        report.header = {wire::daemonMessage, wire::deviceState};
        report.record.command = 10; // Never dropped.
        std::memcpy(bytes_.data(), &header, sizeof header);
        std::memcpy(bytes_.data() + sizeof header, &report, sizeof report);
    }

    /// Waits while the receiver's queue is full.
    void sendTo(int descriptor) const { ::send(descriptor, bytes_.data(), bytes_.size(), MSG_NOSIGNAL); }

  private:
    std::array<uint8_t, size> bytes_{};
};

} // namespace moxel::benchmarks
