// Messages to and from the kernel's virtual HID devices, byte by byte.
#include "Moxel Daemon/Kernel/UhidMessages.h"
#include "Daemon/RawClient.h"

#include <gtest/gtest.h>

namespace moxel::daemon {
namespace {

using Kind = UhidEvent::Kind;

Bytes field(std::string_view text, size_t size) {
    Bytes bytes = bytesOf(text);
    bytes.resize(size);
    return bytes;
}

Bytes channelDescriptor() {
    return {0x06, 0x00, 0xFF, 0x09, 0x01, 0xA1, 0x01, 0x15, 0x00, 0x26, 0xFF, 0x00,
            0x75, 0x08, 0x85, 0x35, 0x09, 0x35, 0x96, 0x3F, 0x00, 0x81, 0x02, // 63 bytes in
            0x85, 0x44, 0x09, 0x44, 0x96, 0xFF, 0x0B, 0x91, 0x02,             // 3071 bytes out
            0x85, 0x46, 0x09, 0x46, 0x96, 0xFF, 0x0B, 0x91, 0x02,             //
            0x85, 0x53, 0x09, 0x53, 0x96, 0xFF, 0x0B, 0x91, 0x02,             //
            0x85, 0x54, 0x09, 0x54, 0x96, 0x00, 0x08, 0x91, 0x02,             // 2048 bytes to be read
            0x85, 0x63, 0x09, 0x63, 0x96, 0xFF, 0x0B, 0x91, 0x02,             //
            0x85, 0x73, 0x09, 0x73, 0x96, 0xFF, 0x0B, 0x91, 0x02, 0xC0};
}

DeviceDescription channelDescription() {
    DeviceDescription device;
    device.name = "MxlVirtualHIDData_Base000001F5";
    device.serialNumber = "7";
    device.productID = 0x0102;
    return device;
}

TEST(UhidMessages, DescriptorOfAChannelHasAllItsReports) {
    EXPECT_EQ(channelReportDescriptor(0xFF00, 1), channelDescriptor());
    EXPECT_EQ(channelDescriptor().size(), 78U);
}

TEST(UhidMessages, UsageOfTwoBytesIsWritten) {
    const Data descriptor = channelReportDescriptor(0x0001, 0x1234);
    EXPECT_EQ(Bytes(descriptor.begin(), descriptor.begin() + 8),
              (Bytes{0x06, 0x01, 0x00, 0x0A, 0x34, 0x12, 0xA1, 0x01}));
}

TEST(UhidMessages, CreateCarriesTheManufacturerInTheAddress) {
    const Result<Data> message = uhidCreateMessage(channelDescription());
    ASSERT_TRUE(message.ok());
    EXPECT_EQ(*message, littleEndian(11, 4) + field("MxlVirtualHIDData_Base000001F5", 128) +
                            field("Moxel/virtual", 64) + field("7", 64) + littleEndian(78, 2) +
                            littleEndian(6, 2) + littleEndian(0x4D58, 4) + littleEndian(0x0102, 4) +
                            littleEndian(0, 4) + littleEndian(0, 4) + channelDescriptor());
}

TEST(UhidMessages, TextsThatTheKernelCannotKeepAreRefused) {
    DeviceDescription device = channelDescription();
    device.name = std::string(127, 'n');
    EXPECT_TRUE(uhidCreateMessage(device).ok());
    device.name = std::string(128, 'n');
    EXPECT_FALSE(uhidCreateMessage(device).ok());
    device.name = "a\nHID_ID=0003:00000000:00000000";
    EXPECT_FALSE(uhidCreateMessage(device).ok());
    device = channelDescription();
    device.manufacturer = std::string(55, 'm'); // "/virtual" follows.
    EXPECT_TRUE(uhidCreateMessage(device).ok());
    device.manufacturer = std::string(56, 'm');
    EXPECT_FALSE(uhidCreateMessage(device).ok());
    device.manufacturer = "a/b";
    EXPECT_FALSE(uhidCreateMessage(device).ok());
    device = channelDescription();
    device.serialNumber = std::string(64, 's');
    EXPECT_FALSE(uhidCreateMessage(device).ok());
}

TEST(UhidMessages, InputIsFilledUpOrCutTo64Bytes) {
    Bytes filled{0x35, 1, 2};
    filled.resize(64);
    EXPECT_EQ(uhidInputMessage(Bytes{0x35, 1, 2}), littleEndian(12, 4) + littleEndian(64, 2) + filled);
    EXPECT_EQ(uhidInputMessage(Bytes(65, 9)), littleEndian(12, 4) + littleEndian(64, 2) + Bytes(64, 9));
}

TEST(UhidMessages, RepliesCarryTheNumberOfTheirRequest) {
    EXPECT_EQ(uhidSetReply(0x01020304, HIDStatus::success), (Bytes{14, 0, 0, 0, 4, 3, 2, 1, 0, 0}));
    EXPECT_EQ(uhidSetReply(7, HIDStatus::badArgument), (Bytes{14, 0, 0, 0, 7, 0, 0, 0, 5, 0}));
    EXPECT_EQ(uhidGetReply(7, 0x54, HIDStatus::success, Bytes{9, 8}),
              (Bytes{10, 0, 0, 0, 7, 0, 0, 0, 0, 0, 3, 0, 0x54, 9, 8}));
    EXPECT_EQ(uhidGetReply(7, 0x54, HIDStatus::error, Bytes{9, 8}),
              (Bytes{10, 0, 0, 0, 7, 0, 0, 0, 5, 0, 0, 0}));
    EXPECT_EQ(uhidGetReply(7, 0x54, HIDStatus::success, Bytes(5000, 1)).size(), 12U + 4096U);
}

TEST(UhidMessages, EventsWithoutAReportAreTheirNumber) {
    const std::pair<uint8_t, Kind> events[] = {
        {2, Kind::started}, {3, Kind::stopped}, {4, Kind::opened}, {5, Kind::closed}, {99, Kind::other}};
    for (const auto &[number, kind] : events) {
        const auto event = parseUhidEvent(littleEndian(number, 4));
        ASSERT_TRUE(event) << int{number};
        EXPECT_EQ(event->kind, kind) << int{number};
    }
}

Bytes outputMessage(const Bytes &report, size_t size, uint8_t type = 1) {
    Bytes data = report;
    data.resize(4096);
    return littleEndian(6, 4) + data + littleEndian(size, 2) + Bytes{type};
}

TEST(UhidMessages, OutputIsAReportWithItsIdentifierAndNoReply) {
    const Bytes message = outputMessage({0x46, 1, 2, 3}, 4);
    const auto event = parseUhidEvent(message);
    ASSERT_TRUE(event);
    EXPECT_EQ(event->kind, Kind::setReport);
    EXPECT_EQ(event->reportType, HIDReportType::output);
    EXPECT_EQ(event->reportID, 0x46);
    EXPECT_EQ(Bytes(event->report.begin(), event->report.end()), (Bytes{1, 2, 3}));
    EXPECT_FALSE(event->request);
}

TEST(UhidMessages, SetAndGetNameTheirRequest) {
    const Bytes set =
        littleEndian(13, 4) + littleEndian(21, 4) + Bytes{0x63, 0} + littleEndian(3, 2) + field("c12", 4096);
    const auto setEvent = parseUhidEvent(set);
    ASSERT_TRUE(setEvent);
    EXPECT_EQ(setEvent->kind, Kind::setReport);
    EXPECT_EQ(setEvent->reportType, HIDReportType::feature);
    EXPECT_EQ(setEvent->reportID, 'c');
    EXPECT_EQ(Bytes(setEvent->report.begin(), setEvent->report.end()), bytesOf("12"));
    EXPECT_EQ(setEvent->request, 21U);

    const auto getEvent = parseUhidEvent(Bytes{9, 0, 0, 0, 22, 0, 0, 0, 0x54, 1});
    ASSERT_TRUE(getEvent);
    EXPECT_EQ(getEvent->kind, Kind::getReport);
    EXPECT_EQ(getEvent->reportType, HIDReportType::output);
    EXPECT_EQ(getEvent->reportID, 0x54);
    EXPECT_EQ(getEvent->request, 22U);
}

TEST(UhidMessages, EventsThatMakeNoSenseAreRefused) {
    EXPECT_FALSE(parseUhidEvent({}));
    EXPECT_FALSE(parseUhidEvent(Bytes{2, 0, 0}));
    EXPECT_FALSE(parseUhidEvent(outputMessage({0x46}, 0)));
    EXPECT_FALSE(parseUhidEvent(outputMessage({0x46}, 4097)));
    EXPECT_FALSE(parseUhidEvent(outputMessage({0x46}, 1, 3)));
    EXPECT_FALSE(parseUhidEvent(Bytes{6, 0, 0, 0, 1}));
    EXPECT_FALSE(parseUhidEvent(Bytes{9, 0, 0, 0, 22, 0, 0, 0, 0x54}));
    EXPECT_FALSE(parseUhidEvent(littleEndian(13, 4) + littleEndian(21, 4) + Bytes{0x63, 0, 3, 0, 'c', '1'}));
}

} // namespace
} // namespace moxel::daemon
