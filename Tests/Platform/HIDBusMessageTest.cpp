// Messages of the user-space HID bus, byte by byte.
#include "Platform/Linux/BusMessage.h"
#include "Support/BusPublisher.h"

#include <gtest/gtest.h>

namespace moxel {
namespace {

using test::Bytes;
using test::inputMessage;
using test::pascalString;
using test::propertiesMessage;
using test::replyMessage;
using test::operator+; // NOLINT(misc-unused-using-decls): used as +

/// The rule that a datagram breaks; empty when it breaks none.
std::string brokenRule(Bytes datagram) {
    const size_t sentSize = datagram.size();
    datagram.resize(std::max(sentSize, hidbus::messageLimit));
    datagram.resize(hidbus::messageLimit);
    const Result<BusMessage> message = parseBusMessage(datagram, sentSize);
    return message.ok() ? "" : message.error().message;
}

/// The rule that a first message breaks; empty when it breaks none.
std::string brokenRuleOfProperties(const Bytes &datagram) {
    const Result<BusMessage> message = parseBusMessage(datagram, datagram.size());
    if (!message.ok())
        return message.error().message;
    const Result<BusDeviceProperties> properties = parseBusProperties(*message);
    return properties.ok() ? "" : properties.error().message;
}

TEST(HIDBusMessage, HeaderIsReadByteByByte) {
    const Bytes datagram = {5, 1, 0x54, 0, 0xC2, 0x02, 0x00, 0xE0, 0xAA, 0xBB};
    const Result<BusMessage> message = parseBusMessage(datagram, datagram.size());
    ASSERT_TRUE(message.ok());
    EXPECT_EQ(message->operation, hidbus::Operation::getReport);
    EXPECT_EQ(message->reportType, HIDReportType::output);
    EXPECT_EQ(message->reportID, 0x54);
    EXPECT_EQ(replyStatus(*message), HIDStatus::badArgument);
    EXPECT_EQ(Bytes(message->payload.begin(), message->payload.end()), (Bytes{0xAA, 0xBB}));
}

TEST(HIDBusMessage, PropertiesAreReadByteByByte) {
    const Bytes datagram = {1,    0,    0,    0,    0,    0,    0,    0,                // header
                            0x58, 0x4D, 0x02, 0x01, 0x03, 0xFF, 0x05, 0x04,             // numbers
                            4,    'B',  'a',  's',  'e',  2,    'M',  'x',  0, 1, '7'}; // strings
    const Result<BusMessage> message = parseBusMessage(datagram, datagram.size());
    ASSERT_TRUE(message.ok());
    const Result<BusDeviceProperties> properties = parseBusProperties(*message);
    ASSERT_TRUE(properties.ok());
    EXPECT_EQ(properties->property("VendorID"), HIDProperty(int64_t{0x4D58}));
    EXPECT_EQ(properties->property("ProductID"), HIDProperty(int64_t{0x0102}));
    EXPECT_EQ(properties->property("PrimaryUsagePage"), HIDProperty(int64_t{0xFF03}));
    EXPECT_EQ(properties->property("PrimaryUsage"), HIDProperty(int64_t{0x0405}));
    EXPECT_EQ(properties->name, "Base");
    EXPECT_EQ(properties->property("Manufacturer"), HIDProperty("Mx"));
    EXPECT_EQ(properties->property("Product"), HIDProperty(""));
    EXPECT_EQ(properties->property("SerialNumber"), HIDProperty("7"));
    EXPECT_EQ(properties->property("Other"), std::nullopt);
}

TEST(HIDBusMessage, StringsMayBe255BytesLongAndHoldAnyCharacter) {
    const Bytes head = {1, 0, 0, 0, 0, 0, 0, 0, 1, 0, 1, 0, 1, 0, 1, 0};
    const std::string longest(255, 'n');
    EXPECT_EQ(brokenRuleOfProperties(head + pascalString(longest) + pascalString("M\xC3\xB6xel") +
                                     pascalString("\xF0\x9F\x95\xB9") + pascalString("")),
              "");
}

TEST(HIDBusMessage, EveryTruncationOfPropertiesBreaksTheRules) {
    const Bytes whole = propertiesMessage("Base");
    EXPECT_EQ(brokenRuleOfProperties(whole), "");
    for (size_t size = 0; size < whole.size(); ++size)
        EXPECT_NE(brokenRuleOfProperties({whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size)}), "")
            << size;
    EXPECT_NE(brokenRuleOfProperties(whole + Bytes{0}), "");
}

TEST(HIDBusMessage, StringThatRunsOverTheEndBreaksTheRules) {
    const Bytes head = {1, 0, 0, 0, 0, 0, 0, 0, 1, 0, 1, 0, 1, 0, 1, 0};
    EXPECT_NE(brokenRuleOfProperties(head + Bytes{0, 0, 0, 5, 'a', 'b', 'c', 'd'}), "");
    EXPECT_NE(brokenRuleOfProperties(head + Bytes{255}), "");
}

TEST(HIDBusMessage, StringThatIsNotUTF8BreaksTheRules) {
    const Bytes head = {1, 0, 0, 0, 0, 0, 0, 0, 1, 0, 1, 0, 1, 0, 1, 0};
    for (const Bytes &text :
         {Bytes{1, 0xFF}, Bytes{2, 0xC0, 0x80}, Bytes{3, 0xED, 0xA0, 0x80}, Bytes{1, 0xC3}})
        EXPECT_NE(brokenRuleOfProperties(head + text + Bytes{0, 0, 0}), "");
}

TEST(HIDBusMessage, FirstMessageMustBeProperties) {
    EXPECT_NE(brokenRuleOfProperties(replyMessage(2)), "");
    EXPECT_NE(brokenRuleOfProperties(inputMessage({0x35, 1})), "");
}

TEST(HIDBusMessage, ShortHeaderBreaksTheRules) {
    for (size_t size = 0; size < 8; ++size)
        EXPECT_NE(brokenRule(Bytes(size, 0)), "") << size;
    EXPECT_EQ(brokenRule({2, 0, 0, 0, 0, 0, 0, 0}), "");
}

TEST(HIDBusMessage, UnknownOperationBreaksTheRules) {
    for (const int operation : {0, 7, 8, 128, 255})
        EXPECT_NE(brokenRule(replyMessage(static_cast<uint8_t>(operation))), "") << operation;
}

TEST(HIDBusMessage, UnknownReportTypeBreaksTheRules) {
    EXPECT_EQ(brokenRule({4, 2, 0, 0, 0, 0, 0, 0}), "");
    EXPECT_NE(brokenRule({4, 3, 0, 0, 0, 0, 0, 0}), "");
}

TEST(HIDBusMessage, ReservedByteMustBeZero) { EXPECT_NE(brokenRule({4, 1, 0, 1, 0, 0, 0, 0}), ""); }

TEST(HIDBusMessage, PayloadMayHave4096Bytes) {
    const Bytes header = {5, 1, 0x54, 0, 0, 0, 0, 0};
    EXPECT_EQ(brokenRule(header + Bytes(4096)), "");
    EXPECT_NE(brokenRule(header + Bytes(4097)), "");
    EXPECT_NE(brokenRule(header + Bytes(100000)), "");
}

TEST(HIDBusMessage, OnlyAGetReportReplyHasAPayload) {
    for (const int operation : {2, 3, 4})
        EXPECT_NE(brokenRule(replyMessage(static_cast<uint8_t>(operation)) + Bytes{1}), "") << operation;
    EXPECT_EQ(brokenRule(replyMessage(5) + Bytes{1}), "");
}

TEST(HIDBusMessage, InputHasAReportOfOneTo64Bytes) {
    EXPECT_NE(brokenRule(inputMessage({})), "");
    EXPECT_EQ(brokenRule(inputMessage(Bytes(1, 0x35))), "");
    EXPECT_EQ(brokenRule(inputMessage(Bytes(64, 0x35))), "");
    EXPECT_NE(brokenRule(inputMessage(Bytes(65, 0x35))), "");
}

TEST(HIDBusMessage, InputHasItsOwnTypeAndNoStatus) {
    EXPECT_NE(brokenRule({6, 1, 0x35, 0, 0, 0, 0, 0, 0x35}), "");
    EXPECT_NE(brokenRule({6, 0, 0x35, 0, 1, 0, 0, 0, 0x35}), "");
    EXPECT_NE(brokenRule(Bytes{1, 0, 0, 0, 1, 0, 0, 0} + Bytes(12)), "");
}

TEST(HIDBusMessage, EveryStatusOfThePageIsKnown) {
    for (const uint32_t status :
         {0U, 0xE00002BCU, 0xE00002C0U, 0xE00002C2U, 0xE00002CDU, 0xE00002D6U, 0xE00002E2U}) {
        const Bytes datagram = replyMessage(4, status);
        EXPECT_EQ(static_cast<uint32_t>(replyStatus(*parseBusMessage(datagram, datagram.size()))), status);
    }
}

TEST(HIDBusMessage, StatusThatThePageDoesNotHaveIsAnError) {
    for (const uint32_t status : {1U, 0xFFFFFFFFU, 0xE00002BDU}) {
        const Bytes datagram = replyMessage(4, status);
        EXPECT_EQ(replyStatus(*parseBusMessage(datagram, datagram.size())), HIDStatus::error);
    }
}

} // namespace
} // namespace moxel
