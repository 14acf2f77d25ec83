#include "Moxel Daemon/Bus/BusMessages.h"

#include <cstring>
#include <string>

namespace moxel::daemon {

namespace {

using hidbus::MessageHeader;
using hidbus::Operation;

void append(Data &bytes, std::span<const uint8_t> more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
}

template <class Layout>
void appendLayout(Data &bytes, const Layout &layout) {
    const size_t offset = bytes.size();
    bytes.resize(offset + sizeof layout);
    std::memcpy(bytes.data() + offset, &layout, sizeof layout);
}

Error breach(const std::string &rule) { return {"a client broke the rules of the bus: " + rule, 0}; }

} // namespace

Result<BusRequest> parseBusRequest(std::span<const uint8_t> datagram, size_t size) {
    MessageHeader header{};
    if (size < sizeof header || datagram.size() < sizeof header)
        return breach("a message of " + std::to_string(size) + " bytes has no header");
    if (size > hidbus::messageLimit || size > datagram.size())
        return breach("a message of " + std::to_string(size) + " bytes is too long");
    std::memcpy(&header, datagram.data(), sizeof header);
    if (header.operation < static_cast<uint8_t>(Operation::open) ||
        header.operation > static_cast<uint8_t>(Operation::getReport))
        return breach("operation " + std::to_string(header.operation) + " is none of a client's");
    const BusRequest request{static_cast<Operation>(header.operation),
                             static_cast<HIDReportType>(header.reportType), header.reportID, header.value,
                             datagram.subspan(sizeof header, size - sizeof header)};
    if (header.reportType > static_cast<uint8_t>(HIDReportType::feature))
        return breach("report type " + std::to_string(header.reportType) + " is unknown");
    if (header.reserved != 0)
        return breach("the reserved byte is not zero");
    if (request.operation != Operation::setReport && !request.payload.empty())
        return breach("operation " + std::to_string(header.operation) + " has no payload");
    if (request.operation != Operation::getReport && header.value != 0)
        return breach("operation " + std::to_string(header.operation) + " has no capacity");
    return request;
}

Result<Data> busPropertiesMessage(const DeviceDescription &device) {
    Data message;
    appendLayout(message, MessageHeader{static_cast<uint8_t>(Operation::properties), 0, 0, 0, 0});
    appendLayout(message, hidbus::PropertiesHead{device.vendorID, device.productID, device.primaryUsagePage,
                                                 device.primaryUsage});
    for (const std::string *text :
         {&device.name, &device.manufacturer, &device.product, &device.serialNumber}) {
        if (text->size() > 0xFF)
            return Error{"a device's \"" + text->substr(0, 32) + "...\" is longer than 255 bytes", 0};
        message.push_back(static_cast<uint8_t>(text->size()));
        message.insert(message.end(), text->begin(), text->end());
    }
    return message;
}

Data busInputMessage(std::span<const uint8_t> report) {
    Data message;
    message.reserve(sizeof(MessageHeader) + report.size());
    appendLayout(message, MessageHeader{static_cast<uint8_t>(Operation::input),
                                        static_cast<uint8_t>(HIDReportType::input),
                                        report.empty() ? uint8_t{0} : report.front(), 0, 0});
    append(message, report);
    return message;
}

Data busReplyMessage(const BusRequest &request, HIDStatus status, std::span<const uint8_t> content) {
    Data message;
    message.reserve(sizeof(MessageHeader) + content.size());
    appendLayout(message, MessageHeader{static_cast<uint8_t>(request.operation),
                                        static_cast<uint8_t>(request.reportType), request.reportID, 0,
                                        static_cast<int32_t>(status)});
    append(message, content);
    return message;
}

} // namespace moxel::daemon
