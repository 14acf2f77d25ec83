// A HID manager on a thread of its own, and what it has reported.
#pragma once

#include "Platform/HIDManager.h"
#include "Platform/Linux/ServiceThread.h"
#include "Platform/Log.h"
#include "Platform/RunLoop.h"
#include "Platform/Thread.h"
#include "Support/Await.h"
#include "Support/BusPublisher.h"
#include "Support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <vector>

namespace moxel::test {

/// Runs a run loop until destroyed.
class LoopThread {
  public:
    LoopThread() {
        std::promise<std::shared_ptr<RunLoop>> started;
        thread_ = *Thread::start("test loop", [&started] {
            const std::shared_ptr<RunLoop> loop = *RunLoop::current();
            started.set_value(loop);
            loop->run();
        });
        loop_ = started.get_future().get();
    }
    ~LoopThread() {
        loop_->stop();
        thread_->join();
    }
    LoopThread(const LoopThread &) = delete;
    LoopThread &operator=(const LoopThread &) = delete;

    /// Runs on the loop's thread; returns when done.
    void run(const std::function<void()> &work) const {
        EXPECT_TRUE(thread_->perform(work, Thread::Wait::untilDone));
    }
    void post(const std::function<void()> &work) const { EXPECT_TRUE(thread_->perform(work)); }
    [[nodiscard]] RunLoop &loop() const { return *loop_; }

  private:
    std::shared_ptr<Thread> thread_;
    std::shared_ptr<RunLoop> loop_;
};

class HIDClient {
  public:
    using Devices = std::vector<HIDDeviceReference>;
    /// On the loop's thread.
    using Hook = std::function<void(HIDClient &client, const HIDDeviceReference &device)>;

    explicit HIDClient(HIDManager::Matching matching = {}, Hook whenArrived = {}, Hook whenRemoved = {})
        : whenArrived_(std::move(whenArrived)), whenRemoved_(std::move(whenRemoved)) {
        thread_.run([&] {
            manager_ = HIDManager::create();
            manager_->setDeviceMatching(std::move(matching));
            manager_->registerDeviceMatchingCallback(deviceArrived, this);
            manager_->registerDeviceRemovalCallback(deviceRemoved, this);
            manager_->scheduleWithRunLoop(thread_.loop());
        });
    }
    ~HIDClient() {
        thread_.run([this] { manager_.reset(); });
    }
    HIDClient(const HIDClient &) = delete;
    HIDClient &operator=(const HIDClient &) = delete;

    void onLoop(const std::function<void()> &work) const { thread_.run(work); }
    void post(const std::function<void()> &work) const { thread_.post(work); }
    /// Lets the loop finish what it has taken up, and what that has posted.
    void settle() const {
        onLoop([] {});
        onLoop([] {});
    }
    [[nodiscard]] RunLoop &loop() const { return thread_.loop(); }
    /// On the loop's thread.
    [[nodiscard]] std::unique_ptr<HIDManager> &manager() { return manager_; }

    [[nodiscard]] bool awaitArrivals(size_t count) const {
        return arrived_.await([count](const Devices &devices) { return devices.size() >= count; });
    }
    [[nodiscard]] bool awaitRemovals(size_t count) const {
        return removed_.await([count](const Devices &devices) { return devices.size() >= count; });
    }
    /// The device of that name, once it has arrived; null when it never does.
    HIDDeviceReference awaitDevice(const std::string &name) const {
        HIDDeviceReference found;
        EXPECT_TRUE(arrived_.await([&](const Devices &devices) {
            for (const HIDDeviceReference &device : devices)
                found = device->registryEntryName() == name ? device : found;
            return found != nullptr;
        })) << name
            << " does not arrive";
        return found;
    }
    [[nodiscard]] Devices arrived() const { return arrived_.get(); }
    [[nodiscard]] Devices removed() const { return removed_.get(); }
    [[nodiscard]] std::vector<std::string> arrivedNames() const {
        std::vector<std::string> names;
        for (const HIDDeviceReference &device : arrived())
            names.push_back(device->registryEntryName().value_or("?"));
        return names;
    }
    /// Forgets the devices that came and went.
    void forget() {
        arrived_.set({});
        removed_.set({});
    }

