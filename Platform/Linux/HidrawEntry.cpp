#include "Platform/Linux/HidrawEntry.h"

#include "Platform/Linux/Guard.h"
#include "Platform/Linux/HidrawDevice.h"
#include "Platform/Log.h"
#include "Platform/LogText.h"

#include <cerrno>
#include <string>

namespace moxel {

std::optional<HIDProperty> HidrawEntry::property(std::string_view key) const {
    return node_.properties.property(key);
}

std::shared_ptr<HIDBusDevice> HidrawEntry::makeDevice(std::shared_ptr<HIDDeviceHost> host) const {
    return std::make_shared<HidrawDevice>(shared_from_this(), std::move(host));
}

void HidrawEntry::complain() const {
    if (hasLeft())
        return;
    const Result<void> rights = checkRights(node_);
    if (!rights.ok() && rights.error().code != ENOENT)
        complainOf(rights.error().code);
}

void HidrawEntry::askForAnotherLook(bool forShortage) const {
    if ((forShortage || !hasLookedAgain_.exchange(true)) && requests_.lookAgain)
        guarded("asking for another look at a HID device", requests_.lookAgain);
}

void HidrawEntry::complainOf(int error) const {
    if (complainedOf_.exchange(error) == error)
        return;
    std::string line =
        "Error: HID device " + node_.place + " (" + printableText(node_.properties.name) + ") is not used: ";
    if (error == EACCES || error == EPERM)
        line += systemError("it may not be opened", error).message +
                ". This udev rule, in /etc/udev/rules.d/70-hid.rules, would allow it: " +
                udevRuleForVendor(node_.properties.vendorID);
    else if (error == ETIMEDOUT)
        line +=
            "the kernel keeps everyone waiting who opens a HID device, for the answer of one of them. It is "
            "tried again as soon as the kernel lets it be opened";
    else
        line += systemError("it cannot be opened", error).message;
    logLine(LogLevel::error, line);
}

} // namespace moxel
