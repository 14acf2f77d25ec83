// The dictionaries that the daemon sends.
#include "Moxel Daemon/Protocol/DaemonMessages.h"

#include <gtest/gtest.h>

namespace moxel::daemon {
namespace {

TEST(DaemonMessages, CarryWhatTheirNamesPromise) {
    EXPECT_EQ(deviceAddedMessage(7), (Dictionary{{"req", "devadd"}, {"pid", 7}}));
    EXPECT_EQ(deviceRemovedMessage(7), (Dictionary{{"req", "devrm"}, {"pid", 7}}));
    EXPECT_EQ(deviceIdentityMessage(1, 2), (Dictionary{{"req", "udev"}, {"vid", 1}, {"pid", 2}}));
    EXPECT_EQ(preferencesMessage(3, {1, 2}),
              (Dictionary{{"req", "uprf"}, {"arg", 3}, {"prefs", Data{1, 2}}}));
    EXPECT_EQ(commandSyncMessage(9, {5}), (Dictionary{{"req", "cmdsync"}, {"pid", 9}, {"data", Data{5}}}));
    EXPECT_EQ(pairingMessage("paired", {{"slot", 1}}),
              (Dictionary{{"req", "pairinfo"}, {"ctrlcmd", "paired"}, {"slot", 1}}));
    EXPECT_EQ(cabledDeviceMessage({{"slot", 1}}), (Dictionary{{"req", "cabdev"}, {"slot", 1}}));
}

TEST(DaemonMessages, PreferencesHoldTheDeviceAtOffsetFour) {
    const Data preferences = plainPreferences(0x4D580001);
    ASSERT_EQ(preferences.size(), 152U);
    EXPECT_EQ((Data{preferences.begin(), preferences.begin() + 9}),
              (Data{0, 0, 0, 0, 0x01, 0x00, 0x58, 0x4D, 0}));
}

TEST(DaemonMessages, SyncBlockCountsUp) {
    const Data block = countingSyncBlock();
    ASSERT_EQ(block.size(), 506U);
    EXPECT_EQ(block[0], 0);
    EXPECT_EQ(block[255], 255);
    EXPECT_EQ(block[505], 249);
}

} // namespace
} // namespace moxel::daemon
