#include "Platform/Linux/HidrawProperties.h"

#include "Platform/Linux/ReportDescriptor.h"
#include "Platform/LogText.h"
#include "Platform/Utf8.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <vector>

namespace moxel {

namespace {

/// The values of all lines "KEY=VALUE".
std::vector<std::string_view> ueventValues(std::string_view uevent, std::string_view key) {
    std::vector<std::string_view> values;
    while (!uevent.empty()) {
        const std::string_view line = uevent.substr(0, uevent.find('\n'));
        uevent.remove_prefix(std::min(uevent.size(), line.size() + 1));
        if (line.size() > key.size() && line.starts_with(key) && line[key.size()] == '=')
            values.push_back(line.substr(key.size() + 1));
    }
    return values;
}

/// Empty when there is no such line.
std::string_view ueventValue(std::string_view uevent, std::string_view key) {
    const std::vector<std::string_view> values = ueventValues(uevent, key);
    return values.empty() ? std::string_view() : values.front();
}

/// Takes a hexadecimal number that ends at `end` (or with the text) from the front.
std::optional<uint32_t> takeNumber(std::string_view &text, char end) {
    const std::string_view digits = text.substr(0, text.find(end));
    uint32_t number = 0;
    const auto [stop, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number, 16);
    if (error != std::errc() || stop != digits.data() + digits.size())
        return std::nullopt;
    text.remove_prefix(std::min(text.size(), digits.size() + 1));
    return number;
}

/// Device strings are any bytes; properties are UTF-8.
std::string utf8Text(std::string_view bytes) {
    return isUtf8(bytes) ? std::string(bytes) : printableText(bytes);
}

} // namespace

Result<BusDeviceProperties>
hidrawProperties(std::string_view uevent, std::span<const uint8_t> reportDescriptor, const USBStrings *usb) {
    // A newline in one of a device's texts begins a line that looks like the kernel's own, before the one
    // that it stands for or after it.
    for (const std::string_view key : {"HID_ID", "HID_NAME", "HID_PHYS", "HID_UNIQ"})
        if (ueventValues(uevent, key).size() > 1)
            return Error{"its " + std::string(key) + " is there twice"};
    std::string_view identity = ueventValue(uevent, "HID_ID");
    const auto bus = takeNumber(identity, ':');
    const auto vendor = bus ? takeNumber(identity, ':') : std::nullopt;
    const auto product = vendor ? takeNumber(identity, '\n') : std::nullopt;
    if (!product || *vendor > UINT16_MAX || *product > UINT16_MAX)
        return Error{"its HID_ID is missing or malformed"};

    const ReportDescriptorSummary summary = summarizeReportDescriptor(reportDescriptor);
    BusDeviceProperties properties;
    properties.vendorID = static_cast<uint16_t>(*vendor);
    properties.productID = static_cast<uint16_t>(*product);
    properties.primaryUsagePage = summary.usagePage;
    properties.primaryUsage = summary.usage;
    properties.name = utf8Text(ueventValue(uevent, "HID_NAME"));
    if (usb != nullptr) {
        properties.manufacturer = utf8Text(usb->manufacturer);
        properties.product = utf8Text(usb->product);
        properties.serialNumber = utf8Text(usb->serialNumber);
    } else {
        const std::string_view address = ueventValue(uevent, "HID_PHYS");
        properties.manufacturer = utf8Text(address.substr(0, address.find('/')));
        properties.product = properties.name;
        properties.serialNumber = utf8Text(ueventValue(uevent, "HID_UNIQ"));
    }
    return properties;
}

} // namespace moxel
