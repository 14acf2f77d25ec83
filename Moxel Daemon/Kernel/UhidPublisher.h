// Publishes virtual HID devices through the kernel, which shows them to clients as hidraw nodes.
#pragma once

#include "Moxel Daemon/Bus/Channel.h"
#include "Platform/Linux/Descriptor.h"
#include "Platform/RunLoop.h"

#include <functional>
#include <memory>
#include <string>

namespace moxel::daemon {

/// Lives on one thread. Channels may outlive it.
class UhidPublisher final : public Publisher {
  public:
    static constexpr const char *devicePath = "/dev/uhid";

    /// Opens the kernel's side of a device that does not exist yet: one message a read or write, not
    /// blocking.
    using Opener = std::function<Result<Descriptor>()>;

    /// On the thread whose run loop shall serve the kernel. Fails where the kernel has no virtual devices or
    /// does not let this process have them.
    static Result<std::unique_ptr<UhidPublisher>> create();
    /// `deviceFolder` lists the HID devices that are there.
    static Result<std::unique_ptr<UhidPublisher>> create(Opener open, std::string deviceFolder);

    UhidPublisher(Opener open, std::string deviceFolder, std::shared_ptr<RunLoop> runLoop);

    /// The device is on its way when this returns. The error's code is BusFolder::alreadyPublished when
    /// there is one of that name.
    Result<std::unique_ptr<Channel>> publish(const DeviceDescription &device,
                                             ChannelHandler &handler) override;

  private:
    [[nodiscard]] bool isThere(const std::string &name) const;

    Opener open_;
    std::string deviceFolder_;
    std::shared_ptr<RunLoop> runLoop_;
};

} // namespace moxel::daemon
