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
    Error problem = systemError(std::string("Cannot open ").append(UhidPublisher::devicePath), error);
    if (error == ENOENT || error == ENODEV)
        problem.message += "; \"modprobe uhid\" makes it, if this kernel has it";
    else if (error == EACCES || error == EPERM)
        problem.message +=
            R"(; this udev rule would allow it: KERNEL=="uhid", SUBSYSTEM=="misc", TAG+="uaccess")";
    return problem;
}

/// FNV-1a, without the sign.
off_t placeOf(const std::string &name) {
    uint64_t hash = 0xCBF29CE484222325;
    for (const char each : name)
        hash = (hash ^ static_cast<uint8_t>(each)) * 0x100000001B3;
    return static_cast<off_t>(hash >> 2U);
}

/// Keeps a name for the device that the descriptor is going to make, until the descriptor is closed: by a
/// lock on a byte of the file, which all who make devices have open, so that the kernel lets go of it with
/// the device. False when somebody else has it.
bool reserveName(const Descriptor &device, const std::string &name) {
    struct flock byte {};
    byte.l_type = F_WRLCK;
    byte.l_whence = SEEK_SET;
    byte.l_start = placeOf(name);
    byte.l_len = 1;
    return ::fcntl(device.get(), F_OFD_SETLK, &byte) == 0 || (errno != EAGAIN && errno != EACCES);
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
    Result<std::shared_ptr<UhidReader>> reader = UhidReader::start();
    if (!reader.ok())
        return reader.error();
    return std::make_unique<UhidPublisher>(std::move(open), std::move(deviceFolder), *runLoop,
                                           std::move(*reader));
}

UhidPublisher::UhidPublisher(Opener open, std::string deviceFolder, std::shared_ptr<RunLoop> runLoop,
                             std::shared_ptr<UhidReader> reader)
    : open_(std::move(open)),
      deviceFolder_(std::move(deviceFolder)),
      runLoop_(std::move(runLoop)),
      reader_(std::move(reader)) {}

/// Who publishes next finds the names free.
UhidPublisher::~UhidPublisher() { closings_->awaitAll(closingPatience); }

Result<std::unique_ptr<Channel>> UhidPublisher::publish(const DeviceDescription &device,
                                                        ChannelHandler &handler) {
    const Result<Data> create = uhidCreateMessage(device);
    if (!create.ok())
        return create.error();
    Result<Descriptor> opened = open_();
    if (!opened.ok())
        return opened.error();
    // A device is listed only some time after it has been made.
    if (!closings_->await(device.name, closingPatience) || !reserveName(*opened, device.name) ||
        isThere(device.name))
        return Error{device.name + " is already published by a running daemon", BusFolder::alreadyPublished};
    auto channel =
        std::make_unique<UhidChannel>(runLoop_, reader_, closings_, std::move(*opened), device.name, handler);
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
