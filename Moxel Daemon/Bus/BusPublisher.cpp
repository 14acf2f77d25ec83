#include "Moxel Daemon/Bus/BusPublisher.h"

#include "Moxel Daemon/Bus/BusChannel.h"

#include <cerrno>
#include <fcntl.h>

namespace moxel::daemon {

namespace {

/// A socket's name for a device whose own name would not do.
std::string plainSocketName(std::string name) {
    constexpr size_t longest = 80;
    for (char &character : name) {
        const bool isPlain = (character >= 'a' && character <= 'z') ||
                             (character >= 'A' && character <= 'Z') ||
                             (character >= '0' && character <= '9') || character == '_';
        character = isPlain ? character : '-';
    }
    return name.empty() ? "unnamed" : name.substr(0, longest);
}

} // namespace

Result<std::unique_ptr<BusPublisher>> BusPublisher::create(const std::string &folder) {
    Result<std::shared_ptr<const BusFolder>> opened = BusFolder::open(folder);
    if (!opened.ok())
        return opened.error();
    Result<std::shared_ptr<RunLoop>> runLoop = RunLoop::current();
    if (!runLoop.ok())
        return runLoop.error();
    auto services = std::make_shared<BusServices>();
    services->folder = *opened;
    services->runLoop = *runLoop;
    services->spareDescriptor.reset(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    return std::make_unique<BusPublisher>(std::move(services));
}

Result<std::unique_ptr<Channel>> BusPublisher::publish(const DeviceDescription &device,
                                                       ChannelHandler &handler) {
    Result<Data> properties = busPropertiesMessage(device);
    if (!properties.ok())
        return properties.error();
    Result<PublishedSocket> socket = services_->folder->publish(plainSocketName(device.name));
    if (!socket.ok())
        return socket.error();
    auto channel =
        std::make_unique<BusChannel>(services_, std::move(*socket), std::move(*properties), handler);
    if (Result<void> started = channel->start(); !started.ok())
        return started.error();
    return std::unique_ptr<Channel>(std::move(channel));
}

} // namespace moxel::daemon
