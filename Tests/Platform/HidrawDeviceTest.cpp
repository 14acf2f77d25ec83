// A device with a hidraw node, whose part a file or a named pipe takes.
#include "Platform/Linux/HidrawDevice.h"
#include "Support/CapturedLog.h"
#include "Support/HIDClient.h"
#include "Support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace moxel {
namespace {

/// Counts the devices that have ended. The loop is another thread's.
class Host final : public HIDDeviceHost {
  public:
    Host() {
        loop.run([this] { thread_ = Thread::current(); });
    }
    Thread &thread() const noexcept override { return *thread_; }
    RunLoop *runLoop() const noexcept override { return &loop.loop(); }
    void deviceEnded(HIDBusDevice &) override { ++ended; }

    test::LoopThread loop;
    std::atomic<int> ended{0};

  private:
    std::shared_ptr<Thread> thread_;
};

class HidrawDeviceAlone : public ::testing::Test {
  protected:
    [[nodiscard]] std::shared_ptr<HidrawDevice> makeDevice() const {
        HidrawNode node;
        node.place = place;
        node.properties.name = "Device";
        node.properties.vendorID = 0x1234;
        return std::make_shared<HidrawDevice>(std::make_shared<HidrawEntry>(node), host);
    }
    void destroy(std::shared_ptr<HidrawDevice> &device) const {
        host->loop.run([&] {
            device->unschedule();
            device.reset();
        });
    }

    test::CapturedLog log;
    test::TemporaryFolder folder;
    const std::string place = folder.path("node");
    std::shared_ptr<Host> host = std::make_shared<Host>();
};

TEST_F(HidrawDeviceAlone, WhoseInputCannotBeWaitedForIsClosedAndNotGone) {
    folder.write("node", ""); // No run loop waits for such a file.
    auto device = makeDevice();
    for (int round = 1; round <= 2; ++round) {
        ASSERT_EQ(device->open(), HIDStatus::success) << round;
        ASSERT_TRUE(log.waitFor("Error: no input from "));
        host->loop.run([] {});
        host->loop.run([] {});
        EXPECT_EQ(host->ended, 0);
        EXPECT_EQ(device->setReport(HIDReportType::output, 1, {}), HIDStatus::notOpen);
        log.clear();
    }
    destroy(device);
}

TEST_F(HidrawDeviceAlone, MayLeaveWhileAnotherThreadClosesIt) {
    ASSERT_EQ(::mkfifo(place.c_str(), 0600), 0);
    for (int round = 1; round <= 2000; ++round) {
        auto device = makeDevice();
        ASSERT_EQ(device->open(), HIDStatus::success);
        std::atomic<bool> leaves{false};
        host->loop.post([device, &leaves] {
            leaves = true;
            device->leave();
        });
        while (!leaves)
            std::this_thread::yield();
        (void)device->close();
        host->loop.run([] {});
        host->loop.run([] {});
        ASSERT_EQ(host->ended, round) << "its end is told once";
        destroy(device);
    }
}

TEST_F(HidrawDeviceAlone, ThatCannotBeOpenedSaysWhyOnce) {
    auto device = makeDevice();
    ASSERT_EQ(::symlink("node", place.c_str()), 0); // A link to itself.
    EXPECT_EQ(device->open(), HIDStatus::error);
    EXPECT_EQ(device->open(), HIDStatus::error);
    EXPECT_EQ(log.count("Error: HID device " + place +
                        " (Device) is not used: it cannot be opened: Too many levels of symbolic links"),
              1U);
    EXPECT_EQ(log.lines().size(), 1U);
    destroy(device);
}

TEST_F(HidrawDeviceAlone, RuleIsToldForWantOfRightsOnly) {
    HidrawNode node;
    node.place = place;
    node.properties.name = "Device";
    node.properties.vendorID = 0x1234;
    const HidrawEntry entry(node);
    entry.complainOf(EACCES);
    entry.complainOf(EACCES);
    EXPECT_EQ(log.countContaining("is not used: it may not be opened: Permission denied. This udev rule"),
              1U);
    EXPECT_EQ(log.countContaining("KERNELS==\"*:1234:*\""), 1U);
    entry.complainOf(EMFILE);
    EXPECT_EQ(log.count("Error: HID device " + place +
                        " (Device) is not used: it cannot be opened: Too many open files"),
              1U);
}

} // namespace
} // namespace moxel
