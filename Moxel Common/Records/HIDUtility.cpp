#include <Moxel/HIDUtility.h>

#include "Helpers/TextConversion.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <string>

namespace moxel {

namespace {

constexpr uint32_t pageGenericDesktop = 1;
constexpr uint32_t pageKeyboard = 7;
constexpr uint32_t pageButton = 9;

/// The names of the generic-desktop axes 0x30 to 0x35; null for any other usage.
const char *desktopAxisName(uint32_t usage) {
    constexpr const char *names[] = {"X", "Y", "Z", "Rx", "Ry", "Rz"};
    constexpr uint32_t first = 0x30;
    return usage >= first && usage - first < std::size(names) ? names[usage - first] : nullptr;
}

void printDetails(const HIDValue &value) {
    const HIDElement &element = value.element;
    std::printf("\n  UsagePage = %x; Usage = %x. \n", element.usagePage, element.usage);
    std::printf("  ElementType = %x.", element.type);
    std::printf("  Value: %d ( 0x%x ). \n", value.integerValue, static_cast<uint32_t>(value.integerValue));
    std::printf("  ReportID: %d. \n", static_cast<int32_t>(element.reportID));
    std::printf("  Logical MinMax: [%d, %d] \n", element.logicalMinimum, element.logicalMaximum);
    std::printf("  Relative: %s. \n", element.isRelative ? "true" : "false");
}

} // namespace

bool HIDUtility::getClassName(char (&name)[classNameRoom], HIDDevice *fromDevice) {
    if (!fromDevice)
        return false;
    const std::optional<std::string> entryName = fromDevice->registryEntryName();
    if (!entryName)
        return false;
    const size_t length = std::min(entryName->size(), classNameRoom - 1);
    std::memcpy(name, entryName->data(), length);
    name[length] = '\0';
    return name[0] != '\0';
}

void HIDUtility::printHIDValueInfo(const HIDValue &value) {
    const HIDElement &element = value.element;
    std::printf(" Value length: %d. ", static_cast<int>(value.length));
    if (element.usagePage == pageButton)
        std::printf("   Button: %d, %d. \n", static_cast<int32_t>(element.usage), value.integerValue);
    else if (element.usagePage == pageKeyboard)
        std::printf("   Keyboard/Pad: %d, %d. \n", static_cast<int32_t>(element.usage), value.integerValue);
    else if (const char *axis = desktopAxisName(element.usage);
             axis && element.usagePage == pageGenericDesktop)
        std::printf("   Desktop %s: %d. \n", axis, value.integerValue);
    else
        printDetails(value);
}

int32_t HIDUtility::getIntProperty(HIDDevice *device, const char *forKey) {
    if (device && forKey) {
        const std::optional<HIDProperty> property = device->property(forKey);
        if (const int64_t *number = property ? std::get_if<int64_t>(&*property) : nullptr)
            return static_cast<int32_t>(*number);
    }
    std::printf(" ERROR in get_int_property...");
    return 0;
}

bool HIDUtility::getStringProperty(HIDDevice *device, const char *forKey, char32_t *intoBuffer,
                                   uint64_t ofLength) {
    if (!device || !forKey || !intoBuffer || ofLength == 0)
        return false;
    const std::optional<HIDProperty> property = device->property(forKey);
    intoBuffer[0] = 0;
    const std::string *text = property ? std::get_if<std::string>(&*property) : nullptr;
    if (!text)
        return false;
    std::u16string units = String(*text).utf16();
    units.resize(std::min<uint64_t>(units.size(), ofLength - 1));
    const std::u32string wide = utf32FromUTF16(units); // Never longer than its UTF-16 form.
    *std::ranges::copy(wide, intoBuffer).out = 0;
    return true;
}

uint16_t HIDUtility::getVendorID(HIDDevice *device) {
    return static_cast<uint16_t>(getIntProperty(device, hidVendorIDKey.data()));
}

uint16_t HIDUtility::getProductID(HIDDevice *device) {
    return static_cast<uint16_t>(getIntProperty(device, hidProductIDKey.data()));
}

bool HIDUtility::getManufacturerString(HIDDevice *device, char32_t *intoBuffer, uint64_t ofSize) {
    return getStringProperty(device, hidManufacturerKey.data(), intoBuffer, ofSize);
}

bool HIDUtility::getProductString(HIDDevice *device, char32_t *intoBuffer, uint64_t ofSize) {
    return getStringProperty(device, hidProductKey.data(), intoBuffer, ofSize);
}

} // namespace moxel
