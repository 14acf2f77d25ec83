// Faults as a client meets them.
#include "Daemon/TestClient.h"
#include "Moxel Daemon/Protocol/DaemonMessages.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace moxel::daemon {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

class DaemonWithFaults : public DaemonFixture {
  protected:
    void startWith(const Faults &faults) {
        Options options;
        options.faults = faults;
        start(options);
    }
    void startWith(std::initializer_list<const char *> faults) {
        Faults all;
        for (const char *fault : faults)
            EXPECT_TRUE(addFault(all, fault).ok());
        startWith(all);
    }
    [[nodiscard]] bool exists(const std::string &name) const {
        return std::filesystem::exists(daemon->busFolder() + "/" + name + ".hid");
    }
};

TEST_F(DaemonWithFaults, BaseChannelCanBeMissing) {
    startWith({"no-base-channel"});
    EXPECT_FALSE(exists(testBaseName));
    daemon->setFaults({});
    EXPECT_TRUE(exists(testBaseName));
    Faults faults;
    faults.noBaseChannel = true;
    daemon->setFaults(faults);
    EXPECT_FALSE(exists(testBaseName));
    EXPECT_EQ(daemon->faults(), faults);
}

TEST_F(DaemonWithFaults, BaseChannelCanRefuseToOpen) {
    startWith({"refuse-base-open"});
    RawClient base(daemon->busFolder(), testBaseName);
    EXPECT_EQ(base.open(), status::notPermitted);
    daemon->setFaults({});
    EXPECT_EQ(base.open(), 0U);
}

TEST_F(DaemonWithFaults, DedicatedChannelCanBeMissing) {
    startWith({"no-dedicated-channel"});
    RawClient base(daemon->busFolder(), testBaseName);
    ASSERT_EQ(base.open(), 0U);
    EXPECT_EQ(base.setReport(0x46, 0, channelMessage(0xBEEF, 5)), 0U);
    EXPECT_EQ(base.setReport(0x46, 0, channelMessage(0xDEAD, 6)), 0U) << "served after the first one";
    EXPECT_FALSE(exists(dedicatedName(5)));
    EXPECT_TRUE(daemon->clients().empty());
}

TEST_F(DaemonWithFaults, DedicatedChannelCanRefuseToOpen) {
    startWith({"refuse-dedicated-open"});
    ASSERT_TRUE(daemon->publishChannel(5).ok());
    EXPECT_EQ(RawClient(daemon->busFolder(), dedicatedName(5)).open(), status::notPermitted);
}

TEST_F(DaemonWithFaults, DedicatedChannelCanBeLate) {
    startWith({"late-dedicated-channel=150"});
    const auto asked = Clock::now();
    const TestClient client(*daemon, 5);
    EXPECT_GE(Clock::now() - asked, 150ms);
}

TEST_F(DaemonWithFaults, RegistrationCanRemainUnanswered) {
    startWith({"no-registration-answer"});
    TestClient client(*daemon, 5);
    client.send(registrationRequestOf(5, 1));
    EXPECT_TRUE(client.isQuiet());
    EXPECT_FALSE(daemon->clients().at(0).registered);
    EXPECT_EQ(daemon->clients().at(0).registrations, 1);
}

TEST_F(DaemonWithFaults, RegistrationCanBeAnsweredLate) {
    startWith({"late-registration-answer=150"});
    TestClient client(*daemon, 5);
    const auto asked = Clock::now();
    client.registerClient();
    EXPECT_GE(Clock::now() - asked, 150ms);
}

TEST_F(DaemonWithFaults, RequestsCanRemainUnacknowledged) {
    startWith({"no-acknowledgement"});
    TestClient client(*daemon, 5);
    client.registerClient();
    client.send(Bytes(2042, 'x'));
    EXPECT_TRUE(client.isQuiet());
    EXPECT_TRUE(daemon->observe().requests.back().acknowledged) << "it would have been due";
}

TEST_F(DaemonWithFaults, RequestsCanBeAcknowledgedLate) {
    startWith({"late-acknowledgement=150"});
    TestClient client(*daemon, 5);
    client.registerClient();
    const auto asked = Clock::now();
    client.send(Bytes(2042, 'x'));
    EXPECT_EQ(client.input(), acknowledgementInput);
    EXPECT_GE(Clock::now() - asked, 150ms);
}

TEST_F(DaemonWithFaults, LateAnswersAreDroppedWithTheirChannel) {
    startWith({"late-acknowledgement=100"});
    TestClient client(*daemon, 5);
    client.registerClient();
    client.send(Bytes(2042, 'x'));
    ASSERT_TRUE(daemon->removeChannel(5));
    EXPECT_TRUE(client.dedicated->awaitHangUp());
    // A channel of the same number is another one.
    TestClient second(*daemon, 5);
    second.registerClient();
    second.send(Bytes(2042, 'x'));
    EXPECT_EQ(second.input(), acknowledgementInput);
    EXPECT_TRUE(second.isQuiet());
}

TEST_F(DaemonWithFaults, RequestsCanBeAcknowledgedTwice) {
    startWith({"duplicate-acknowledgement"});
    TestClient client(*daemon, 5);
    client.registerClient();
    client.send(Bytes(2042, 'x'));
    EXPECT_EQ(client.input(), acknowledgementInput);
    EXPECT_EQ(client.input(), acknowledgementInput);
    EXPECT_TRUE(client.isQuiet());
}

