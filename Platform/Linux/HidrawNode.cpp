#include "Platform/Linux/HidrawNode.h"

#include "Platform/Linux/Descriptor.h"
#include "Platform/Linux/HidrawProperties.h"
#include "Platform/Linux/ReportDescriptor.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <memory>
#include <span>
#include <systemd/sd-device.h>
#include <unistd.h>

namespace moxel {

namespace {

constexpr std::string_view prefix = "hidraw";

struct DeviceCloser {
    void operator()(sd_device *device) const { sd_device_unref(device); }
};
using Device = std::unique_ptr<sd_device, DeviceCloser>;

Device deviceOfName(const std::string &name) {
    sd_device *device = nullptr;
    if (sd_device_new_from_subsystem_sysname(&device, "hidraw", name.c_str()) < 0)
        return nullptr;
    return Device(device);
}

std::string syspathOf(sd_device *device) {
    const char *path = nullptr;
    return sd_device_get_syspath(device, &path) < 0 ? "" : path;
}

/// At most the size of a page, which no file read here exceeds.
std::optional<std::string> fileContent(const std::string &path) {
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::array<char, 4097> buffer{};
    size_t filled = 0;
    while (file && filled < buffer.size()) {
        const ssize_t size = ::read(file.get(), buffer.data() + filled, buffer.size() - filled);
        if (size == 0)
            return std::string(buffer.data(), filled);
        if (size < 0 && errno != EINTR)
            break;
        filled += size > 0 ? static_cast<size_t>(size) : 0;
    }
    return std::nullopt;
}

std::string attribute(sd_device *device, const char *name) {
    const char *value = nullptr;
    return sd_device_get_sysattr_value(device, name, &value) < 0 ? "" : value;
}

} // namespace

bool isHidrawName(std::string_view name) {
    if (!name.starts_with(prefix) || name.size() == prefix.size())
        return false;
    return std::ranges::all_of(name.substr(prefix.size()),
                               [](char each) { return each >= '0' && each <= '9'; });
}

Result<std::vector<std::string>> hidrawNames() {
    struct Closer {
        void operator()(sd_device_enumerator *enumerator) const { sd_device_enumerator_unref(enumerator); }
    };
    sd_device_enumerator *made = nullptr;
    int error = sd_device_enumerator_new(&made);
    const std::unique_ptr<sd_device_enumerator, Closer> enumerator(made);
    if (error >= 0)
        error = sd_device_enumerator_allow_uninitialized(made);
    if (error >= 0)
        error = sd_device_enumerator_add_match_subsystem(made, "hidraw", 1);
    if (error < 0)
        return systemError("Cannot list the kernel's HID devices", -error);
    std::vector<std::string> names;
    for (sd_device *device = sd_device_enumerator_get_device_first(made); device != nullptr;
         device = sd_device_enumerator_get_device_next(made)) {
        const char *name = nullptr;
        if (sd_device_get_sysname(device, &name) >= 0 && isHidrawName(name))
            names.emplace_back(name);
    }
    return names;
}

std::optional<HidrawNode> readHidrawNode(const std::string &name) {
    const Device device = deviceOfName(name);
    sd_device *hid = nullptr; // These parents belong to `device`.
    sd_device *usb = nullptr;
    const char *place = nullptr;
    if (!device || sd_device_get_devname(device.get(), &place) < 0 || ::access(place, F_OK) != 0 ||
        sd_device_get_parent_with_subsystem_devtype(device.get(), "hid", nullptr, &hid) < 0)
        return std::nullopt;
    const std::string folder = syspathOf(hid);
    const auto uevent = fileContent(folder + "/uevent");
    const auto descriptor = fileContent(folder + "/report_descriptor");
    if (!uevent || !descriptor)
        return std::nullopt;
    std::optional<USBStrings> strings;
    if (sd_device_get_parent_with_subsystem_devtype(device.get(), "usb", "usb_device", &usb) >= 0)
        strings = {attribute(usb, "manufacturer"), attribute(usb, "product"), attribute(usb, "serial")};

    const std::span bytes(reinterpret_cast<const uint8_t *>(descriptor->data()), descriptor->size());
    Result<BusDeviceProperties> properties = hidrawProperties(*uevent, bytes, strings ? &*strings : nullptr);
    if (!properties.ok())
        return std::nullopt;
    return HidrawNode{place, syspathOf(device.get()), *std::move(properties),
                      summarizeReportDescriptor(bytes).numbersReports};
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

std::string sysPathOfNumber(dev_t number) {
    sd_device *made = nullptr;
    if (sd_device_new_from_devnum(&made, 'c', number) < 0)
        return "";
    const Device device(made);
    return syspathOf(made);
}

std::string udevRuleForVendor(uint16_t vendorID) {
    std::array<char, 96> rule{};
    std::snprintf(rule.data(), rule.size(), R"(SUBSYSTEM=="hidraw", KERNELS=="*:%04X:*", TAG+="uaccess")",
                  vendorID);
    return rule.data();
}

} // namespace moxel
