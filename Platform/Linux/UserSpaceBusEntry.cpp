#include "Platform/Linux/UserSpaceBusEntry.h"

#include "Platform/Linux/UserSpaceBusDevice.h"

#include <poll.h>
#include <sys/socket.h>
#include <utility>

namespace moxel {

UserSpaceBusEntry::UserSpaceBusEntry(std::shared_ptr<const BusSocket> socket, Descriptor presence,
                                     BusDeviceProperties properties)
    : socket_(std::move(socket)), presence_(std::move(presence)), properties_(std::move(properties)) {}

std::optional<HIDProperty> UserSpaceBusEntry::property(std::string_view key) const {
    return properties_.property(key);
}

std::shared_ptr<HIDBusDevice> UserSpaceBusEntry::makeDevice(std::shared_ptr<HIDDeviceHost> host) const {
    return std::make_shared<UserSpaceBusDevice>(shared_from_this(), std::move(host));
}

bool UserSpaceBusEntry::hasLeft() const noexcept {
    pollfd presence{presence_.get(), 0, 0};
    return ::poll(&presence, 1, 0) > 0 && (presence.revents & (POLLHUP | POLLERR)) != 0;
}

void UserSpaceBusEntry::drop() const noexcept { ::shutdown(presence_.get(), SHUT_RDWR); }

} // namespace moxel