  private:
    static void deviceArrived(void *context, HIDStatus result, HIDManager *sender,
                              const HIDDeviceReference &device) {
        auto &client = *static_cast<HIDClient *>(context);
        EXPECT_EQ(result, HIDStatus::success);
        EXPECT_EQ(sender, client.manager_.get());
        if (client.whenArrived_)
            client.whenArrived_(client, device);
        client.arrived_.change([&](Devices &devices) { devices.push_back(device); });
    }
    static void deviceRemoved(void *context, HIDStatus result, HIDManager *sender,
                              const HIDDeviceReference &device) {
        auto &client = *static_cast<HIDClient *>(context);
        EXPECT_EQ(result, HIDStatus::success);
        EXPECT_EQ(sender, client.manager_.get());
        if (client.whenRemoved_)
            client.whenRemoved_(client, device);
        client.removed_.change([&](Devices &devices) { devices.push_back(device); });
    }

    LoopThread thread_;
    std::unique_ptr<HIDManager> manager_;
    Awaited<Devices> arrived_;
    Awaited<Devices> removed_;
    const Hook whenArrived_;
    const Hook whenRemoved_;
};

/// What a device's input callback received.
class InputRecorder {
  public:
    using Hook = std::function<void(HIDDevice *sender)>;

    explicit InputRecorder(size_t bufferSize = 64, Hook whenReceived = {})
        : buffer_(bufferSize), whenReceived_(std::move(whenReceived)) {}

    void registerWith(HIDDevice &device) { device.registerInputReportCallback(buffer_, received, this); }

    [[nodiscard]] bool awaitReports(size_t count) const {
        return reports_.await([count](const auto &reports) { return reports.size() >= count; });
    }
    [[nodiscard]] std::vector<Bytes> reports() const { return reports_.get(); }
    [[nodiscard]] std::vector<uint32_t> identifiers() const { return identifiers_.get(); }

  private:
    static void received(void *context, HIDStatus result, HIDDevice *sender, HIDReportType type,
                         uint32_t reportID, uint8_t *report, size_t length) {
        auto &self = *static_cast<InputRecorder *>(context);
        EXPECT_EQ(result, HIDStatus::success);
        EXPECT_EQ(type, HIDReportType::input);
        EXPECT_EQ(report, self.buffer_.data());
        const Bytes bytes(report, report + length);
        if (self.whenReceived_)
            self.whenReceived_(sender);
        self.identifiers_.change([&](auto &identifiers) { identifiers.push_back(reportID); });
        self.reports_.change([&](auto &reports) { reports.push_back(bytes); });
    }

    Bytes buffer_;
    const Hook whenReceived_;
    Awaited<std::vector<uint32_t>> identifiers_;
    Awaited<std::vector<Bytes>> reports_;
};

inline size_t openDescriptors() {
    const std::filesystem::directory_iterator entries("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

/// A bus folder of the test's own, the error lines logged meanwhile, and the proof that no descriptor leaks.
class HIDBusTest : public ::testing::Test {
  protected:
    HIDBusTest() : bus_(folder_.path("hid")) {
        std::filesystem::create_directory(bus_);
        std::filesystem::permissions(bus_, std::filesystem::perms::owner_all);
        // NOLINTBEGIN(concurrency-mt-unsafe): no thread runs yet
        ::setenv("MOXEL_HID_BUS", bus_.c_str(), 1);
        ::setenv("MOXEL_HIDRAW", "off", 1); // Devices of this machine are none of the tests' business.
        // NOLINTEND(concurrency-mt-unsafe)
    }
    void SetUp() override {
        // What the process keeps for good is made before the descriptors are counted.
        EXPECT_TRUE(ServiceThread::lease().ok());
        descriptors_ = openDescriptors();
    }
    void TearDown() override { EXPECT_EQ(openDescriptors(), descriptors_); }

    [[nodiscard]] std::vector<std::string> errors() const { return errors_.get(); }
    /// Waits until `count` error lines contain the text.
    [[nodiscard]] bool awaitError(const std::string &text, size_t count = 1) const {
        return errors_.await([&](const auto &lines) { return linesWith(lines, text) >= count; });
    }
    [[nodiscard]] size_t errorsWith(const std::string &text) const { return linesWith(errors(), text); }

    const test::TemporaryFolder folder_;
    const std::filesystem::path bus_;

  private:
    static size_t linesWith(const std::vector<std::string> &lines, const std::string &text) {
        return static_cast<size_t>(std::ranges::count_if(
            lines, [&](const std::string &line) { return line.find(text) != std::string::npos; }));
    }

    Awaited<std::vector<std::string>> errors_;
    const LogCapture log_{[this](LogLevel level, std::string_view line) {
        if (level == LogLevel::error)
            errors_.change([&](auto &lines) { lines.emplace_back(line); });
    }};
    size_t descriptors_ = 0;
};

} // namespace moxel::test
