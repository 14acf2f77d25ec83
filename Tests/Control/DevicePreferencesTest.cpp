// The device preferences that the daemon sent last.
#include "Moxel Daemon/Motion/TraceParser.h"
#include "Support/CapturedLog.h"
#include "Support/ControlledClient.h"
#include "Support/LiveDaemon.h"

#include <gtest/gtest.h>

#include <cstring>
#include <numeric>
#include <thread>

namespace moxel {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint32_t deviceID = 0x4D580001;

MoxelDevicePrefs untouchedRecord() {
    MoxelDevicePrefs record;
    std::memset(&record, 0x5A, sizeof record);
    return record;
}

Bytes bytesOf(const MoxelDevicePrefs &record) {
    Bytes bytes(sizeof record);
    std::memcpy(bytes.data(), &record, sizeof record);
    return bytes;
}

/// A record of 152 bytes that count up, but for the device identifier.
Bytes numberedPreferences() {
    Bytes bytes(152);
    std::iota(bytes.begin(), bytes.end(), uint8_t{100});
    std::memcpy(&bytes[4], &deviceID, sizeof deviceID);
    return bytes;
}

class DevicePreferences : public test::ControlledClientTest {
  protected:
    void storePreferences(const Bytes &bytes) {
        client->setM_dataDevicePrefs(Data(std::span<const uint8_t>(bytes)));
    }
    MoxelDevicePrefs record = untouchedRecord();
};

TEST_F(DevicePreferences, AreNotThereBeforeTheDaemonHasSentAny) {
    EXPECT_EQ(MoxelGetCurrentDevicePrefs(deviceID, &record), -1);
    EXPECT_EQ(MoxelGetCurrentDevicePrefs(0, &record), -1);
    EXPECT_EQ(bytesOf(record), bytesOf(untouchedRecord()));
}

TEST_F(DevicePreferences, AreCopiedWhole) {
    storePreferences(numberedPreferences());
    EXPECT_EQ(MoxelGetCurrentDevicePrefs(deviceID, &record), 0);
    EXPECT_EQ(bytesOf(record), numberedPreferences());
    EXPECT_EQ(record.deviceID, deviceID);
}

TEST_F(DevicePreferences, OfAnotherDeviceAreNotWritten) {
    storePreferences(numberedPreferences());
    EXPECT_EQ(MoxelGetCurrentDevicePrefs(deviceID + 1, &record), -1);
    EXPECT_EQ(MoxelGetCurrentDevicePrefs(0, &record), -1);
    EXPECT_EQ(bytesOf(record), bytesOf(untouchedRecord()));
}

TEST_F(DevicePreferences, ThatAreTooShortEndInZeros) {
    const Bytes whole = numberedPreferences();
    storePreferences(Bytes(whole.begin(), whole.begin() + 10));
    EXPECT_EQ(MoxelGetCurrentDevicePrefs(deviceID, &record), 0);
    Bytes expected(whole.begin(), whole.begin() + 10);
    expected.resize(152);
    EXPECT_EQ(bytesOf(record), expected);
    storePreferences(Bytes(whole.begin(), whole.begin() + 6));
    EXPECT_EQ(MoxelGetCurrentDevicePrefs(deviceID, &record), -1) << "half an identifier";
    storePreferences({});
    EXPECT_EQ(MoxelGetCurrentDevicePrefs(0, &record), 0) << "empty data has device 0";
}

TEST_F(DevicePreferences, ThatAreTooLongAreCutAt152Bytes) {
    Bytes longer = numberedPreferences();
    longer.resize(1000, 0xEE);
    storePreferences(longer);
    EXPECT_EQ(MoxelGetCurrentDevicePrefs(deviceID, &record), 0);
    EXPECT_EQ(bytesOf(record), numberedPreferences());
}

TEST_F(DevicePreferences, NeedAPlaceForTheRecord) {
    test::CapturedLog log;
    storePreferences(numberedPreferences());
    EXPECT_EQ(MoxelGetCurrentDevicePrefs(deviceID, nullptr), -1);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(DevicePreferences, AreThoseOfTheCallingThreadsClient) {
    storePreferences(numberedPreferences());
    test::CapturedLog log;
    std::thread([this] { EXPECT_EQ(MoxelGetCurrentDevicePrefs(deviceID, &record), -1); }).join();
    EXPECT_EQ(bytesOf(record), bytesOf(untouchedRecord()));
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(DevicePreferences, AreLoggedWithTheirClient) {
    test::CapturedLog log;
    const std::vector<std::string> line{
        "*** int16_t MoxelGetCurrentDevicePrefs(uint32_t, MoxelDevicePrefs *), client=" + clientAddress()};
    EXPECT_EQ(MoxelGetCurrentDevicePrefs(deviceID, &record), -1);
    EXPECT_EQ(log.lines(), line);
    storePreferences(numberedPreferences());
    log.clear();
    EXPECT_EQ(MoxelGetCurrentDevicePrefs(deviceID, &record), 0);
    EXPECT_EQ(log.lines(), line);
}

TEST_F(DevicePreferences, AreReadUnderTheClassLock) {
    storePreferences(numberedPreferences());
    bool wasHeld = false;
    {
        const LogCapture capture([&wasHeld](LogLevel, std::string_view line) {
            if (line.starts_with("*** int16_t MoxelGetCurrentDevicePrefs"))
                wasHeld = classLockIsHeld();
        });
        EXPECT_EQ(MoxelGetCurrentDevicePrefs(deviceID, &record), 0);
    }
    EXPECT_TRUE(wasHeld);
    EXPECT_FALSE(classLockIsHeld()) << "and let go of it";
}

TEST_F(DevicePreferences, ButtonLabelsAreRefused) {
    test::CapturedLog log;
    EXPECT_EQ(MoxelSetButtonLabels(0, nullptr), -1);
    EXPECT_EQ(MoxelSetButtonLabels(deviceID, "labels"), -1);
    EXPECT_EQ(reportCount(), 0U);
    EXPECT_TRUE(log.lines().empty());
}

// ------------------------------------------------------------------------------------------ Live

using LiveDevicePreferences = test::LiveDaemonTest;

TEST_F(LiveDevicePreferences, AreThoseThatTheDaemonSentLast) {
    startDaemon();
    const uint16_t clientID = beginSession();
    MoxelDevicePrefs record = untouchedRecord();
    EXPECT_EQ(MoxelGetCurrentDevicePrefs(deviceID, &record), -1);
    Bytes preferences = numberedPreferences();
    ASSERT_TRUE(moxeld->sendDictionary(clientID, {{"req", "uprf"}, {"arg", 1}, {"prefs", preferences}}).ok());
    ASSERT_TRUE(test::HandlerRecorder::instance().dispatchUntil(1));
    EXPECT_EQ(MoxelGetCurrentDevicePrefs(deviceID, &record), 0);
    EXPECT_EQ(bytesOf(record), preferences);
    preferences[151] ^= 0xFF;
    ASSERT_TRUE(moxeld->sendDictionary(clientID, {{"req", "uprf"}, {"arg", 2}, {"prefs", preferences}}).ok());
    ASSERT_TRUE(test::HandlerRecorder::instance().dispatchUntil(2));
    EXPECT_EQ(MoxelGetCurrentDevicePrefs(deviceID, &record), 0);
    EXPECT_EQ(bytesOf(record), preferences);
}

TEST_F(LiveDevicePreferences, CanComeFromATrace) {
    startDaemon();
    (void)beginSession();
    Result<daemon::TraceBlock> trace = daemon::parseTrace("prefs arg=1 device=0x4D58C62B");
    ASSERT_TRUE(trace.ok());
    ASSERT_TRUE(moxeld->playTrace(*trace).ok());
    ASSERT_TRUE(test::HandlerRecorder::instance().dispatchUntil(1));
    MoxelDevicePrefs record = untouchedRecord();
    EXPECT_EQ(MoxelGetCurrentDevicePrefs(0x4D58C62B, &record), 0);
    MoxelDevicePrefs expected{};
    expected.deviceID = 0x4D58C62B;
    EXPECT_EQ(bytesOf(record), bytesOf(expected));
}

TEST_F(LiveDevicePreferences, WithoutARecordAreGone) {
    startDaemon();
    const uint16_t clientID = beginSession();
    ASSERT_TRUE(moxeld->sendDictionary(clientID, {{"req", "uprf"}, {"prefs", numberedPreferences()}}).ok());
    ASSERT_TRUE(moxeld->sendDictionary(clientID, {{"req", "uprf"}, {"arg", 1}}).ok());
    ASSERT_TRUE(test::HandlerRecorder::instance().dispatchUntil(2));
    MoxelDevicePrefs record = untouchedRecord();
    EXPECT_EQ(MoxelGetCurrentDevicePrefs(deviceID, &record), -1);
}

} // namespace
} // namespace moxel
