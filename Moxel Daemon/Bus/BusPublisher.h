// Publishes virtual HID devices on the user-space bus.
#pragma once

#include "Moxel Daemon/Bus/BusFolder.h"
#include "Moxel Daemon/Bus/Channel.h"
#include "Platform/RunLoop.h"

#include <memory>
#include <string>

namespace moxel::daemon {

/// What the channels of one publisher share.
struct BusServices {
    std::shared_ptr<const BusFolder> folder;
    std::shared_ptr<RunLoop> runLoop;
    uint64_t lastConnection = 0;
    /// Given up for a moment when descriptors are used up, so that a client can be turned away.
    Descriptor spareDescriptor;
};

/// Lives on one thread. Channels may outlive it.
class BusPublisher final : public Publisher {
  public:
    /// On the thread whose run loop shall serve the clients. The folder is made when it is not there.
    static Result<std::unique_ptr<BusPublisher>> create(const std::string &folder);

    explicit BusPublisher(std::shared_ptr<BusServices> services) : services_(std::move(services)) {}

    /// The socket bears the device's name, with a dash for each character that cannot stand in one.
    Result<std::unique_ptr<Channel>> publish(const DeviceDescription &device,
                                             ChannelHandler &handler) override;
    size_t deviceLimit() const noexcept override { return 1024; }

  private:
    std::shared_ptr<BusServices> services_;
};

} // namespace moxel::daemon
