// Requests through storage slot 1, their acknowledgement, and the acknowledgements that the client sends.
#include "Helpers/Condition.h"
#include "Session/ChannelCallbacks.h"
#include "Support/CapturedLog.h"
#include "Support/ClientTestAccess.h"
#include "Support/FakeHIDDevice.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

namespace moxel {
namespace {

using Access = MoxelClientTestAccess;
using test::FakeHIDDevice;
using Bytes = std::vector<uint8_t>;
using Clock = std::chrono::steady_clock;

const std::string selector =
    "-[MoxelClientAPI sendUserRequestData:onChannel:requestID:andCommand:requireACK:]";
const std::string lastLine = "<<<< =====================================================\n";

class Requests : public testing::Test {
  protected:
    void SetUp() override {
        client = Access::make([](uint32_t, uint32_t, void *) {}, nullptr, nullptr, false);
        client->setChannelID(0x1122334455667788);
        client->setM_refHIDChannelBase(base);
        client->setM_refHIDChannelDedicated(dedicated);
    }
    bool send(const Data &data, const std::shared_ptr<FakeHIDDevice> &channel, bool requireACK) {
        return client->sendUserRequestData(data, channel, 49, 0, requireACK);
    }
    /// Sets the acknowledgement as the client thread does when one arrives.
    void acknowledge() {
        const std::shared_ptr<Condition> condition = client->m_conditionSignal();
        const std::lock_guard lock(*condition);
        client->setM_bPacketACK(true);
        condition->signal();
    }

    std::shared_ptr<FakeHIDDevice> base = FakeHIDDevice::channel("base");
    std::shared_ptr<FakeHIDDevice> dedicated = FakeHIDDevice::channel("dedicated");
    Access::Client client;
    const Data request{Bytes{'r', 'e', 'q'}};
};

TEST_F(Requests, GoIntoSlot1AndAreAnnouncedByAControlPacket) {
    EXPECT_TRUE(send(request, dedicated, false));
    ASSERT_EQ(dedicated->reports.size(), 2U);
    EXPECT_EQ(dedicated->reports[0].reportID, 0x63);
    EXPECT_EQ(dedicated->reports[0].bytes,
              (Bytes{0x88, 0x77, 0x66, 0x55, 0x44, 0x33, 0x22, 0x11, 'r', 'e', 'q'}));
    EXPECT_EQ(dedicated->reports[1].reportID, 0x46);
    Bytes announcement{0x88, 0x77, 0x66, 0x55, 0x44, 0x33, 0x22, 0x11, 6, 0, 49, 0, 3, 0, 0, 0};
    announcement.resize(8 + 38);
    EXPECT_EQ(dedicated->reports[1].bytes, announcement);
}

TEST_F(Requests, AnnouncementCarriesRequestIdentifierLengthAndCommand) {
    const Data longRequest{Bytes(0x0789, 1)};
    EXPECT_TRUE(client->sendUserRequestData(longRequest, dedicated, 0x1234, 0x5678, false));
    const Bytes &announcement = dedicated->reports.at(1).bytes;
    EXPECT_EQ(Bytes(announcement.begin() + 8, announcement.begin() + 16),
              (Bytes{6, 0, 0x34, 0x12, 0x89, 0x07, 0x78, 0x56}));
}

TEST_F(Requests, OnTheBaseChannelCarryTag0) {
    EXPECT_TRUE(send(request, base, false));
    EXPECT_EQ(base->reports.at(0).bytes, (Bytes{0, 0, 0, 0, 0, 0, 0, 0, 'r', 'e', 'q'}));
}

TEST_F(Requests, OnAForeignChannelCarryTheTag0xDEADBEEF) {
    const auto foreign = FakeHIDDevice::channel("foreign");
    EXPECT_TRUE(send(request, foreign, false));
    EXPECT_EQ(foreign->reports.at(0).bytes, (Bytes{0xEF, 0xBE, 0xAD, 0xDE, 0, 0, 0, 0, 'r', 'e', 'q'}));
    EXPECT_EQ(foreign->reports.at(1).bytes[0], 0xEF);
}

TEST_F(Requests, Of2048BytesAreSentAndOf2049BytesRefusedBeforeAnythingIsWritten) {
    test::CapturedLog log;
    EXPECT_TRUE(send(Data(Bytes(2048, 1)), dedicated, false));
    EXPECT_EQ(dedicated->reports.size(), 2U);
    log.clear();
    EXPECT_FALSE(send(Data(Bytes(2049, 1)), dedicated, false));
    EXPECT_EQ(dedicated->reports.size(), 2U);
    EXPECT_EQ(
        log.lines(),
        (std::vector<std::string>{
            selector + ", SetStorageDataSlot1(reID=49, reqCmd=0) data size 2049 exceeds 2048!", lastLine}));
}

TEST_F(Requests, WithoutDataOrChannelFail) {
    test::CapturedLog log;
    EXPECT_FALSE(send(nullptr, dedicated, false));
    EXPECT_FALSE(client->sendUserRequestData(request, nullptr, 49, 0, true));
    EXPECT_EQ(log.lines(), (std::vector<std::string>{lastLine, lastLine}));
}

TEST_F(Requests, AreLoggedStepByStep) {
    test::CapturedLog log;
    EXPECT_TRUE(send(request, dedicated, false));
    EXPECT_EQ(log.lines(), (std::vector<std::string>{
                               selector + ", **** New data placed in Storage. Len=3 3\n", lastLine}));
}

TEST_F(Requests, ThatTheSlotRefusesAreNotAnnounced) {
    test::CapturedLog log;
    dedicated->setReportStatus = HIDStatus::error;
    EXPECT_FALSE(send(request, dedicated, true));
    EXPECT_EQ(dedicated->reports.size(), 1U);
    EXPECT_EQ(
        log.lines(),
        (std::vector<std::string>{
            selector + ", SetStorageDataSlot1(reID=49, reqCmd=0) executed returning an error!", lastLine}));
}

TEST_F(Requests, WhoseAnnouncementFailsDoNotWait) {
    dedicated->onSetReport = [this](const test::SentReport &report) {
        dedicated->setReportStatus = report.reportID == 0x46 ? HIDStatus::error : HIDStatus::success;
    };
    const auto start = Clock::now();
    EXPECT_FALSE(send(request, dedicated, true));
    EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(1900));
}

TEST_F(Requests, WithoutAcknowledgementReturnAsSoonAsTheyAreAnnounced) {
    const auto start = Clock::now();
    EXPECT_TRUE(send(request, dedicated, false));
    EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(1900));
}

