#include "Platform/Linux/HidrawNode.h"

#include "Platform/Linux/Descriptor.h"
#include "Platform/Linux/HidrawProperties.h"
#include "Platform/Linux/ReportDescriptor.h"
#include "Platform/Linux/Shortage.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <span>
#include <system_error>
#include <systemd/sd-device.h>
#include <unistd.h>

namespace moxel {

namespace {

constexpr std::string_view prefix = "hidraw";

struct DeviceCloser {
    void operator()(sd_device *device) const { sd_device_unref(device); }
};
using Device = std::unique_ptr<sd_device, DeviceCloser>;

/// True for what may be another time.
bool mayPass(int error) { return isShortage(error) || error == EAGAIN || error == EINTR; }

Error shortage(int error) { return systemError("A HID device cannot be looked at", error); }

std::string syspathOf(sd_device *device) {
    const char *path = nullptr;
    return sd_device_get_syspath(device, &path) < 0 ? "" : path;
}

/// At most the size of a page, which no file read here exceeds. The error carries errno.
Result<std::string> fileContent(const std::string &path) {
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file)
        return systemError(path, errno);
    std::array<char, 4097> buffer{};
    size_t filled = 0;
    while (filled < buffer.size()) {
        const ssize_t size = ::read(file.get(), buffer.data() + filled, buffer.size() - filled);
        if (size == 0)
            return std::string(buffer.data(), filled);
        if (size < 0 && errno != EINTR)
            return systemError(path, errno);
        filled += size > 0 ? static_cast<size_t>(size) : 0;
    }
    return systemError(path, EFBIG);
}

/// Empty when the device has none.
Result<std::string> attribute(sd_device *device, const char *name) {
    const char *value = nullptr;
    const int error = -sd_device_get_sysattr_value(device, name, &value);
    if (mayPass(error))
        return shortage(error);
    return std::string(error > 0 ? "" : value);
}

Result<USBStrings> usbStrings(sd_device *usb) {
    Result<std::string> manufacturer = attribute(usb, "manufacturer");
    Result<std::string> product = attribute(usb, "product");
    Result<std::string> serialNumber = attribute(usb, "serial");
    for (const Result<std::string> *each : {&manufacturer, &product, &serialNumber})
        if (!each->ok())
            return each->error();
    return USBStrings{*std::move(manufacturer), *std::move(product), *std::move(serialNumber)};
}

} // namespace

bool isHidrawName(std::string_view name) {
    if (!name.starts_with(prefix) || name.size() == prefix.size())
        return false;
    return std::ranges::all_of(name.substr(prefix.size()),
                               [](char each) { return each >= '0' && each <= '9'; });
}

/// The folder itself, because sd-device's enumeration takes a folder that it cannot read for an empty one.
Result<std::vector<std::string>> hidrawNames() {
    std::vector<std::string> names;
    std::error_code error;
    std::filesystem::directory_iterator device("/sys/class/hidraw", error);
    for (; !error && device != std::filesystem::directory_iterator(); device.increment(error)) {
        std::string name = device->path().filename().string();
        if (isHidrawName(name))
            names.push_back(std::move(name));
    }
    if (mayPass(error.value()))
        return systemError("Cannot list the kernel's HID devices", error.value());
    return names;
}

Result<std::optional<HidrawNode>> readHidrawNode(const std::string &name) {
    const std::optional<HidrawNode> none;
    sd_device *made = nullptr;
    int error = -sd_device_new_from_subsystem_sysname(&made, "hidraw", name.c_str());
    const Device device(error > 0 ? nullptr : made);
    sd_device *hid = nullptr; // The parents belong to `device`.
    sd_device *usb = nullptr;
    const char *place = nullptr;
    if (error <= 0)
        error = -sd_device_get_devname(made, &place);
    if (error <= 0)
        error = ::access(place, F_OK) == 0 ? 0 : errno;
    if (error <= 0)
        error = -sd_device_get_parent_with_subsystem_devtype(made, "hid", nullptr, &hid);
    if (error > 0)
        return mayPass(error) ? Result<std::optional<HidrawNode>>(shortage(error)) : none;

    const std::string folder = syspathOf(hid);
    const Result<std::string> uevent = fileContent(folder + "/uevent");
    const Result<std::string> descriptor = fileContent(folder + "/report_descriptor");
    for (const Result<std::string> *each : {&uevent, &descriptor})
        if (!each->ok())
            return mayPass(each->error().code) ? Result<std::optional<HidrawNode>>(each->error()) : none;
    std::optional<USBStrings> strings;
    error = -sd_device_get_parent_with_subsystem_devtype(made, "usb", "usb_device", &usb);
    if (mayPass(error))
        return shortage(error);
    if (error <= 0) {
        Result<USBStrings> read = usbStrings(usb);
        if (!read.ok())
            return read.error();
        strings = *std::move(read);
    }

    const std::span bytes(reinterpret_cast<const uint8_t *>(descriptor->data()), descriptor->size());
    Result<BusDeviceProperties> properties = hidrawProperties(*uevent, bytes, strings ? &*strings : nullptr);
    if (!properties.ok())
        return none;
    return std::optional(HidrawNode{place, syspathOf(made), *std::move(properties),
                                    summarizeReportDescriptor(bytes).numbersReports});
}

bool hasFinalRights(const HidrawNode &node) {
    if (::access("/run/udev/control", F_OK) != 0)
        return true;
    sd_device *made = nullptr;
    if (sd_device_new_from_syspath(&made, node.sysPath.c_str()) < 0)
        return false;
    const Device device(made);
    return sd_device_get_is_initialized(made) > 0;
}

Result<void> checkRights(const HidrawNode &node) {
    if (::faccessat(AT_FDCWD, node.place.c_str(), R_OK | W_OK, AT_EACCESS) == 0)
        return {};
    return systemError("it may not be opened", errno);
}

Result<std::string> sysPathOfNumber(dev_t number) {
    sd_device *made = nullptr;
    const int error = -sd_device_new_from_devnum(&made, 'c', number);
    if (mayPass(error))
        return shortage(error);
    const Device device(error > 0 ? nullptr : made);
    return error > 0 ? std::string() : syspathOf(made);
}

std::string udevRuleForVendor(uint16_t vendorID) {
    std::array<char, 96> rule{};
    std::snprintf(rule.data(), rule.size(), R"(SUBSYSTEM=="hidraw", KERNELS=="*:%04X:*", TAG+="uaccess")",
                  vendorID);
    return rule.data();
}

} // namespace moxel
