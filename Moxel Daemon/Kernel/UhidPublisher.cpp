#include "Moxel Daemon/Kernel/UhidPublisher.h"

#include "Moxel Daemon/Bus/BusFolder.h"
#include "Moxel Daemon/Kernel/UhidChannel.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace moxel::daemon {

namespace {

Result<Descriptor> openDevice() {
    Descriptor device(::open(UhidPublisher::devicePath, O_RDWR | O_NONBLOCK | O_CLOEXEC));
    if (device)
        return device;
    const int error = errno;
    Error problem = systemError(std::string("Cannot open ") + UhidPublisher::devicePath, error);
    if (error == ENOENT || error == ENODEV)
        problem.message += "; \"modprobe uhid\" makes it, if this kernel has it";
    else if (error == EACCES || error == EPERM)
        problem.message +=
            R"(; this udev rule would allow it: KERNEL=="uhid", SUBSYSTEM=="misc", TAG+="uaccess")";
    return problem;
}

} // namespace

Result<std::unique_ptr<UhidPublisher>> UhidPublisher::create() {
    return create(openDevice, "/sys/bus/hid/devices");
}

Result<std::unique_ptr<UhidPublisher>> UhidPublisher::create(Opener open, std::string deviceFolder) {
    Result<std::shared_ptr<RunLoop>> runLoop = RunLoop::current();
    if (!runLoop.ok())
        return runLoop.error();
    if (const Result<Descriptor> device = open(); !device.ok())
        return device.error();
    return std::make_unique<UhidPublisher>(std::move(open), std::move(deviceFolder), *runLoop);
}

UhidPublisher::UhidPublisher(Opener open, std::string deviceFolder, std::shared_ptr<RunLoop> runLoop)
    : open_(std::move(open)), deviceFolder_(std::move(deviceFolder)), runLoop_(std::move(runLoop)) {}

Result<std::unique_ptr<Channel>> UhidPublisher::publish(const DeviceDescription &device,
                                                        ChannelHandler &handler) {
    const Result<Data> create = uhidCreateMessage(device);
    if (!create.ok())
        return create.error();
    if (isThere(device.name))
        return Error{device.name + " is already published by a running daemon", BusFolder::alreadyPublished};
    Result<Descriptor> opened = open_();
    if (!opened.ok())
        return opened.error();
    auto channel = std::make_unique<UhidChannel>(runLoop_, std::move(*opened), device.name, handler);
    if (Result<void> started = channel->start(*create); !started.ok())
        return started.error();
    return std::unique_ptr<Channel>(std::move(channel));
}

/// The kernel itself minds no two devices of one name.
bool UhidPublisher::isThere(const std::string &name) const {
    std::error_code error;
    for (std::filesystem::directory_iterator device(deviceFolder_, error), end; !error && device != end;
         device.increment(error)) {
        std::ifstream uevent(device->path() / "uevent");
        for (std::string line; std::getline(uevent, line);) {
            if (line == "HID_NAME=" + name)
                return true;
        }
    }
    return false;
}

} // namespace moxel::daemon