TEST_F(Requests, WaitForTheAcknowledgementAndConsumeIt) {
    std::thread daemon;
    dedicated->onSetReport = [&](const test::SentReport &report) {
        if (report.reportID == 0x46)
            daemon = std::thread([this] { acknowledge(); });
    };
    EXPECT_TRUE(send(request, dedicated, true));
    EXPECT_FALSE(client->m_bPacketACK());
    daemon.join();
}

TEST_F(Requests, WithoutAcknowledgementIn2SecondsFailThoughTheDataReachedTheSlot) {
    test::CapturedLog log;
    const auto start = Clock::now();
    EXPECT_FALSE(send(request, dedicated, true));
    const auto took = Clock::now() - start;
    EXPECT_GE(took, std::chrono::milliseconds(2000));
    EXPECT_LT(took, std::chrono::milliseconds(4000));
    EXPECT_EQ(dedicated->reports.size(), 2U);
    EXPECT_FALSE(client->m_bPacketACK());
    EXPECT_TRUE(log.has(selector + ", Error: Timeout - Failed to receive ACK packet in time...!"));
    EXPECT_EQ(log.lines().back(), lastLine);
}

TEST_F(Requests, TakeALateAcknowledgementOfTheOneBefore) {
    client->setM_bPacketACK(true);
    EXPECT_TRUE(send(request, dedicated, true));
    EXPECT_FALSE(client->m_bPacketACK());
}

TEST_F(Requests, OtherSignalsDoNotEndTheWait) {
    std::thread daemon;
    dedicated->onSetReport = [&](const test::SentReport &report) {
        if (report.reportID == 0x46)
            daemon = std::thread([this] {
                const std::shared_ptr<Condition> condition = client->m_conditionSignal();
                {
                    const std::lock_guard lock(*condition);
                    condition->signal();
                }
                acknowledge();
            });
    };
    EXPECT_TRUE(send(request, dedicated, true));
    daemon.join();
}

TEST_F(Requests, RemovalOfTheirChannelWakesTheWaitAndDoesNotEndIt) {
    std::thread daemon;
    dedicated->onSetReport = [&](const test::SentReport &report) {
        if (report.reportID == 0x46)
            daemon = std::thread([this] { client->channelDisconnected(dedicated, nullptr); });
    };
    const auto start = Clock::now();
    EXPECT_FALSE(send(request, dedicated, true));
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(2000));
    EXPECT_FALSE(client->m_refHIDChannelDedicated());
    daemon.join();
}

TEST_F(Requests, AcknowledgementOfThePacketsIs18BytesOnTheDedicatedChannel) {
    client->setM_bClientRegistered(true);
    EXPECT_TRUE(client->sendPacketACKToDaemon());
    ASSERT_EQ(dedicated->reports.size(), 1U);
    EXPECT_EQ(dedicated->reports[0].reportID, 0x46);
    EXPECT_EQ(dedicated->reports[0].bytes,
              (Bytes{0x88, 0x77, 0x66, 0x55, 0x44, 0x33, 0x22, 0x11, 7, 0, 0x12, 0, 1,
                     0,    0x32, 0,    0,    0,    0,    0,    0,    0, 0, 0,    0, 0}));
}

TEST_F(Requests, AcknowledgementNeedsARegistrationAndADedicatedChannel) {
    EXPECT_FALSE(client->sendPacketACKToDaemon());
    client->setM_bClientRegistered(true);
    client->setM_refHIDChannelDedicated(nullptr);
    EXPECT_FALSE(client->sendPacketACKToDaemon());
    EXPECT_TRUE(dedicated->reports.empty());
    client->setM_refHIDChannelDedicated(dedicated);
    dedicated->setReportStatus = HIDStatus::error;
    EXPECT_FALSE(client->sendPacketACKToDaemon());
}

} // namespace
} // namespace moxel
