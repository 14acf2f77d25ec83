// Longer messages of the daemon and its questions, as a client gets them.
#include "Daemon/TestClient.h"
#include "Moxel Daemon/Protocol/DaemonMessages.h"

#include <gtest/gtest.h>

namespace moxel::daemon {
namespace {

TEST_F(DaemonDaemon, DictionaryArrivesInPackets) {
    start();
    TestClient client(*daemon, 1);
    client.registerClient();
    const Dictionary sync = commandSyncMessage(5, countingSyncBlock());
    ASSERT_TRUE(daemon->sendDictionary(client.clientID, sync).ok());
    EXPECT_EQ(client.takeMessage(), sync);
    EXPECT_EQ(client.packets, 1);
    ASSERT_TRUE(
        daemon->sendDictionary(client.clientID, sync, {.wantsAnswer = false, .packetSize = 100}).ok());
    EXPECT_EQ(client.takeMessage(), sync);
    EXPECT_GT(client.packets, 5);
    ASSERT_TRUE(daemon->sendDictionary(client.clientID, {{"req", "big"}, {"data", Data(9000, 7)}}).ok());
    EXPECT_EQ(client.takeMessage().find("data")->as<Data>()->size(), 9000U);
    EXPECT_EQ(client.packets, 5);
    const auto seen = daemon->waitForClient(
        patience, [](const ClientDescription &other) { return other.acknowledgements == 6; });
    ASSERT_TRUE(seen);
    EXPECT_GT(seen->packetsRead, 11);
    EXPECT_FALSE(daemon->sendDictionary(client.clientID + 1, sync).ok());
    EXPECT_TRUE(daemon->sendDictionary(Daemon::allClients, sync).ok());
    EXPECT_EQ(client.takeMessage(), sync);
}

TEST_F(DaemonDaemon, PacketStaysUntilItIsAcknowledged) {
    start();
    TestClient client(*daemon, 1);
    client.registerClient();
    ASSERT_TRUE(daemon->sendPacket(client.clientID, {{2, 0, 1, 0, 0, 2, 'a'}, 7, true}).ok());
    ASSERT_TRUE(daemon->sendPacket(client.clientID, {{2, 0, 1, 0, 1, 2, 'b'}, 7, false}).ok());
    EXPECT_EQ(client.input(), dataWaiting(7, true));
    EXPECT_EQ(client.dedicated->getReport(0x54, 7).content, (Bytes{2, 0, 1, 0, 0, 2, 'a'}));
    EXPECT_EQ(client.dedicated->getReport(0x54, 3).content, (Bytes{2, 0, 1}));
    EXPECT_TRUE(client.isQuiet());
    client.acknowledgePacket();
    EXPECT_EQ(client.input(), dataWaiting(7, false));
    EXPECT_EQ(client.dedicated->getReport(0x54, 2048).content, (Bytes{2, 0, 1, 0, 1, 2, 'b'}));
    EXPECT_EQ(client.dedicated->getReport(0x54, 2048).status, status::error) << "the slot is empty";
}

TEST_F(DaemonDaemon, StoredDataQueryIsAnswered) {
    start();
    TestClient client(*daemon, 1);
    client.registerClient();
    EXPECT_EQ(daemon->queryStoredData(client.clientID), 1U);
    EXPECT_EQ(client.input(), (Bytes{0x35, 4, 0, 0xAF, 0xDE, 0, 0, 0}));
    EXPECT_EQ(client.dedicated->setReport(0x46, 1, Bytes{6, 0, 0xFE, 0x71} + Bytes(34)), 0U);
    EXPECT_TRUE(daemon->waitForClient(
        patience, [](const ClientDescription &other) { return other.storedDataReplies == 1; }));
    EXPECT_TRUE(client.isQuiet()) << "not a request, so not acknowledged";
}

} // namespace
} // namespace moxel::daemon
