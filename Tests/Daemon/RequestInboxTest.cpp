// Requests in storage slot 1, and which of them are to be acknowledged.
#include "Moxel Daemon/Protocol/RequestInbox.h"
#include "Daemon/TestClient.h"

#include <gtest/gtest.h>

namespace moxel::daemon {
namespace {

using namespace std::chrono_literals;

class DaemonRequestInbox : public ::testing::Test {
  protected:
    /// Places and announces a block; whether it is to be acknowledged.
    std::optional<ReceivedRequest> take(const Bytes &block) {
        inbox.store(block);
        return inbox.take({static_cast<uint16_t>(block.size()), 0}, now);
    }
    bool isAcknowledged(const Bytes &block) {
        const auto request = take(block);
        EXPECT_TRUE(request);
        return request && request->acknowledged;
    }
    bool isAcknowledged(const Dictionary &request) { return isAcknowledged(*writeKeyedArchive(request)); }

    RequestInbox inbox{FullBlock::isSlice, 1000ms};
    RequestInbox::Clock::time_point now{};
};

const Bytes full(2042, 'x');
const Dictionary masks{
    {"req", "setclientmasks"}, {"bsetmask", 1}, {"clientmask", 5}, {"bsetbuttonmask", 0}, {"buttonmask", 6}};

TEST_F(DaemonRequestInbox, OnlyRepeatedRegistrationsAreAcknowledged) {
    EXPECT_FALSE(isAcknowledged(registrationRequestOf(1, 2, false)));
    EXPECT_TRUE(isAcknowledged(registrationRequestOf(1, 2, true)));
}

TEST_F(DaemonRequestInbox, EveryOtherRequestIsAcknowledged) {
    EXPECT_TRUE(isAcknowledged(masks));
    EXPECT_TRUE(isAcknowledged(Dictionary{{"req", "moxclientctrl"}, {"message", 1}, {"ctrlparm", 5}}));
    for (const char *name : {"moxclientwrite", "moxclientactset"})
        EXPECT_TRUE(isAcknowledged(Dictionary{{"req", name}, {"ctrlcmd", "c"}, {"ctrlparm", "p"}})) << name;
}

TEST_F(DaemonRequestInbox, LoneRawBlocksAreNotAcknowledged) {
    for (const Bytes &block : {Bytes{1}, Bytes(2041, 'x'), bytesOf("bplist00 but not really"),
                               *writeKeyedArchive(Dictionary{{"req", "unheard of"}}),
                               *writeKeyedArchive(Dictionary{{"data", 1}}), *writeKeyedArchive(Array{1})}) {
        EXPECT_FALSE(isAcknowledged(block));
        EXPECT_TRUE(take(block)->name.empty());
        EXPECT_EQ(take(block)->bytes, block);
    }
}

TEST_F(DaemonRequestInbox, SlicesAreAcknowledgedToTheLast) {
    for (int slice = 0; slice < 3; ++slice) {
        const auto request = take(full);
        EXPECT_TRUE(request->acknowledged);
        EXPECT_EQ(request->continues, slice > 0);
        EXPECT_TRUE(request->mayGoOn);
        now += 900ms;
    }
    const auto last = take({1});
    EXPECT_TRUE(last->acknowledged);
    EXPECT_TRUE(last->continues);
    EXPECT_FALSE(last->mayGoOn);
    EXPECT_FALSE(isAcknowledged(Bytes{1}));
}

TEST_F(DaemonRequestInbox, ShortBlockThatComesLateIsAMessageOfItsOwn) {
    EXPECT_TRUE(isAcknowledged(full));
    now += 1001ms;
    const auto request = take({1});
    EXPECT_FALSE(request->acknowledged);
    EXPECT_FALSE(request->continues);
}

TEST_F(DaemonRequestInbox, RequestBetweenEndsTheMessage) {
    EXPECT_TRUE(isAcknowledged(full));
    EXPECT_TRUE(isAcknowledged(masks));
    EXPECT_FALSE(isAcknowledged(Bytes{1}));
}

TEST_F(DaemonRequestInbox, FullBlocksCanBeTakenForWholeMessages) {
    inbox = RequestInbox(FullBlock::isMessage, 1000ms);
    EXPECT_FALSE(isAcknowledged(full));
    EXPECT_FALSE(isAcknowledged(Bytes{1}));
}

TEST_F(DaemonRequestInbox, BlocksThatNoSenderMakesAreNotAcknowledged) {
    EXPECT_FALSE(isAcknowledged(Bytes(2048, 'x')));
    EXPECT_FALSE(isAcknowledged(Bytes{1}));
}

TEST_F(DaemonRequestInbox, SlotIsEmptyAfterItsRequest) {
    EXPECT_FALSE(inbox.take({1, 0}, now));
    ASSERT_TRUE(take({1, 2, 3}));
    EXPECT_FALSE(inbox.take({3, 0}, now));
}

TEST_F(DaemonRequestInbox, AnnouncedLengthMustBeInTheSlot) {
    inbox.store(Bytes{1, 2, 3});
    EXPECT_FALSE(inbox.take({0, 0}, now));
    EXPECT_FALSE(inbox.take({4, 0}, now));
    const auto request = inbox.take({2, 17}, now);
    ASSERT_TRUE(request);
    EXPECT_EQ(request->bytes, (Bytes{1, 2}));
    EXPECT_EQ(request->command, 17);
}

TEST_F(DaemonRequestInbox, MalformedRequestsSayWhatIsWrong) {
    for (const Dictionary &request :
         {Dictionary{{"req", "regclient"}, {"type", false}},
          Dictionary{{"req", "regclient"}, {"app", "no record"}, {"type", false}},
          Dictionary{{"req", "regclient"}, {"app", Record{"MxlHIDDevice", {}}}, {"type", false}},
          Dictionary{{"req", "regclient"}, {"app", Record{"MxlApplication", {}}}},
          Dictionary{{"req", "setclientmasks"}, {"bsetmask", 1}},
          Dictionary{{"req", "moxclientctrl"}, {"message", "text"}, {"ctrlparm", 1}},
          Dictionary{{"req", "moxclientctrl"}, {"message", 1}, {"ctrlparm", -1}},
          Dictionary{{"req", "moxclientctrl"}, {"message", 1}},
          Dictionary{{"req", "moxclientwrite"}, {"ctrlcmd", "c"}}}) {
        const auto taken = take(*writeKeyedArchive(request));
        ASSERT_TRUE(taken);
        EXPECT_FALSE(taken->problem.empty());
    }
    EXPECT_TRUE(take(*writeKeyedArchive(masks))->problem.empty());
}

TEST_F(DaemonRequestInbox, MasksAreSetOnlyWhenTheirFlagIs) {
    const auto request = maskRequest(masks);
    ASSERT_TRUE(request);
    EXPECT_EQ(request->eventMask, 5U);
    EXPECT_EQ(request->buttonMask, std::nullopt);
}

TEST_F(DaemonRequestInbox, ControlRequestsHaveACodeAndASignedParameter) {
    const auto request =
        controlRequest({{"req", "moxclientctrl"}, {"message", 0xF6766964}, {"ctrlparm", 0xFFFFFFFD}});
    EXPECT_EQ(request, (ControlRequest{0xF6766964, -3}));
    EXPECT_EQ(controlRequest(masks), std::nullopt);
}

TEST_F(DaemonRequestInbox, ApplicationRecordIsReadMemberByMember) {
    const Dictionary sent = registrationRequestOf(0xFEDCBA9876543210, 0x1234);
    const auto request = registrationRequest(sent);
    ASSERT_TRUE(request);
    const ApplicationRecord &application = request->application;
    EXPECT_EQ(application.clientID, 0);
    EXPECT_EQ(application.name, "Demo");
    EXPECT_EQ(application.applicationFileName, "demo");
    EXPECT_EQ(application.clientName, "Demo");
    EXPECT_EQ(application.bundleID, "com.example.demo");
    EXPECT_EQ(application.executablePath, "/usr/bin/demo");
    EXPECT_EQ(application.commandsFile, std::nullopt);
    EXPECT_EQ(application.signature, 0x44656D6FU);
    EXPECT_EQ(application.processID, ::getpid());
    EXPECT_EQ(application.mode, 3);
    EXPECT_EQ(application.mask, 0x1234U);
    EXPECT_EQ(application.buttonMask, 0x34U);
    EXPECT_EQ(application.switches, 0x80000000U);
    EXPECT_EQ(application.channelID, 0xFEDCBA9876543210U);
    const auto odd = applicationRecord(
        Record{"MxlApplication", {{"mode", 65536}, {"mask", -1}, {"appname", 5}, {"bundleid", Value()}}});
    EXPECT_EQ(odd, ApplicationRecord{});
}

} // namespace
} // namespace moxel::daemon
