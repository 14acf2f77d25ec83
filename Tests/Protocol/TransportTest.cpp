// Framing of output reports and reading of the storage slot, byte by byte.
#include "Support/CapturedLog.h"
#include "Support/FakeHIDDevice.h"
#include <Moxel/MoxelClient.h>

#include <gtest/gtest.h>

#include <cstring>
#include <numeric>
#include <thread>
#include <vector>

namespace moxel {
namespace {

using test::FakeHIDDevice;

using Bytes = std::vector<uint8_t>;

class Transport : public testing::Test {
  protected:
    const test::SentReport &only() {
        EXPECT_EQ(device->reports.size(), 1U);
        return device->reports.front();
    }
    std::shared_ptr<FakeHIDDevice> device = FakeHIDDevice::channel("MxlVirtualHIDData_ID1");
};

TEST_F(Transport, ReportIsTheTagInLittleEndianAndThePayload) {
    const uint8_t payload[] = {0xAA, 0xBB, 0xCC};
    EXPECT_TRUE(SetReport(device.get(), 0x0102030405060708, 0x46, payload, sizeof payload));
    EXPECT_EQ(only().type, HIDReportType::output);
    EXPECT_EQ(only().reportID, 0x46);
    EXPECT_EQ(only().bytes, (Bytes{8, 7, 6, 5, 4, 3, 2, 1, 0xAA, 0xBB, 0xCC}));
}

TEST_F(Transport, ReportOnTheBaseChannelCarriesTag0) {
    const uint8_t payload[] = {0xFF};
    EXPECT_TRUE(SetReport(device.get(), 0, 0x46, payload, sizeof payload));
    EXPECT_EQ(only().bytes, (Bytes{0, 0, 0, 0, 0, 0, 0, 0, 0xFF}));
}

TEST_F(Transport, PayloadOf3063BytesIsSentAs3071Bytes) {
    Bytes payload(3063);
    std::iota(payload.begin(), payload.end(), uint8_t{1});
    EXPECT_TRUE(SetReport(device.get(), 5, 0x63, payload.data(), 3063));
    ASSERT_EQ(only().bytes.size(), 3071U);
    EXPECT_TRUE(std::equal(payload.begin(), payload.end(), only().bytes.begin() + 8));
}

TEST_F(Transport, PayloadOf3064BytesOrOf0BytesIsRefused) {
    const Bytes payload(65535);
    for (const uint16_t length : std::vector<uint16_t>{0, 3064, 3065, 65535})
        EXPECT_FALSE(SetReport(device.get(), 5, 0x63, payload.data(), length));
    EXPECT_TRUE(device->reports.empty());
}

TEST_F(Transport, NullArgumentsAreRefused) {
    const uint8_t byte = 0;
    EXPECT_FALSE(SetReport(nullptr, 0, 0x46, &byte, 1));
    EXPECT_FALSE(SetReport(device.get(), 0, 0x46, nullptr, 1));
    EXPECT_FALSE(VDataChannel_SetAppInfoRecord(device.get(), 0, nullptr));
    EXPECT_TRUE(device->reports.empty());
}

TEST_F(Transport, ReportThatTheDeviceRefusesFails) {
    device->setReportStatus = HIDStatus::timedOut;
    const uint8_t byte = 0;
    EXPECT_FALSE(SetReport(device.get(), 0, 0x46, &byte, 1));
}

TEST_F(Transport, NamedSendersUseTheirReports) {
    const uint8_t byte = 7;
    MoxelAppInfoRecord record{};
    record.exitState = 0xDEAD;
    std::memcpy(record.name, "Viewer", 6);
    EXPECT_TRUE(SetStorageDataSlot0(device.get(), 1, &byte, 1));
    EXPECT_TRUE(SetStorageDataSlot1(device.get(), 1, &byte, 1));
    EXPECT_TRUE(VDataChannel_SendReportID0_SetReport(device.get(), 1, &byte, 1));
    EXPECT_TRUE(VDataChannel_SendReportID1_SetReport(device.get(), 1, &byte, 1));
    EXPECT_TRUE(VDataChannel_SetAppInfoRecord(device.get(), 1, &record));
    Bytes identifiers;
    for (const test::SentReport &report : device->reports)
        identifiers.push_back(report.reportID);
    EXPECT_EQ(identifiers, (Bytes{0x53, 0x63, 0x44, 0x46, 0x73}));
    Bytes expected{1, 0, 0, 0, 0, 0, 0, 0, 0xAD, 0xDE, 0, 0, 0, 0, 0, 0, 'V', 'i', 'e', 'w', 'e', 'r'};
    expected.resize(8 + 32);
    EXPECT_EQ(device->reports.back().bytes, expected);
}

TEST_F(Transport, SendsOfSeveralThreadsDoNotMixTheirFraming) {
    std::vector<std::thread> threads;
    for (uint8_t t = 1; t <= 4; ++t)
        threads.emplace_back([this, t] {
            const Bytes payload(3063, t);
            for (int i = 0; i < 200; ++i)
                EXPECT_TRUE(SetReport(device.get(), t, 0x63, payload.data(), 3063));
        });
    for (std::thread &thread : threads)
        thread.join();
    ASSERT_EQ(device->reports.size(), 800U);
    for (const test::SentReport &report : device->reports) {
        Bytes expected(3071, report.bytes[0]);
        std::fill_n(expected.begin() + 1, 7, uint8_t{0});
        EXPECT_EQ(report.bytes, expected);
    }
}

TEST_F(Transport, GetReportReadsAnOutputReportAndLeavesTheLengthAlone) {
    test::CapturedLog log;
    device->slot = {1, 2, 3};
    Bytes buffer(5, 9);
    uint16_t length = 5;
    EXPECT_TRUE(GetReport(device.get(), 0x54, buffer.data(), &length));
    EXPECT_EQ(buffer, (Bytes{1, 2, 3, 9, 9}));
    EXPECT_EQ(length, 5);
    EXPECT_EQ(device->lastGetType, HIDReportType::output);
    EXPECT_EQ(device->lastGetID, 0x54);
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{"bool GetReport(IOHIDDeviceRef, uint8_t, void *, uint16_t *), "
                                        "IOHIDDeviceGetReport(reportID=54) returns with Success(0)"}));
}

