#include "Platform/Linux/BusMessage.h"

#include "Platform/LogText.h"
#include "Platform/Utf8.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

namespace moxel {

namespace {

using hidbus::MessageHeader;
using hidbus::Operation;
using hidbus::PropertiesHead;

template <class Layout>
Layout copyLayout(std::span<const uint8_t> bytes) {
    Layout layout;
    std::memcpy(&layout, bytes.data(), sizeof layout);
    return layout;
}

/// The rule that a message breaks, judged by its operation; null when it breaks none.
const char *brokenRule(const BusMessage &message) {
    switch (message.operation) {
    case Operation::properties:
        return message.value != 0 ? "a PROPERTIES message with a status" : nullptr;
    case Operation::input:
        if (message.payload.empty() || message.payload.size() > hidbus::inputReportLimit)
            return "an INPUT message without report or with one of more than 64 bytes";
        if (message.reportType != HIDReportType::input || message.value != 0)
            return "an INPUT message of another type or with a status";
        return nullptr;
    case Operation::open:
    case Operation::close:
    case Operation::setReport:
        return message.payload.empty() ? nullptr : "a reply with a payload that it may not have";
    case Operation::getReport:
        return nullptr;
    }
    return "an unknown operation";
}

/// Takes a string with its length byte from the front of `bytes`; absent when it runs over the end or is not
/// UTF-8.
std::optional<std::string> takeString(std::span<const uint8_t> &bytes) {
    if (bytes.empty() || bytes.size() - 1 < bytes[0])
        return std::nullopt;
    const auto content = bytes.subspan(1, bytes[0]);
    bytes = bytes.subspan(1 + content.size());
    std::string text(content.begin(), content.end());
    if (!isUtf8(text))
        return std::nullopt;
    return text;
}

} // namespace

Result<BusMessage> parseBusMessage(std::span<const uint8_t> received, size_t sentSize) {
    if (sentSize < sizeof(MessageHeader))
        return Error{"a message without a whole header"};
    if (sentSize > hidbus::messageLimit)
        return Error{"a message with a payload of more than 4096 bytes"};
    if (sentSize > received.size())
        return Error{"a message of which only a part was received"};
    const auto header = copyLayout<MessageHeader>(received);
    if (header.reportType > static_cast<uint8_t>(HIDReportType::feature) || header.reserved != 0)
        return Error{"a message with an unknown report type or a reserved byte that is not 0"};
    const BusMessage message{static_cast<Operation>(header.operation),
                             static_cast<HIDReportType>(header.reportType), header.reportID, header.value,
                             received.first(sentSize).subspan(sizeof header)};
    if (const char *broken = brokenRule(message))
        return Error{broken};
    return message;
}

HIDStatus replyStatus(const BusMessage &reply) {
    const auto status = static_cast<HIDStatus>(static_cast<uint32_t>(reply.value));
    constexpr HIDStatus known[] = {HIDStatus::success,     HIDStatus::error,   HIDStatus::noDevice,
                                   HIDStatus::badArgument, HIDStatus::notOpen, HIDStatus::timedOut,
                                   HIDStatus::notPermitted};
    return std::ranges::find(known, status) != std::end(known) ? status : HIDStatus::error;
}

std::optional<HIDProperty> BusDeviceProperties::property(std::string_view key) const {
    if (key == hidVendorIDKey)
        return HIDProperty(int64_t{vendorID});
    if (key == hidProductIDKey)
        return HIDProperty(int64_t{productID});
    if (key == hidPrimaryUsagePageKey)
        return HIDProperty(int64_t{primaryUsagePage});
    if (key == hidPrimaryUsageKey)
        return HIDProperty(int64_t{primaryUsage});
    if (key == hidManufacturerKey)
        return HIDProperty(manufacturer);
    if (key == hidProductKey)
        return HIDProperty(product);
    if (key == hidSerialNumberKey)
        return HIDProperty(serialNumber);
    return std::nullopt;
}

std::string BusDeviceProperties::descriptionOf(const HIDDevice &device) const {
    std::array<char, 32> address{};
    std::snprintf(address.data(), address.size(), "<HIDDevice %p ", static_cast<const void *>(&device));
    std::array<char, 64> numbers{};
    std::snprintf(numbers.data(), numbers.size(), " vendor 0x%04X product 0x%04X>", vendorID, productID);
    return address.data() + printableText(name) + numbers.data();
}

Result<BusDeviceProperties> parseBusProperties(const BusMessage &message) {
    if (message.operation != Operation::properties)
        return Error{"a first message that is not PROPERTIES"};
    auto rest = message.payload;
    if (rest.size() < sizeof(PropertiesHead))
        return Error{"a PROPERTIES message that ends too early"};
    const auto head = copyLayout<PropertiesHead>(rest);
    rest = rest.subspan(sizeof head);
    BusDeviceProperties properties{
        head.vendorID, head.productID, head.primaryUsagePage, head.primaryUsage, {}, {}, {}, {}};
    for (std::string *target :
         {&properties.name, &properties.manufacturer, &properties.product, &properties.serialNumber}) {
        auto text = takeString(rest);
        if (!text)
            return Error{"a PROPERTIES message with a string that runs over the end or is not UTF-8"};
        *target = std::move(*text);
    }
    if (!rest.empty())
        return Error{"a PROPERTIES message with bytes behind its strings"};
    return properties;
}

} // namespace moxel
