// Publishes virtual HID devices through the kernel, which shows them to clients as hidraw nodes.
#pragma once

#include "Moxel Daemon/Bus/Channel.h"
#include "Moxel Daemon/Kernel/UhidClosings.h"
#include "Moxel Daemon/Kernel/UhidReader.h"
#include "Platform/Linux/Descriptor.h"
#include "Platform/RunLoop.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace moxel::daemon {

/// Lives on one thread. Channels may outlive it.
class UhidPublisher final : public Publisher {
  public:
    static constexpr const char *devicePath = "/dev/uhid";
    /// How long publish() waits for the end of an earlier device of the name, and the end of this object for
    /// that of all. The kernel needs milliseconds, unless somebody waits for an answer of a HID device.
    static constexpr std::chrono::seconds closingPatience{1};

    /// Opens the kernel's side of a device that does not exist yet: one message a read or write, not
    /// blocking.
    using Opener = std::function<Result<Descriptor>()>;

    /// On the thread whose run loop shall serve the kernel. Fails where the kernel has no virtual devices or
    /// does not let this process have them.
    static Result<std::unique_ptr<UhidPublisher>> create();
    /// `deviceFolder` lists the HID devices that are there.
    static Result<std::unique_ptr<UhidPublisher>> create(Opener open, std::string deviceFolder);

    UhidPublisher(Opener open, std::string deviceFolder, std::shared_ptr<RunLoop> runLoop,
                  std::shared_ptr<UhidReader> reader);
    ~UhidPublisher() override;
    UhidPublisher(const UhidPublisher &) = delete;
    UhidPublisher &operator=(const UhidPublisher &) = delete;

    /// The device is on its way when this returns. The error's code is BusFolder::alreadyPublished when
    /// there is one of that name.
    Result<std::unique_ptr<Channel>> publish(const DeviceDescription &device,
                                             ChannelHandler &handler) override;
    /// The kernel has 64 hidraw nodes for all HID devices of the machine; some are left to others.
    size_t deviceLimit() const noexcept override { return 48; }

  private:
    [[nodiscard]] bool isThere(const std::string &name) const;

    Opener open_;
    std::string deviceFolder_;
    std::shared_ptr<RunLoop> runLoop_;
    std::shared_ptr<UhidReader> reader_;
    std::shared_ptr<UhidClosings> closings_ = std::make_shared<UhidClosings>();
};

} // namespace moxel::daemon
