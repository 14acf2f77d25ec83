// Folders of devices that come and go.
#include "Moxel Daemon/Devices/DeviceFolder.h"
#include "Support/Await.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

namespace moxel::daemon {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
namespace fs = std::filesystem;

class DaemonDeviceFolder : public ::testing::Test {
  protected:
    void watch(const std::string &path) {
        Result<std::unique_ptr<DeviceFolder>> made = DeviceFolder::watch(path, *loop, [this] { ++changes; });
        ASSERT_TRUE(made.ok()) << made.error().message;
        watched = std::move(*made);
    }
    /// True when what was done has been noticed; anything else that was noticed is forgotten.
    bool isNoticed() {
        const auto deadline = std::chrono::steady_clock::now() + test::patience;
        while (changes == 0 && std::chrono::steady_clock::now() < deadline)
            loop->runOneSource(test::patience);
        while (loop->runOneSource(RunLoop::Seconds(0)))
            continue;
        return std::exchange(changes, 0) > 0;
    }
    bool isQuiet() { return !loop->runOneSource(RunLoop::Seconds(0)) && changes == 0; }

    test::TemporaryFolder folder;
    std::shared_ptr<RunLoop> loop = *RunLoop::current();
    std::unique_ptr<DeviceFolder> watched;
    int changes = 0;
};

TEST_F(DaemonDeviceFolder, EventDevicesAreListedInTheOrderOfTheirNumbers) {
    for (const char *name :
         {"event10", "event9", "event", "eventX", "event1x", "mouse0", "js0", "event0", "mice"})
        folder.write(name);
    fs::create_directory(folder.path("by-id"));
    EXPECT_THAT(DeviceFolder::eventDevices(folder.path()),
                ElementsAre(folder.path("event0"), folder.path("event9"), folder.path("event10")));
    EXPECT_THAT(DeviceFolder::eventDevices(folder.path("none")), IsEmpty());
    EXPECT_THAT(DeviceFolder::eventDevices(folder.path("event0")), IsEmpty());
}

TEST_F(DaemonDeviceFolder, ComingGoingAndChangesOfRightsAreNoticed) {
    watch(folder.path());
    EXPECT_TRUE(isQuiet());
    const std::string file = folder.write("event0");
    EXPECT_TRUE(isNoticed());
    fs::permissions(file, fs::perms::owner_read);
    EXPECT_TRUE(isNoticed());
    fs::rename(file, folder.path("event1"));
    EXPECT_TRUE(isNoticed());
    fs::remove(folder.path("event1"));
    EXPECT_TRUE(isNoticed());
    EXPECT_TRUE(isQuiet());
}

TEST_F(DaemonDeviceFolder, FolderMayComeLater) {
    watch(folder.path("a/b/input"));
    folder.write("a/other");
    fs::create_directories(folder.path("a/b/input"));
    EXPECT_TRUE(isNoticed());
    folder.write("a/b/input/event0");
    EXPECT_TRUE(isNoticed());
}

TEST_F(DaemonDeviceFolder, FolderMayGoAndComeAgain) {
    fs::create_directory(folder.path("input"));
    watch(folder.path("input"));
    for (int round = 0; round < 3; ++round) {
        fs::remove_all(folder.path("input"));
        EXPECT_TRUE(isNoticed());
        fs::create_directory(folder.path("input"));
        EXPECT_TRUE(isNoticed());
        folder.write("input/event0");
        EXPECT_TRUE(isNoticed());
    }
    fs::rename(folder.path("input"), folder.path("elsewhere"));
    EXPECT_TRUE(isNoticed());
    folder.write("elsewhere/event1");
    EXPECT_TRUE(isQuiet()) << "that is another folder now";
}

} // namespace
} // namespace moxel::daemon
