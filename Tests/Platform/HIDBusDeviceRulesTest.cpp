// Publishers on the user-space HID bus that break the rules, or are slow.
#include "Platform/UserSpaceDevice.h"

#include <gtest/gtest.h>

#include <chrono>
#include <vector>

namespace moxel {
namespace {

using test::Bytes;
using test::HIDClient;
using test::propertiesMessage;
using test::PublisherConnection;
using test::PublisherSocket;
using test::replyMessage;
using test::UserSpaceDevice;
using test::operator+; // NOLINT(misc-unused-using-decls): used as +

class UserSpaceDeviceReply : public UserSpaceDevice, public ::testing::WithParamInterface<Bytes> {};

TEST_P(UserSpaceDeviceReply, ThatBreaksTheRulesIsAnErrorAndDropsItsConnection) {
    openDevice();
    makeRequestConnection();
    auto got = get(16);
    (void)requests_.receive();
    requests_.send(GetParam());
    EXPECT_EQ(got.get().status, HIDStatus::error);
    EXPECT_TRUE(requests_.awaitHangUp());
    EXPECT_EQ(errors().size(), 1U);
    makeRequestConnection();
}

INSTANTIATE_TEST_SUITE_P(Kinds, UserSpaceDeviceReply,
                         ::testing::Values(Bytes{5}, Bytes{5, 0, 0, 0, 0, 0, 0}, // short header
                                           replyMessage(0), replyMessage(7),     // unknown operation
                                           replyMessage(2), replyMessage(4),     // of another request
                                           test::inputMessage({1, 2}),           // not open
                                           propertiesMessage("device"),          // only once
                                           replyMessage(5) + Bytes(17),          // over the capacity
                                           replyMessage(5) + Bytes(4097),        // over the limit
                                           replyMessage(5) + Bytes(65536),       //
                                           Bytes{5, 3, 0, 0, 0, 0, 0, 0},        // unknown type
                                           Bytes{5, 0, 0, 1, 0, 0, 0, 0}));      // reserved byte

class UserSpaceDeviceOpenReply : public UserSpaceDevice, public ::testing::WithParamInterface<Bytes> {};

TEST_P(UserSpaceDeviceOpenReply, ThatBreaksTheRulesIsAnErrorAndDropsItsConnection) {
    auto opened = open();
    input_ = accept();
    (void)input_.receive();
    input_.send(GetParam());
    EXPECT_EQ(opened.get(), HIDStatus::error);
    EXPECT_TRUE(input_.awaitHangUp());
    openDevice();
}

INSTANTIATE_TEST_SUITE_P(Kinds, UserSpaceDeviceOpenReply,
                         ::testing::Values(Bytes{2}, replyMessage(9), replyMessage(3),
                                           replyMessage(2) + Bytes{0}, test::inputMessage({1, 2}),
                                           propertiesMessage("device")));

class HIDBusFirstMessage : public test::HIDBusTest, public ::testing::WithParamInterface<Bytes> {};

TEST_P(HIDBusFirstMessage, ThatBreaksTheRulesMakesNoDeviceAndHoldsUpNobody) {
    PublisherSocket bad(bus_, "bad");
    HIDClient client;
    const auto connection = bad.accept();
    connection.send(GetParam());
    EXPECT_TRUE(connection.awaitHangUp());
    EXPECT_TRUE(awaitError("HID device " + bad.path().string() + " is not used: it sent "));
    test::ServingPublisher good(bus_, "good");
    client.awaitDevice("good");
    EXPECT_EQ(client.arrived().size(), 1U);
    EXPECT_EQ(errors().size(), 1U);
}

INSTANTIATE_TEST_SUITE_P(Kinds, HIDBusFirstMessage,
                         ::testing::Values(Bytes{1}, replyMessage(1), replyMessage(2), replyMessage(77),
                                           test::inputMessage({1, 2}),
                                           Bytes{1, 0, 0, 0, 0, 0, 0, 0, 1, 0, 1, 0, 1, 0, 1, 0, 200, 'a'},
                                           propertiesMessage("device") + Bytes{0}, propertiesMessage("\xFF"),
                                           propertiesMessage("device") + Bytes(5000)));

TEST_F(UserSpaceDevice, SecondMessageOnAConnectionThatIsNotOpenIsARemoval) {
    presence_.send(replyMessage(4));
    EXPECT_TRUE(client_->awaitRemovals(1));
    EXPECT_TRUE(presence_.awaitHangUp());
    EXPECT_TRUE(awaitError("second message"));
}

TEST_F(UserSpaceDevice, SilentPublisherHoldsUpNobodyAndIsTriedAgain) {
    PublisherSocket silent(bus_, "silent");
    const auto start = Clock::now();
    const auto first = silent.accept();
    test::ServingPublisher other(bus_, "other");
    client_->awaitDevice("other");
    EXPECT_TRUE(first.awaitHangUp());
    EXPECT_GE(Clock::now() - start, limit * 9 / 10);
    const auto second = silent.acceptAs("silent");
    client_->awaitDevice("silent");
}

TEST_F(UserSpaceDevice, PublisherWithAFullQueueHoldsUpNobodyAndIsTriedAgain) {
    PublisherSocket busy(bus_, "busy", PublisherSocket::Appear::later, SOCK_SEQPACKET, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, busy.hiddenPath().c_str(), sizeof address.sun_path - 1);
    std::vector<PublisherConnection> waiting;
    int connected = 0;
    while (connected == 0) {
        waiting.emplace_back(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
        connected = ::connect(waiting.back().descriptor(), reinterpret_cast<const sockaddr *>(&address),
                              sizeof address);
    }
    EXPECT_EQ(errno, EAGAIN);
    busy.show();
    test::ServingPublisher other(bus_, "other");
    client_->awaitDevice("other");
    EXPECT_EQ(client_->arrived().size(), 2U);
    for (size_t i = 0; i + 1 < waiting.size(); ++i)
        (void)busy.accept();
    const auto presence = busy.acceptAs("busy");
    client_->awaitDevice("busy");
}

} // namespace
} // namespace moxel
