// Devices that are given back to the kernel, and who waits for their names.
#include "Moxel Daemon/Kernel/UhidClosings.h"
#include "Support/Await.h"
#include "Support/SlowToClose.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace moxel::daemon {
namespace {

using namespace std::chrono_literals;
using Name = UhidClosings::Name;

class DaemonUhidClosings : public ::testing::Test {
  protected:
    ~DaemonUhidClosings() override {
        slow.release();
        other.release();
        closings->awaitAll(test::patience);
    }
    Name await(const std::string &name) {
        return closings->await(name, [this, name] {
            free.change([&name](std::vector<std::string> &names) { names.push_back(name); });
        });
    }

    test::SlowToClose slow;
    test::SlowToClose other;
    test::Awaited<std::vector<std::string>> free;
    std::shared_ptr<UhidClosings> closings = std::make_shared<UhidClosings>();
};

TEST_F(DaemonUhidClosings, NameIsFreeOnceItsDeviceHasBeenClosed) {
    EXPECT_EQ(await("Device"), Name::isFree);
    closings->close(slow.take(), "Device");
    EXPECT_EQ(await("Device"), Name::isComing);
    EXPECT_EQ(await("Device"), Name::isPromised);
    EXPECT_EQ(await("Another"), Name::isFree);
    EXPECT_TRUE(free.get().empty());
    slow.release();
    EXPECT_TRUE(free.awaitValue({"Device"}));
    EXPECT_EQ(await("Device"), Name::isFree);
}

TEST_F(DaemonUhidClosings, NameOfTwoDevicesIsFreeAfterBoth) {
    closings->close(slow.take(), "Device");
    closings->close(other.take(), "Device");
    ASSERT_EQ(await("Device"), Name::isComing);
    slow.release();
    closings->awaitAll(100ms); // Long enough for a call that comes too early.
    EXPECT_TRUE(free.get().empty());
    other.release();
    EXPECT_TRUE(free.awaitValue({"Device"}));
}

TEST_F(DaemonUhidClosings, WhoForgetsANameLeavesItToOthers) {
    closings->close(slow.take(), "Device");
    ASSERT_EQ(await("Device"), Name::isComing);
    closings->forget("Device");
    EXPECT_EQ(await("Device"), Name::isComing);
    slow.release();
    EXPECT_TRUE(free.awaitValue({"Device"}));
}

TEST_F(DaemonUhidClosings, AllAreAwaitedForALimitedTime) {
    closings->close(slow.take(), "Device");
    const auto start = std::chrono::steady_clock::now();
    closings->awaitAll(50ms);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 50ms);
    slow.release();
    closings->awaitAll(test::patience);
    EXPECT_EQ(await("Device"), Name::isFree);
}

} // namespace
} // namespace moxel::daemon
