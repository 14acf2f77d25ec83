// The messages of the user-space HID bus, byte by byte; layouts only, shared by its clients and its
// publishers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace moxel::hidbus {

// The layouts are little-endian and are read and written by copying bytes.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "bus layouts need byte swapping on this machine");

/// What a message is; a reply carries the operation of its request.
enum class Operation : uint8_t {
    properties = 1, ///< Device, first message on every connection: PropertiesHead and four strings.
    open = 2,
    close = 3,
    setReport = 4, ///< Payload: the report without its identifier.
    getReport = 5, ///< Payload of the reply: the report without its identifier.
    input = 6,     ///< Device: the report, its identifier first.
};

/// Head of every datagram; the payload follows.
struct MessageHeader {
    uint8_t operation;
    uint8_t reportType; ///< A HIDReportType.
    uint8_t reportID;
    uint8_t reserved; ///< 0.
    int32_t value;    ///< Status in a reply, capacity in a getReport request, else 0.
};
static_assert(sizeof(MessageHeader) == 8);
static_assert(offsetof(MessageHeader, operation) == 0);
static_assert(offsetof(MessageHeader, reportType) == 1);
static_assert(offsetof(MessageHeader, reportID) == 2);
static_assert(offsetof(MessageHeader, reserved) == 3);
static_assert(offsetof(MessageHeader, value) == 4);

/// Begins the payload of a properties message. Name, manufacturer, product and serial number follow, each a
/// length byte and that many bytes of UTF-8.
struct PropertiesHead {
    uint16_t vendorID;
    uint16_t productID;
    uint16_t primaryUsagePage;
    uint16_t primaryUsage;
};
static_assert(sizeof(PropertiesHead) == 8);
static_assert(offsetof(PropertiesHead, vendorID) == 0);
static_assert(offsetof(PropertiesHead, productID) == 2);
static_assert(offsetof(PropertiesHead, primaryUsagePage) == 4);
static_assert(offsetof(PropertiesHead, primaryUsage) == 6);

inline constexpr size_t payloadLimit = 4096;
inline constexpr size_t messageLimit = sizeof(MessageHeader) + payloadLimit;
/// Payload of an input message.
inline constexpr size_t inputReportLimit = 64;

/// A device's socket is NAME.hid; its publisher binds it as .NAME.tmp.
inline constexpr std::string_view socketSuffix = ".hid";
inline constexpr std::string_view temporaryPrefix = ".";
inline constexpr std::string_view temporarySuffix = ".tmp";

} // namespace moxel::hidbus
