// A device of the user-space bus, as all managers of the process share it.
#pragma once

#include "Platform/Linux/BusMessage.h"
#include "Platform/Linux/BusSocket.h"
#include "Platform/Linux/Descriptor.h"
#include "Platform/Linux/HIDBus.h"

#include <memory>

namespace moxel {

/// Holds the connection whose hang-up is the device's removal, so that whoever waits for the device can see
/// it leave, and the socket to make further connections. Any thread.
class UserSpaceBusEntry final : public HIDBusEntry, public std::enable_shared_from_this<UserSpaceBusEntry> {
  public:
    UserSpaceBusEntry(std::shared_ptr<const BusSocket> socket, Descriptor presence,
                      BusDeviceProperties properties);

    [[nodiscard]] std::optional<HIDProperty> property(std::string_view key) const override;
    [[nodiscard]] std::shared_ptr<HIDBusDevice>
    makeDevice(std::shared_ptr<HIDDeviceHost> host) const override;
    /// Never has a reason: a device that may not be used gets no entry.
    void complain() const override {}

    [[nodiscard]] const BusSocket &socket() const noexcept { return *socket_; }
    [[nodiscard]] const BusDeviceProperties &properties() const noexcept { return properties_; }

    /// Polls as hung up once the device has left.
    [[nodiscard]] int presence() const noexcept { return presence_.get(); }
    [[nodiscard]] bool hasLeft() const noexcept;
    /// Declares that the device has left, because its publisher breaks the rules or is gone: everyone who
    /// waits for it wakes up, and its bus reports the removal.
    void drop() const noexcept;

  private:
    const std::shared_ptr<const BusSocket> socket_;
    const Descriptor presence_;
    const BusDeviceProperties properties_;
};

} // namespace moxel
