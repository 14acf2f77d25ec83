// State records of the daemon, as a client gets them.
#include "Daemon/TestClient.h"
#include "Moxel Daemon/Protocol/EventFilter.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace moxel::daemon {
namespace {

TEST_F(DaemonDaemon, StateReachesItsClientOnly) {
    start();
    TestClient first(*daemon, 1);
    TestClient second(*daemon, 2);
    first.registerClient();
    second.registerClient();
    EXPECT_EQ(daemon->sendState(first.clientID, motionRecord(-350)), 1U);
    const Bytes report = first.input();
    ASSERT_EQ(report.size(), 55U);
    EXPECT_EQ((Bytes{report.begin(), report.begin() + 7}), (Bytes{0x35, 3, 0, 0, 0, 0, 0}));
    EXPECT_EQ((Bytes{report.begin() + 9, report.begin() + 13}), (Bytes{1, 0, 3, 0})) << "client, command";
    EXPECT_EQ((Bytes{report.begin() + 37, report.begin() + 39}), (Bytes{0xA2, 0xFE}));
    EXPECT_TRUE(second.isQuiet());
    EXPECT_EQ(daemon->sendState(Daemon::allClients, motionRecord(1)), 2U);
    EXPECT_EQ(first.input()[9], 1);
    EXPECT_EQ(second.input()[9], 2);
    EXPECT_EQ(daemon->sendState(99, motionRecord(1)), 0U);
}

TEST_F(DaemonDaemon, MasksAreHonoured) {
    start();
    TestClient client(*daemon, 1);
    client.registerClient(0);
    EXPECT_EQ(daemon->sendState(client.clientID, motionRecord(1)), 0U);
    Dictionary masks{{"req", "setclientmasks"},
                     {"bsetmask", 1},
                     {"clientmask", 3},
                     {"bsetbuttonmask", 0},
                     {"buttonmask", 9}};
    client.send(masks);
    EXPECT_EQ(client.input(), acknowledgementInput);
    EXPECT_EQ(daemon->client(client.clientID)->eventMask, 3U);
    EXPECT_EQ(daemon->client(client.clientID)->buttonMask, 0U);
    EXPECT_EQ(daemon->sendState(client.clientID, motionRecord(1)), 1U);
    EXPECT_EQ(client.input().size(), 55U);
    MoxelStateRecord buttons{};
    buttons.command = buttonsChanged;
    buttons.buttons = 3;
    EXPECT_EQ(daemon->sendState(client.clientID, buttons), 0U);
    masks.set("bsetmask", 0);
    masks.set("bsetbuttonmask", 1);
    masks.set("buttonmask", 1);
    client.send(masks);
    EXPECT_EQ(client.input(), acknowledgementInput);
    buttons.buttons = 2;
    EXPECT_EQ(daemon->sendState(client.clientID, buttons), 1U);
    EXPECT_EQ(client.input()[51], 0);
    buttons.buttons = 3;
    EXPECT_EQ(daemon->sendState(client.clientID, buttons), 1U);
    EXPECT_EQ(client.input()[51], 1);
}

TEST_F(DaemonDaemon, ReportsOfAnyContentCanBeSent) {
    start();
    TestClient client(*daemon, 1);
    EXPECT_EQ(daemon->sendInputReport(1, Bytes{0x45, 1, 2}), 1U);
    EXPECT_EQ(client.input(), (Bytes{0x45, 1, 2}));
    EXPECT_EQ(daemon->sendInputReport(Daemon::baseChannel, Bytes{0x35}), 1U);
    EXPECT_EQ(client.base.input(), Bytes{0x35});
    EXPECT_EQ(daemon->sendInputReport(77, Bytes{0x35}), 0U);
}

TEST_F(DaemonDaemon, InputReportsCanBePadded) {
    Options options;
    options.inputReportSize = 64;
    start(options);
    TestClient client(*daemon, 1);
    client.send(registrationRequestOf(1, 1));
    EXPECT_EQ(client.input(), registrationAnswer(1, 1) + Bytes(45));
}

TEST_F(DaemonDaemon, ManyStatesArriveInOrderUnderBackPressure) {
    start();
    TestClient client(*daemon, 1);
    client.registerClient();
    constexpr int batches = 50;
    constexpr int batch = 1000;
    std::thread sender([&] {
        std::vector<MoxelStateRecord> records(batch, motionRecord(1));
        for (int number = 0; number < batches; ++number) {
            for (int index = 0; index < batch; ++index)
                records[static_cast<size_t>(index)].value = number * batch + index;
            EXPECT_EQ(daemon->sendStates(client.clientID, records), static_cast<size_t>(batch));
            EXPECT_TRUE(daemon->waitUntilQueued(64 << 10, patience));
        }
    });
    for (int number = 0; number < batches * batch; ++number) {
        const Bytes report = client.input();
        ASSERT_EQ(report.size(), 55U);
        ASSERT_EQ((Bytes{report.begin() + 15, report.begin() + 19}),
                  littleEndian(static_cast<uint64_t>(number), 4));
    }
    sender.join();
    EXPECT_TRUE(daemon->waitUntilQueued(0, patience));
}

} // namespace
} // namespace moxel::daemon
