// Faults as they are written on the command line.
#include "Moxel Daemon/Protocol/Faults.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace moxel::daemon {
namespace {

using namespace std::chrono_literals;
using ::testing::HasSubstr;
using ::testing::Pair;
using ::testing::UnorderedElementsAre;

Faults faultsOf(std::initializer_list<const char *> texts) {
    Faults faults;
    for (const char *text : texts) {
        const Result<void> added = addFault(faults, text);
        EXPECT_TRUE(added.ok()) << (added.ok() ? "" : added.error().message);
    }
    return faults;
}

TEST(DaemonFaults, EveryFaultSetsItsMember) {
    EXPECT_TRUE(faultsOf({"no-base-channel"}).noBaseChannel);
    EXPECT_TRUE(faultsOf({"refuse-base-open"}).refuseBaseOpen);
    EXPECT_TRUE(faultsOf({"no-dedicated-channel"}).noDedicatedChannel);
    EXPECT_TRUE(faultsOf({"refuse-dedicated-open"}).refuseDedicatedOpen);
    EXPECT_EQ(faultsOf({"late-dedicated-channel=250"}).dedicatedChannelDelay, 250ms);
    EXPECT_TRUE(faultsOf({"drop-channel-after-registration"}).dropChannelAfterRegistration);
    EXPECT_TRUE(faultsOf({"unresponsive"}).unresponsive);
    EXPECT_TRUE(faultsOf({"no-registration-answer"}).noRegistrationAnswer);
    EXPECT_EQ(faultsOf({"late-registration-answer=1"}).registrationAnswerDelay, 1ms);
    EXPECT_TRUE(faultsOf({"no-acknowledgement"}).noAcknowledgement);
    EXPECT_EQ(faultsOf({"late-acknowledgement=2500"}).acknowledgementDelay, 2500ms);
    EXPECT_TRUE(faultsOf({"duplicate-acknowledgement"}).duplicateAcknowledgement);
    EXPECT_EQ(faultsOf({"announced-size=2049"}).announcedSize, 2049);
    EXPECT_EQ(faultsOf({"payload-length=0xFFFF"}).payloadLength, 0xFFFF);
    EXPECT_EQ(faultsOf({"data-id=3"}).dataID, 3);
    EXPECT_TRUE(faultsOf({"no-last-packet"}).noLastPacket);
    EXPECT_TRUE(faultsOf({"malformed-archive"}).malformedArchive);
    EXPECT_THAT(faultsOf({"refuse-get-report=84"}).refusedGetReports,
                UnorderedElementsAre(Pair(84, HIDStatus::error)));
    EXPECT_THAT(faultsOf({"refuse-set-report=0x46", "refuse-set-report=0x63:0xE00002D6"}).refusedSetReports,
                UnorderedElementsAre(Pair(0x46, HIDStatus::error), Pair(0x63, HIDStatus::timedOut)));
}

TEST(DaemonFaults, BadOnesChangeNothingAndSayHowTheyAreWritten) {
    for (const char *text :
         {"late-acknowledgement", "late-acknowledgement=", "late-acknowledgement=soon",
          "late-acknowledgement=-1", "unresponsive=1", "data-id=65536", "announced-size=1x",
          "refuse-set-report", "refuse-set-report=256", "refuse-set-report=1:", "refuse-set-report=1:x"}) {
        Faults faults;
        const Result<void> added = addFault(faults, text);
        ASSERT_FALSE(added.ok()) << text;
        EXPECT_THAT(added.error().message, HasSubstr("should be written"));
        EXPECT_EQ(faults, Faults());
    }
}

TEST(DaemonFaults, UnknownOnesAreAnsweredWithTheList) {
    Faults faults;
    for (const char *text : {"", "=", "no-such-fault", "Unresponsive"}) {
        const Result<void> added = addFault(faults, text);
        ASSERT_FALSE(added.ok()) << text;
        EXPECT_THAT(added.error().message, HasSubstr("late-acknowledgement=MS"));
    }
}

} // namespace
} // namespace moxel::daemon
