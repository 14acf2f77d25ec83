#include "Moxel Daemon/Devices/InputDevice.h"

#include "Platform/Log.h"
#include "Platform/LogText.h"

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <fcntl.h>
#include <libevdev/libevdev.h>
#include <utility>

namespace moxel::daemon {

namespace {

/// What libevdev has to say of a device goes to the log instead of standard error.
void logComplaint(const libevdev *, libevdev_log_priority, void *, const char *, int, const char *,
                  const char *format, va_list arguments) {
    std::array<char, 512> line{};
    std::vsnprintf(line.data(), line.size(), format, arguments);
    logLine(LogLevel::info, printableText(line.data()));
}

template <size_t count>
void noteCodes(const libevdev *device, unsigned type, std::bitset<count> &codes) {
    for (unsigned code = 0; code < count; ++code)
        codes[code] = libevdev_has_event_code(device, type, code) != 0;
}

InputDescription describe(const libevdev *device) {
    InputDescription description;
    if (const char *name = libevdev_get_name(device))
        description.name = name;
    description.vendorID = static_cast<uint16_t>(libevdev_get_id_vendor(device));
    description.productID = static_cast<uint16_t>(libevdev_get_id_product(device));
    InputCapabilities &capabilities = description.capabilities;
    noteCodes(device, EV_KEY, capabilities.keys);
    noteCodes(device, EV_REL, capabilities.relative);
    noteCodes(device, EV_ABS, capabilities.absolute);
    for (unsigned property = 0; property < capabilities.properties.size(); ++property)
        capabilities.properties[property] = libevdev_has_property(device, property) != 0;
    for (unsigned code = 0; code < description.ranges.size(); ++code)
        if (const input_absinfo *range = libevdev_get_abs_info(device, code))
            description.ranges[code] = *range;
    for (unsigned code = 0; code < description.pressed.size(); ++code)
        description.pressed[code] = libevdev_get_event_value(device, EV_KEY, code) != 0;
    return description;
}

} // namespace

void InputDevice::Closer::operator()(libevdev *device) const noexcept { libevdev_free(device); }

InputDevice::InputDevice(Descriptor file, Handle device)
    : file_(std::move(file)), device_(std::move(device)), description_(describe(device_.get())) {}

Result<std::unique_ptr<InputReader>> InputDevice::open(const std::string &path) {
    Descriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    if (!file)
        return systemError(path, errno);
    Handle device(libevdev_new());
    if (!device)
        return systemError(path, ENOMEM);
    libevdev_set_device_log_function(device.get(), logComplaint, LIBEVDEV_LOG_ERROR, nullptr);
    if (const int result = libevdev_set_fd(device.get(), file.get()); result < 0)
        return systemError(path, -result);
    return std::unique_ptr<InputReader>(new InputDevice(std::move(file), std::move(device)));
}

InputReader::Outcome InputDevice::next(input_event &event) {
    int result = -EAGAIN;
    if (isCatchingUp_) {
        result = libevdev_next_event(device_.get(), LIBEVDEV_READ_FLAG_SYNC, &event);
        isCatchingUp_ = result == LIBEVDEV_READ_STATUS_SYNC;
    }
    if (!isCatchingUp_ && (result == -EAGAIN || result == -EINTR)) {
        result = libevdev_next_event(device_.get(), LIBEVDEV_READ_FLAG_NORMAL, &event);
        isCatchingUp_ = result == LIBEVDEV_READ_STATUS_SYNC;
    }
    if (result >= 0)
        return Outcome::event;
    return result == -EAGAIN || result == -EINTR ? Outcome::idle : Outcome::gone;
}

bool InputDevice::hasMore() const { return isCatchingUp_ || libevdev_has_event_pending(device_.get()) > 0; }

} // namespace moxel::daemon
