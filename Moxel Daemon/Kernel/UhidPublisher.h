// Publishes virtual HID devices through the kernel, which shows them to clients as hidraw nodes.
#pragma once

#include "Moxel Daemon/Bus/Channel.h"
#include "Moxel Daemon/Kernel/UhidClosings.h"
#include "Moxel Daemon/Kernel/UhidMaker.h"
#include "Moxel Daemon/Kernel/UhidReader.h"
#include "Platform/RunLoop.h"

#include <chrono>
#include <memory>

namespace moxel::daemon {

/// Lives on one thread. Channels may outlive it.
class UhidPublisher final : public Publisher {
  public:
    /// How long the end of this object waits for that of all its devices. The kernel needs milliseconds,
    /// unless somebody waits for an answer of a HID device.
    static constexpr std::chrono::seconds closingPatience{1};

    /// On the thread whose run loop shall serve the kernel. Fails where the kernel has no virtual devices or
    /// does not let this process have them.
    static Result<std::unique_ptr<UhidPublisher>> create(UhidMaker maker = UhidMaker());

    UhidPublisher(std::shared_ptr<const UhidMaker> maker, std::shared_ptr<RunLoop> runLoop,
                  std::shared_ptr<UhidReader> reader);
    ~UhidPublisher() override;
    UhidPublisher(const UhidPublisher &) = delete;
    UhidPublisher &operator=(const UhidPublisher &) = delete;

    /// The device is on its way when this returns. While one of its name is still being closed, which may
    /// wait for an answer of this thread, it comes later; what then keeps it away is logged. The error's code
    /// is BusFolder::alreadyPublished when there is one of that name, or one on its way.
    Result<std::unique_ptr<Channel>> publish(const DeviceDescription &device,
                                             ChannelHandler &handler) override;
    /// The kernel has 64 hidraw nodes for all HID devices of the machine; some are left to others.
    size_t deviceLimit() const noexcept override { return 48; }

  private:
    std::shared_ptr<const UhidMaker> maker_;
    std::shared_ptr<RunLoop> runLoop_;
    std::shared_ptr<UhidReader> reader_;
    std::shared_ptr<UhidClosings> closings_ = std::make_shared<UhidClosings>();
};

} // namespace moxel::daemon
