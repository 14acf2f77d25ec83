// An application's own tests, against a driver that runs in their process and does what they say.
#include "Viewpoint.h"

#include <Moxel/DaemonTest.h>

namespace {

using ViewpointTest = moxel::DaemonTest;

TEST_F(ViewpointTest, FollowsTheController) {
    Viewpoint viewpoint;
    ASSERT_TRUE(viewpoint.connect());
    daemon().motion({0, 0, 120, 0, 0, 0});
    EXPECT_TRUE(runUntil([&] { return viewpoint.distance() == 120; }));
}

TEST_F(ViewpointTest, GoesHomeWhenTheButtonOfThatCommandIsPressed) {
    Viewpoint viewpoint;
    ASSERT_TRUE(viewpoint.connect());
    ASSERT_TRUE(daemon().waitUntil(
        [](const auto &clients) {
            return clients.size() == 1 && clients[0].actions.size() == 1 &&
                   clients[0].actions[0].label == "Home view";
        },
        patience));
    daemon().motion({0, 0, 120, 0, 0, 0});
    ASSERT_TRUE(runUntil([&] { return viewpoint.distance() == 120; }));
    daemon().buttons(1);
    EXPECT_TRUE(runUntil([&] { return viewpoint.distance() == 0; }));
    EXPECT_EQ(viewpoint.commands(), std::vector{1});
}

TEST_F(ViewpointTest, NoticesThatTheControllerComesAndGoes) {
    Viewpoint viewpoint;
    ASSERT_TRUE(viewpoint.connect());
    play("0.00 identity 0x4D58 1\n"
         "0.00 added 0x4D580001\n");
    EXPECT_TRUE(runUntil([&] { return viewpoint.hasController(); }));
    play("0.00 removed 0x4D580001\n");
    EXPECT_TRUE(runUntil([&] { return !viewpoint.hasController(); }));
}

TEST_F(ViewpointTest, SaysSoWhenTheDriverDoesNotRegisterIt) {
    addFault("no-registration-answer");
    Viewpoint viewpoint;
    EXPECT_FALSE(viewpoint.connect());
}

TEST_F(ViewpointTest, SaysSoWhenThereIsNoDriver) {
    daemon().stop();
    Viewpoint viewpoint;
    EXPECT_FALSE(viewpoint.connect());
    EXPECT_TRUE(daemon().clients().empty());
}

TEST_F(ViewpointTest, ConnectsOnceThereIsADriverAgain) {
    daemon().stop();
    {
        Viewpoint viewpoint;
        EXPECT_FALSE(viewpoint.connect());
    }
    ASSERT_TRUE(daemon().startAgain().ok());
    Viewpoint viewpoint;
    EXPECT_TRUE(viewpoint.connect());
}

} // namespace
