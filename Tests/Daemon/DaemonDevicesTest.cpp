// Devices as clients get them.
#include "Daemon/FakeInputDevice.h"
#include "Daemon/TestClient.h"
#include "Moxel Daemon/Protocol/DaemonMessages.h"
#include "Support/CapturedLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace moxel::daemon {
namespace {

using ::testing::ElementsAre;

class DaemonDevices : public DaemonFixture {
  protected:
    void startWithDevices() {
        Options options;
        options.devices.choosesItself = true;
        options.devices.inputFolder = folder.path();
        options.devices.systemFolder = folder.path("none");
        options.devices.axes.deadZone = 0;
        start(std::move(options));
    }
    /// Its wide fields may lie at odd addresses, so expectations take copies of them (+).
    static MoxelStateRecord recordOf(const Bytes &report) {
        MoxelStateRecord record{};
        EXPECT_EQ(report.size(), 55U);
        if (report.size() == 55)
            std::memcpy(&record, report.data() + 7, sizeof record);
        return record;
    }
    static std::vector<int> axesOf(const MoxelStateRecord &record) { return {record.axis, record.axis + 6}; }

    test::CapturedLog log;
};

TEST_F(DaemonDevices, MotionAndButtonsReachClients) {
    FakeInputDevice device(folder.path("event0"), FakeInputAnswers::absoluteController());
    startWithDevices();
    TestClient client(*daemon, 1);
    client.registerClient();
    EXPECT_EQ(client.takeMessage(), deviceIdentityMessage(0x1234, 0x5678));
    EXPECT_EQ(client.takeMessage(), deviceAddedMessage(0x12345678));
    device.report({{EV_ABS, ABS_X, 10}, {EV_ABS, ABS_RZ, -350}});
    const MoxelStateRecord motion = recordOf(client.input());
    EXPECT_EQ(motion.command, 3);
    EXPECT_THAT(axesOf(motion), ElementsAre(10, 0, 0, 0, 0, -350));
    device.report({{EV_KEY, BTN_1, 1}});
    const MoxelStateRecord pressed = recordOf(client.input());
    EXPECT_EQ(pressed.command, 2);
    EXPECT_EQ(+pressed.buttons, 2U);
    EXPECT_THAT(axesOf(pressed), ElementsAre(10, 0, 0, 0, 0, -350)) << "the cap is where it was";
}

TEST_F(DaemonDevices, ClientsSeeDevicesComeAndGo) {
    startWithDevices();
    TestClient client(*daemon, 1);
    client.registerClient();
    EXPECT_TRUE(client.isQuiet());
    FakeInputDevice device(folder.path("event0"), FakeInputAnswers::absoluteController());
    EXPECT_EQ(client.takeMessage(), deviceIdentityMessage(0x1234, 0x5678));
    EXPECT_EQ(client.takeMessage(), deviceAddedMessage(0x12345678));
    device.report({{EV_KEY, BTN_0, 1}, {EV_ABS, ABS_Y, 99}});
    EXPECT_EQ(+recordOf(client.input()).buttons, 1U);
    EXPECT_THAT(axesOf(recordOf(client.input())), ElementsAre(0, 99, 0, 0, 0, 0));
    device.unplug();
    EXPECT_EQ(+recordOf(client.input()).buttons, 0U);
    const MoxelStateRecord rest = recordOf(client.input());
    EXPECT_EQ(rest.command, 3);
    EXPECT_THAT(axesOf(rest), ElementsAre(0, 0, 0, 0, 0, 0));
    EXPECT_EQ(client.takeMessage(), deviceRemovedMessage(0x12345678));
}

TEST_F(DaemonDevices, ClientsAreToldOnceOfDevicesThatAreThere) {
    const FakeInputDevice device(folder.path("event0"));
    startWithDevices();
    TestClient client(*daemon, 1);
    client.registerClient();
    EXPECT_EQ(client.takeMessage(), deviceIdentityMessage(0x1234, 0x5678));
    EXPECT_EQ(client.takeMessage(), deviceAddedMessage(0x12345678));
    client.registerClient();
    EXPECT_TRUE(client.isQuiet()) << "it knows already";
    TestClient other(*daemon, 2);
    other.registerClient();
    EXPECT_EQ(other.takeMessage(), deviceIdentityMessage(0x1234, 0x5678));
    EXPECT_EQ(other.takeMessage(), deviceAddedMessage(0x12345678));
    EXPECT_TRUE(client.isQuiet());
}

TEST_F(DaemonDevices, DaemonCanEndWhileADeviceMoves) {
    FakeInputDevice device(folder.path("event0"));
    startWithDevices();
    TestClient client(*daemon, 1);
    client.registerClient();
    client.takeMessage();
    client.takeMessage();
    device.report({{EV_REL, REL_X, 9}});
    EXPECT_THAT(axesOf(recordOf(client.input())), ElementsAre(9, 0, 0, 0, 0, 0));
    daemon.reset();
    EXPECT_TRUE(client.dedicated->awaitHangUp());
}

} // namespace
} // namespace moxel::daemon