TEST_F(Transport, GetReportThatFailsIsLoggedWithItsCode) {
    test::CapturedLog log;
    device->getReportStatus = HIDStatus::timedOut;
    Bytes buffer(5);
    uint16_t length = 5;
    EXPECT_FALSE(GetReport(device.get(), 0x54, buffer.data(), &length));
    EXPECT_TRUE(log.has("bool GetReport(IOHIDDeviceRef, uint8_t, void *, uint16_t *), "
                        "IOHIDDeviceGetReport(reportID=54) returns with Error(-536870186)"));
}

TEST_F(Transport, GetReportWithCapacity0OrNullTouchesNothingAndLogsNothing) {
    test::CapturedLog log;
    Bytes buffer(5);
    uint16_t none = 0;
    uint16_t length = 5;
    EXPECT_FALSE(GetReport(device.get(), 0x54, buffer.data(), &none));
    EXPECT_FALSE(GetReport(nullptr, 0x54, buffer.data(), &length));
    EXPECT_FALSE(GetReport(device.get(), 0x54, nullptr, &length));
    EXPECT_FALSE(GetReport(device.get(), 0x54, buffer.data(), nullptr));
    EXPECT_EQ(device->gets, 0);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(Transport, GetStorageDataSlot0ReadsReport0x54) {
    device->slot = {4};
    uint8_t byte = 0;
    uint16_t length = 1;
    EXPECT_TRUE(GetStorageDataSlot0(device.get(), &byte, &length));
    EXPECT_EQ(byte, 4);
    EXPECT_EQ(device->lastGetID, 0x54);
}

TEST(StorageStatus, HasItsValues) {
    EXPECT_EQ(DEXT_Storage_DataID_SetReportStatus, 3);
    EXPECT_EQ(DEXT_Storage_DataID_GetReportStatus, 4);
    EXPECT_EQ(DEXT_Storage_DataID_ReleaseChannelSlotDataStatus, 5);
    EXPECT_EQ(DEXT_Storage_Status_OK, 0);
    EXPECT_EQ(DEXT_Storage_Status_MemoryAllocated, 1);
    EXPECT_EQ(DEXT_Storage_Status_MemoryAllocationError, 2);
    EXPECT_EQ(DEXT_Storage_Status_NoData, 3);
    EXPECT_EQ(DEXT_Storage_Status_SmallBuffer, 4);
}

} // namespace
} // namespace moxel
