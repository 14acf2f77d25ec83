// Registration with the daemon, as a client meets it.
#include "Daemon/TestClient.h"
#include "Support/CapturedLog.h"

#include <gtest/gtest.h>

#include <set>
#include <unistd.h>

namespace moxel::daemon {
namespace {

TEST_F(DaemonDaemon, RegistrationIsAnsweredAndNotAcknowledged) {
    start();
    TestClient client(*daemon, 0x0102030405060708);
    client.send(registrationRequestOf(client.channelID, 0x1234));
    EXPECT_EQ(client.input(), registrationAnswer(1, 0x0102030405060708));
    EXPECT_TRUE(client.isQuiet());
    const auto description = daemon->waitForClient(patience);
    ASSERT_TRUE(description);
    EXPECT_EQ(description->clientID, 1);
    EXPECT_EQ(description->registrations, 1);
    EXPECT_EQ(description->eventMask, 0x1234U);
    EXPECT_EQ(description->buttonMask, 0x34U);
    EXPECT_EQ(description->application->name, "Demo");
    EXPECT_EQ(description->application->processID, ::getpid());
    const auto request = daemon->waitForRequest([](const auto &) { return true; }, patience);
    ASSERT_TRUE(request);
    EXPECT_EQ(request->name, "regclient");
    EXPECT_EQ(request->requestID, 49);
    EXPECT_EQ(request->command, 0);
    EXPECT_FALSE(request->acknowledged);
    EXPECT_EQ(request->channelID, client.channelID);
}

TEST_F(DaemonDaemon, ClientIdentifiersAreUnique) {
    start();
    std::set<uint16_t> identifiers;
    for (uint64_t channel = 1; channel <= 10; ++channel) {
        TestClient client(*daemon, channel);
        client.registerClient();
        EXPECT_TRUE(identifiers.insert(client.clientID).second);
        EXPECT_EQ(daemon->client(client.clientID)->channelID, channel);
        if (channel % 2 == 0)
            client.terminate();
    }
    EXPECT_EQ(daemon->client(999), std::nullopt);
}

TEST_F(DaemonDaemon, ClientsRegisterAgainWhenAsked) {
    start();
    TestClient client(*daemon, 5);
    client.registerClient();
    const uint16_t identifier = client.clientID;
    EXPECT_EQ(daemon->requestReRegistration(identifier), 1U);
    EXPECT_EQ(client.input(), (Bytes{0x35, 4, 0, 0xEF, 0xBE, 0, 0, 0}));
    client.send(registrationRequestOf(5, 0x7, true));
    EXPECT_EQ(client.input(), registrationAnswer(identifier, 5));
    EXPECT_EQ(client.input(), acknowledgementInput);
    const auto description = daemon->waitForClient(
        patience, [](const ClientDescription &other) { return other.registrations == 2; });
    ASSERT_TRUE(description);
    EXPECT_EQ(description->eventMask, 7U);
    EXPECT_EQ(daemon->requestReRegistration(identifier + 1), 0U);
    EXPECT_EQ(daemon->requestReRegistration(Daemon::allClients), 1U);
}

TEST_F(DaemonDaemon, MalformedRegistrationIsNotAnswered) {
    test::CapturedLog log;
    start();
    TestClient client(*daemon, 5);
    client.send(Dictionary{{"req", "regclient"}, {"app", "none"}, {"type", false}});
    EXPECT_TRUE(client.isQuiet());
    EXPECT_TRUE(log.waitFor("not well formed"));
    client.registerClient();
}

TEST_F(DaemonDaemon, ApplicationInformationIsNoted) {
    test::CapturedLog log;
    start();
    TestClient client(*daemon, 5);
    client.registerClient();
    const Bytes name = bytesOf("A name of 24 characters!");
    EXPECT_EQ(client.dedicated->setReport(0x73, 5, Bytes{0, 0, 0, 0, 0, 0, 0, 0} + name), 0U);
    EXPECT_EQ(daemon->client(client.clientID)->exitState, 0);
    EXPECT_EQ(daemon->client(client.clientID)->applicationName, "A name of 24 characters!");
    EXPECT_EQ(client.dedicated->setReport(0x73, 5, Bytes{0xAD, 0xDE, 0, 0, 0, 0, 0, 0, 'x'} + Bytes(23)), 0U);
    EXPECT_EQ(daemon->client(client.clientID)->exitState, 0xDEAD);
    EXPECT_EQ(daemon->client(client.clientID)->applicationName, "x");
    EXPECT_EQ(client.dedicated->setReport(0x73, 5, Bytes(31)), 0U);
    EXPECT_TRUE(log.waitFor("record of 31 bytes is ignored"));
}

} // namespace
} // namespace moxel::daemon