TEST_F(DaemonWithFaults, ReportsCanBeRefused) {
    startWith({"refuse-set-report=0x63", "refuse-set-report=0x73:0xE00002D6", "refuse-get-report=0x54"});
    TestClient client(*daemon, 5);
    EXPECT_EQ(client.dedicated->setReport(0x63, 5, {1}), status::error);
    EXPECT_EQ(client.dedicated->setReport(0x73, 5, Bytes(32)), status::timedOut);
    EXPECT_EQ(client.dedicated->getReport(0x54, 8).status, status::error);
    EXPECT_EQ(daemon->clients().at(0).exitState, std::nullopt) << "refused reports are not served";
    EXPECT_EQ(daemon->observe().reports.back().status, HIDStatus::error);
    client.announce(1);
    EXPECT_EQ(daemon->observe().requestCount, 0U);
}

TEST_F(DaemonWithFaults, ChannelCanGoRightAfterTheRegistration) {
    startWith({"drop-channel-after-registration"});
    TestClient client(*daemon, 5);
    client.registerClient();
    EXPECT_TRUE(client.dedicated->awaitHangUp());
    EXPECT_TRUE(daemon->waitUntil([](const Observation &seen) { return seen.clients.empty(); }, patience));
    EXPECT_FALSE(exists(dedicatedName(5)));
}

TEST_F(DaemonWithFaults, DaemonCanBeUnresponsive) {
    start();
    TestClient client(*daemon, 5);
    Faults faults;
    faults.unresponsive = true;
    daemon->setFaults(faults);
    client.dedicated->connection().send(message(4, 1, 0x73, 0, littleEndian(5, 8) + Bytes(32)));
    client.dedicated->connection().send(message(5, 1, 0x54, 100));
    client.base.connection().send(message(2, 0, 0, 0));
    client.base.connection().send(message(4, 1, 0x46, 0, Bytes(8) + channelMessage(0xDEAD, 5)));
    EXPECT_TRUE(daemon->waitForReport(
        [](const ReceivedReport &report) { return report.bytes == channelMessage(0xDEAD, 5); }, patience));
    EXPECT_TRUE(daemon->waitForReport([](const ReceivedReport &report) { return report.isRead; }, patience));
    EXPECT_TRUE(client.dedicated->connection().isQuiet());
    EXPECT_TRUE(client.base.connection().isQuiet());
    EXPECT_EQ(daemon->clients().at(0).exitState, std::nullopt);
    daemon->setFaults({});
    EXPECT_EQ(client.base.setReport(0x46, 0, channelMessage(0xDEAD, 99)), 0U) << "responsive again";
    EXPECT_EQ(daemon->clients().size(), 1U) << "what came before is lost";
}

TEST_F(DaemonWithFaults, AnnouncementsCanLie) {
    start();
    TestClient client(*daemon, 5);
    client.registerClient();
    Faults faults;
    for (const uint16_t size : std::vector<uint16_t>{0, 2049}) {
        faults.announcedSize = size;
        daemon->setFaults(faults);
        ASSERT_TRUE(daemon->sendDictionary(client.clientID, deviceAddedMessage(1)).ok());
        EXPECT_EQ(client.input(), dataWaiting(size, true));
    }
    faults.announcedSize = 2000;
    daemon->setFaults(faults);
    ASSERT_TRUE(daemon->sendDictionary(client.clientID, deviceAddedMessage(1)).ok());
    EXPECT_EQ(client.input(), dataWaiting(2000, true));
    EXPECT_LT(client.dedicated->getReport(0x54, 2000).content.size(), 2000U);
}

TEST_F(DaemonWithFaults, PacketsCanLie) {
    startWith({"payload-length=9999", "data-id=3"});
    TestClient client(*daemon, 5);
    client.registerClient();
    ASSERT_TRUE(daemon->sendDictionary(client.clientID, deviceAddedMessage(1)).ok());
    const auto size = static_cast<uint32_t>(client.input()[5]) | 0x700;
    const Bytes packet = client.dedicated->getReport(0x54, size).content;
    EXPECT_EQ((Bytes{packet.begin(), packet.begin() + 6}), (Bytes{3, 0, 0x0F, 0x27, 1, 1}));
}

TEST_F(DaemonWithFaults, LastPacketCanBeMissing) {
    startWith({"no-last-packet"});
    TestClient client(*daemon, 5);
    client.registerClient();
    const Dictionary big{{"req", "big"}, {"data", Data(3000)}};
    ASSERT_TRUE(daemon->sendDictionary(client.clientID, big, {.wantsAnswer = false}).ok());
    EXPECT_EQ(client.input(), dataWaiting(2048, false));
    EXPECT_EQ(client.dedicated->getReport(0x54, 2048).content.at(4), 0);
    EXPECT_TRUE(client.isQuiet());
}

TEST_F(DaemonWithFaults, ArchivesCanBeMalformed) {
    startWith({"malformed-archive"});
    TestClient client(*daemon, 5);
    client.registerClient();
    ASSERT_TRUE(daemon->sendDictionary(client.clientID, deviceAddedMessage(1)).ok());
    const uint32_t size = client.input()[5] | 0x700U;
    const Bytes packet = client.dedicated->getReport(0x54, size).content;
    EXPECT_EQ((Bytes{packet.begin() + 6, packet.begin() + 14}), bytesOf("????????"));
}

} // namespace
} // namespace moxel::daemon
