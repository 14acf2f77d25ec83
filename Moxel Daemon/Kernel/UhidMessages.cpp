#include "Moxel Daemon/Kernel/UhidMessages.h"

#include "Moxel Common/Protocol/WireLayouts.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <linux/input.h>
#include <string>

namespace moxel::daemon {

namespace {

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the kernel's numbers are in the machine's order");
static_assert(offsetof(uhid_event, u) == sizeof(uint32_t));

constexpr size_t bodyOffset = offsetof(uhid_event, u);
constexpr size_t tagAndPayloadSize = wire::channelTagSize + wire::reportPayloadLimit;
/// The largest content of storage slot 0.
constexpr size_t slotSize = 2048;

constexpr uint8_t inputItem = 0x81;
constexpr uint8_t outputItem = 0x91;

struct DescribedReport {
    uint8_t identifier;
    uint8_t direction;
    uint16_t size; ///< Without the identifier.
};

constexpr DescribedReport channelReports[] = {
    {wire::daemonMessage, inputItem, uhidInputReportSize - 1},
    {wire::programReport0, outputItem, tagAndPayloadSize},
    {wire::controlReport, outputItem, tagAndPayloadSize},
    {wire::storageSlot0Write, outputItem, tagAndPayloadSize},
    {wire::storageSlot0Read, outputItem, slotSize},
    {wire::storageSlot1Write, outputItem, tagAndPayloadSize},
    {wire::applicationInfo, outputItem, tagAndPayloadSize},
};

uint8_t low(size_t number) { return static_cast<uint8_t>(number & 0xFF); }
uint8_t high(size_t number) { return static_cast<uint8_t>(number >> 8U & 0xFF); }

template <class Body>
Data message(uint32_t type, const Body &body, size_t bodySize = sizeof(Body)) {
    Data bytes(bodyOffset + bodySize);
    std::memcpy(bytes.data(), &type, sizeof type);
    std::memcpy(bytes.data() + bodyOffset, &body, bodySize);
    return bytes;
}

template <size_t size>
Result<void> copyText(__u8 (&field)[size], const std::string &text, const char *what) {
    if (text.size() >= size || text.find_first_of(std::string("\n\0", 2)) != std::string::npos)
        return Error{"The kernel takes no " + std::string(what) +
                     " of a device with a line's end or more than " + std::to_string(size - 1) + " bytes"};
    std::ranges::copy(text, field);
    return {};
}

/// The kernel's number for a type of report, which is not the platform's.
std::optional<HIDReportType> reportType(uint8_t number) {
    switch (number) {
    case UHID_FEATURE_REPORT:
        return HIDReportType::feature;
    case UHID_OUTPUT_REPORT:
        return HIDReportType::output;
    case UHID_INPUT_REPORT:
        return HIDReportType::input;
    default:
        return std::nullopt;
    }
}

uint16_t errorOf(HIDStatus status) { return status == HIDStatus::success ? 0 : EIO; }

/// Copies the body of an event; what the kernel did not write of it stays zero.
template <class Body>
Body bodyOf(std::span<const uint8_t> message) {
    Body body{};
    const auto bytes = message.subspan(bodyOffset);
    std::memcpy(&body, bytes.data(), std::min(bytes.size(), sizeof body));
    return body;
}

/// A report that begins with its identifier, as `size` bytes from `offset` of the message.
bool takeReport(std::span<const uint8_t> message, size_t offset, size_t size, UhidEvent &event) {
    if (size == 0 || size > UHID_DATA_MAX || message.size() < offset || message.size() - offset < size)
        return false;
    event.reportID = message[offset];
    event.report = message.subspan(offset + 1, size - 1);
    return true;
}

} // namespace

// ------------------------------------------------------------------------------------------ To the kernel

Data channelReportDescriptor(uint16_t usagePage, uint16_t usage) {
    Data bytes{0x06, low(usagePage), high(usagePage)}; // Usage page
    if (usage <= UINT8_MAX)
        bytes.insert(bytes.end(), {0x09, low(usage)}); // Usage
    else
        bytes.insert(bytes.end(), {0x0A, low(usage), high(usage)});
    bytes.insert(bytes.end(), {0xA1, 0x01,                   // Collection: application
                               0x15, 0x00, 0x26, 0xFF, 0x00, // Logical minimum 0, maximum 255
                               0x75, 0x08});                 // Report size: 8 bits
    for (const DescribedReport &report : channelReports) {
        const uint8_t items[] = {0x85,
                                 report.identifier, // Report identifier
                                 0x09,
                                 report.identifier, // Usage
                                 0x96,
                                 low(report.size),
                                 high(report.size), // Report count
                                 report.direction,
                                 0x02}; // Input or output: variable
        bytes.insert(bytes.end(), std::begin(items), std::end(items));
    }
    bytes.push_back(0xC0); // End of the collection
    return bytes;
}

Result<Data> uhidCreateMessage(const DeviceDescription &device) {
    uhid_create2_req request{};
    if (Result<void> copied = copyText(request.name, device.name, "name"); !copied.ok())
        return copied.error();
    // There is no field for the manufacturer, who goes before the address.
    if (device.manufacturer.find('/') != std::string::npos)
        return Error{"The manufacturer of a device has a slash in it"};
    if (Result<void> copied = copyText(request.phys, device.manufacturer + "/virtual", "manufacturer");
        !copied.ok())
        return copied.error();
    if (Result<void> copied = copyText(request.uniq, device.serialNumber, "serial number"); !copied.ok())
        return copied.error();
    const Data descriptor = channelReportDescriptor(device.primaryUsagePage, device.primaryUsage);
    static_assert(std::size(channelReports) * 9 + 32 < HID_MAX_DESCRIPTOR_SIZE);
    std::ranges::copy(descriptor, request.rd_data);
    request.rd_size = static_cast<uint16_t>(descriptor.size());
    request.bus = BUS_VIRTUAL;
    request.vendor = device.vendorID;
    request.product = device.productID;
    return message(UHID_CREATE2, request, offsetof(uhid_create2_req, rd_data) + descriptor.size());
}

Data uhidInputMessage(std::span<const uint8_t> report) {
    uhid_input2_req input{};
    input.size = uhidInputReportSize;
    std::ranges::copy(report.first(std::min(report.size(), uhidInputReportSize)), input.data);
    return message(UHID_INPUT2, input, offsetof(uhid_input2_req, data) + uhidInputReportSize);
}

Data uhidSetReply(uint32_t request, HIDStatus status) {
    return message(UHID_SET_REPORT_REPLY, uhid_set_report_reply_req{request, errorOf(status)});
}

Data uhidGetReply(uint32_t request, uint8_t reportID, HIDStatus status, std::span<const uint8_t> content) {
    uhid_get_report_reply_req reply{};
    reply.id = request;
    reply.err = errorOf(status);
    const size_t size = std::min(content.size(), sizeof reply.data - 1);
    reply.size = static_cast<uint16_t>(status == HIDStatus::success ? 1 + size : 0);
    reply.data[0] = reportID;
    std::ranges::copy(content.first(size), reply.data + 1);
    return message(UHID_GET_REPORT_REPLY, reply, offsetof(uhid_get_report_reply_req, data) + reply.size);
}

// ------------------------------------------------------------------------------------------ From the kernel

std::optional<UhidEvent> parseUhidEvent(std::span<const uint8_t> message) {
    if (message.size() < bodyOffset)
        return std::nullopt;
    uint32_t type = 0;
    std::memcpy(&type, message.data(), sizeof type);
    UhidEvent event;
    switch (type) {
    case UHID_START:
        event.kind = UhidEvent::Kind::started;
        return event;
    case UHID_STOP:
        event.kind = UhidEvent::Kind::stopped;
        return event;
    case UHID_OPEN:
        event.kind = UhidEvent::Kind::opened;
        return event;
    case UHID_CLOSE:
        event.kind = UhidEvent::Kind::closed;
        return event;
    case UHID_OUTPUT: {
        const auto output = bodyOf<uhid_output_req>(message);
        const auto kind = reportType(output.rtype);
        if (!kind || !takeReport(message, bodyOffset + offsetof(uhid_output_req, data), output.size, event))
            return std::nullopt;
        event.kind = UhidEvent::Kind::setReport;
        event.reportType = *kind;
        return event;
    }
    case UHID_SET_REPORT: {
        const auto set = bodyOf<uhid_set_report_req>(message);
        const auto kind = reportType(set.rtype);
        if (!kind || !takeReport(message, bodyOffset + offsetof(uhid_set_report_req, data), set.size, event))
            return std::nullopt;
        event.kind = UhidEvent::Kind::setReport;
        event.reportType = *kind;
        event.request = set.id;
        return event;
    }
    case UHID_GET_REPORT: {
        const auto get = bodyOf<uhid_get_report_req>(message);
        const auto kind = reportType(get.rtype);
        if (!kind || message.size() < bodyOffset + sizeof get)
            return std::nullopt;
        event.kind = UhidEvent::Kind::getReport;
        event.reportType = *kind;
        event.reportID = get.rnum;
        event.request = get.id;
        return event;
    }
    default:
        return event;
    }
}

} // namespace moxel::daemon
