// The kernel's HID devices without those of the user-space bus, for tests of both ends.
#pragma once

#include "Kernel/VirtualDevice.h"
#include "Support/DescriptorShortage.h"
#include "Support/HIDClient.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <string_view>
#include <thread>
#include <variant>

namespace moxel::test {

inline const HIDManager::Matching oursOnly{{std::string(hidVendorIDKey), HIDProperty(int64_t{0x4D58})}};

/// Devices of the kernel only: the folder of the user-space bus stays empty.
class KernelDevices : public HIDBusTest {
  protected:
    using Clock = std::chrono::steady_clock;

    KernelDevices() { ::unsetenv("MOXEL_HIDRAW"); } // NOLINT(concurrency-mt-unsafe): no thread runs yet
    void SetUp() override {
        MOXEL_NEEDS_UHID();
        HIDBusTest::SetUp();
        descriptors_ = openDescriptors();
    }
    void TearDown() override {
        if (descriptors_ == 0)
            return;
        // A call that was left to itself holds its descriptor until it returns.
        const auto deadline = Clock::now() + patience;
        while (openDescriptors() > descriptors_ && Clock::now() < deadline)
            std::this_thread::yield();
        HIDBusTest::TearDown();
    }

    static Bytes inputReport(uint8_t first) {
        Bytes report(64);
        report[0] = 0x35;
        report[1] = first;
        report[63] = 0xEE;
        return report;
    }
    static std::string textOf(const HIDDevice &device, std::string_view key) {
        return std::get<std::string>(device.property(key).value());
    }
    static int64_t numberOf(const HIDDevice &device, std::string_view key) {
        return std::get<int64_t>(device.property(key).value());
    }

  private:
    size_t descriptors_ = 0;
};

} // namespace moxel::test
