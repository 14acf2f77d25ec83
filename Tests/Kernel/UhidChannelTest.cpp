// The daemon's channels in a kernel that is busy, or that keeps everyone waiting.
#include "Daemon/RecordingHandler.h"
#include "Kernel/VirtualDevice.h"
#include "Moxel Daemon/Kernel/UhidPublisher.h"
#include "Support/HIDClient.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>
#include <string>

namespace moxel {
namespace {

using test::Bytes;

class UhidChannels : public test::HIDBusTest {
  protected:
    UhidChannels() { ::unsetenv("MOXEL_HIDRAW"); } // NOLINT(concurrency-mt-unsafe): no thread runs yet
    void SetUp() override { MOXEL_NEEDS_UHID(); }
    void TearDown() override {
        loop.run([&] {
            channel.reset();
            publisher.reset();
        });
    }
    void publish(const std::string &name) {
        daemon::DeviceDescription description;
        description.name = name;
        loop.run([&] {
            publisher = std::move(*daemon::UhidPublisher::create());
            channel = std::move(*publisher->publish(description, handler));
        });
    }

    daemon::RecordingHandler handler;
    std::unique_ptr<daemon::UhidPublisher> publisher;
    std::unique_ptr<daemon::Channel> channel;
    test::LoopThread loop;
};

TEST_F(UhidChannels, OutputsOfABusyDaemonAreAllKept) {
    publish("flooded");
    const test::HIDClient client;
    const HIDDeviceReference device = client.awaitDevice("flooded");
    ASSERT_TRUE(device);
    ASSERT_EQ(device->open(), HIDStatus::success);
    ASSERT_TRUE(handler.wasTold("open answered"));

    constexpr size_t count = 200; // The kernel keeps 31.
    std::promise<void> release;
    loop.post([held = release.get_future().share()] { held.wait(); });
    for (size_t size = 1; size <= count; ++size)
        ASSERT_EQ(device->setReport(HIDReportType::output, 0x46, Bytes(size)), HIDStatus::success);
    release.set_value();
    EXPECT_TRUE(handler.wasTold("set 1 70 " + std::to_string(count)));
    const std::vector<std::string> told = handler.told.get();
    for (size_t size = 1; size <= count; ++size)
        EXPECT_EQ(std::ranges::count(told, "set 1 70 " + std::to_string(size)), 1) << size;
    EXPECT_EQ(device->close(), HIDStatus::success);
}

/// The kernel removes none while somebody waits for an answer of a HID device, whoever that is.
TEST_F(UhidChannels, GoWithoutHoldingTheDaemon) {
    test::VirtualDevice silent({.name = "silent"});
    publish("removed");
    const test::HIDClient client;
    const HIDDeviceReference device = client.awaitDevice("silent");
    ASSERT_TRUE(device && client.awaitDevice("removed"));
    ASSERT_EQ(device->open(), HIDStatus::success);
    auto answer = std::async(std::launch::async, [&] {
        Bytes buffer(8);
        size_t length = 0;
        return device->getReport(HIDReportType::output, 0x46, buffer, length);
    });
    ASSERT_TRUE(silent.await(UHID_GET_REPORT));
    loop.run([this] { channel.reset(); });
    EXPECT_EQ(answer.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    silent.unplug();
    (void)answer.get();
    EXPECT_TRUE(client.awaitRemovals(2)) << "it is gone in the end";
    daemon::DeviceDescription description;
    description.name = "removed";
    loop.run([&] { EXPECT_TRUE(publisher->publish(description, handler).ok()) << "its name is free"; });
}

} // namespace
} // namespace moxel
