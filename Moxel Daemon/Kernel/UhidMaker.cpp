#include "Moxel Daemon/Kernel/UhidMaker.h"

#include "Moxel Daemon/Bus/BusFolder.h"

#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace moxel::daemon {

namespace {

Result<Descriptor> openDevice() {
    Descriptor device(::open(UhidMaker::devicePath, O_RDWR | O_NONBLOCK | O_CLOEXEC));
    if (device)
        return device;
    const int error = errno;
    Error problem = systemError(std::string("Cannot open ").append(UhidMaker::devicePath), error);
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

UhidMaker::UhidMaker() : UhidMaker(openDevice, "/sys/bus/hid/devices") {}

UhidMaker::UhidMaker(Opener open, std::string deviceFolder)
    : open_(std::move(open)), deviceFolder_(std::move(deviceFolder)) {}

Result<void> UhidMaker::check() const {
    const Result<Descriptor> device = open_();
    return device.ok() ? Result<void>() : device.error();
}

Result<Descriptor> UhidMaker::make(const std::string &name, const Data &createMessage) const {
    Result<Descriptor> device = open_();
    if (!device.ok())
        return device;
    // A device is listed only some time after it has been made.
    if (!reserveName(*device, name) || isThere(name))
        return Error{name + " is already published by a running daemon", BusFolder::alreadyPublished};
    if (::write(device->get(), createMessage.data(), createMessage.size()) < 0)
        return systemError("The kernel refuses the device " + name, errno);
    return device;
}

/// The kernel itself minds no two devices of one name.
bool UhidMaker::isThere(const std::string &name) const {
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
