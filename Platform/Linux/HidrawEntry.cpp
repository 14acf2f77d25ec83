#include "Platform/Linux/HidrawEntry.h"

#include "Platform/Linux/HidrawDevice.h"
#include "Platform/Log.h"
#include "Platform/LogText.h"

namespace moxel {

std::optional<HIDProperty> HidrawEntry::property(std::string_view key) const {
    return node_.properties.property(key);
}

std::shared_ptr<HIDBusDevice> HidrawEntry::makeDevice(std::shared_ptr<HIDDeviceHost> host) const {
    return std::make_shared<HidrawDevice>(shared_from_this(), std::move(host));
}

void HidrawEntry::complain() const {
    const Result<void> rights = checkRights(node_);
    if (rights.ok() || hasComplained_.exchange(true))
        return;
    logLine(LogLevel::error, "Error: HID device " + node_.place + " (" +
                                 printableText(node_.properties.name) +
                                 ") is not used: " + rights.error().message +
                                 ". This udev rule, in /etc/udev/rules.d/70-hid.rules, would allow it: " +
                                 udevRuleForVendor(node_.properties.vendorID));
}

} // namespace moxel
