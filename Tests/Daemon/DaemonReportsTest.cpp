// The daemon's input reports, byte by byte.
#include "Moxel Daemon/Protocol/DaemonReports.h"

#include <gtest/gtest.h>

namespace moxel::daemon {
namespace {

TEST(DaemonReports, StateRecordStandsAtOffsetSeven) {
    MoxelStateRecord record{};
    record.version = 0x0102;
    record.client = 0x0304;
    record.command = 0x0506;
    record.param = -2;
    record.value = -3;
    record.time = 0x1112131415161718;
    for (uint8_t index = 0; index < 8; ++index)
        record.report[index] = static_cast<uint8_t>(0x20 + index);
    record.buttons8 = 0x3132;
    for (int16_t index = 0; index < 6; ++index)
        record.axis[index] = static_cast<int16_t>(0x4100 + index);
    record.axis[5] = -350;
    record.address = 0x5152;
    record.buttons = 0x61626364;
    const Data expected = {
        0x35, 3,    0,    0,    0,    0,    0,          // header
        0x02, 0x01, 0x04, 0x03, 0x06, 0x05, 0xFE, 0xFF, // version, client, command, parameter
        0xFD, 0xFF, 0xFF, 0xFF,                         // value
        0x18, 0x17, 0x16, 0x15, 0x14, 0x13, 0x12, 0x11, // time
        0x20, 0x21, 0x22, 0x23, 0x24, 0x25, 0x26, 0x27, // report
        0x32, 0x31,                                     // buttons
        0x00, 0x41, 0x01, 0x41, 0x02, 0x41, 0x03, 0x41, 0x04, 0x41, 0xA2, 0xFE, // axes
        0x52, 0x51,                                                             // address
        0x64, 0x63, 0x62, 0x61,                                                 // buttons
    };
    EXPECT_EQ(stateReport(record), expected);
    EXPECT_EQ(expected.size(), 55U);
}

TEST(DaemonReports, AcknowledgementTellsItsCode) {
    EXPECT_EQ(acknowledgementReport(), (Data{0x35, 5, 0, 0, 0, 0, 0, 0x34}));
}

TEST(DaemonReports, RegistrationAnswerCarriesBothIdentifiers) {
    EXPECT_EQ(
        registrationAnswerReport(0x0102, 0x1112131415161718),
        (Data{0x35, 5, 0, 0, 0, 0, 0, 0x12, 0, 0x02, 0x01, 0x18, 0x17, 0x16, 0x15, 0x14, 0x13, 0x12, 0x11}));
}

TEST(DaemonReports, AnnouncementCarriesSizeAndFlag) {
    EXPECT_EQ(dataWaitingReport(2048, true), (Data{0x35, 4, 0, 17, 0, 0x00, 0x08, 1}));
    EXPECT_EQ(dataWaitingReport(7, false), (Data{0x35, 4, 0, 17, 0, 7, 0, 0}));
}

TEST(DaemonReports, QuestionsCarryNothing) {
    EXPECT_EQ(storedDataQueryReport(), (Data{0x35, 4, 0, 0xAF, 0xDE, 0, 0, 0}));
    EXPECT_EQ(registerAgainReport(), (Data{0x35, 4, 0, 0xEF, 0xBE, 0, 0, 0}));
}

} // namespace
} // namespace moxel::daemon
