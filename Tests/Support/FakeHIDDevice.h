// A HID device made of a test's answers, which remembers what was asked of it.
#pragma once

#include "Platform/HIDDevice.h"

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace moxel::test {

struct SentReport {
    HIDReportType type;
    uint8_t reportID;
    std::vector<uint8_t> bytes;
};

class FakeHIDDevice final : public HIDDevice {
  public:
    /// A channel of the driver with that registry name.
    static std::shared_ptr<FakeHIDDevice> channel(const std::string &name,
                                                  const std::string &manufacturer = "Moxel") {
        auto device = std::make_shared<FakeHIDDevice>();
        device->name = name;
        device->properties = {{"VendorID", int64_t{0x4D58}},
                              {"ProductID", int64_t{1}},
                              {"PrimaryUsage", int64_t{1}},
                              {"PrimaryUsagePage", int64_t{0xFF00}},
                              {"Manufacturer", manufacturer}};
        return device;
    }

    std::optional<HIDProperty> property(std::string_view key) const override {
        const auto found = properties.find(key);
        return found == properties.end() ? std::nullopt : std::optional(found->second);
    }
    std::optional<std::string> registryEntryName() const override { return name; }
    HIDStatus open() override {
        ++opens;
        return openStatus;
    }
    HIDStatus close() override {
        ++closes;
        return closeStatus;
    }
    HIDStatus setReport(HIDReportType type, uint8_t reportID, std::span<const uint8_t> report) override {
        const std::lock_guard lock(mutex);
        reports.push_back({type, reportID, {report.begin(), report.end()}});
        if (onSetReport)
            onSetReport(reports.back());
        return setReportStatus;
    }
    HIDStatus getReport(HIDReportType type, uint8_t reportID, std::span<uint8_t> buffer,
                        size_t &length) override {
        ++gets;
        lastGetType = type;
        lastGetID = reportID;
        length = std::min(slot.size(), buffer.size());
        std::copy_n(slot.begin(), length, buffer.begin());
        return getReportStatus;
    }
    void registerInputReportCallback(std::span<uint8_t> buffer, InputReportCallback newCallback,
                                     void *newContext) override {
        inputBuffer = buffer;
        callback = newCallback;
        context = newContext;
    }
    std::string description() const override { return "<FakeHIDDevice " + name.value_or("") + ">"; }

    /// Input as the platform delivers it: through the registered buffer.
    void receive(std::vector<uint8_t> report, HIDReportType type = HIDReportType::input) {
        const size_t length = std::min(report.size(), inputBuffer.size());
        std::copy_n(report.begin(), length, inputBuffer.begin());
        callback(context, HIDStatus::success, this, type, report.empty() ? 0 : report[0], inputBuffer.data(),
                 length);
    }

    std::optional<std::string> name;
    std::map<std::string, HIDProperty, std::less<>> properties;
    HIDStatus openStatus = HIDStatus::success;
    HIDStatus closeStatus = HIDStatus::success;
    HIDStatus setReportStatus = HIDStatus::success;
    HIDStatus getReportStatus = HIDStatus::success;
    std::vector<uint8_t> slot; ///< What getReport() yields.
    std::mutex mutex;
    std::vector<SentReport> reports;
    std::function<void(const SentReport &)> onSetReport;
    int opens = 0;
    int closes = 0;
    int gets = 0;
    HIDReportType lastGetType = HIDReportType::input;
    uint8_t lastGetID = 0;
    std::span<uint8_t> inputBuffer;
    InputReportCallback callback = nullptr;
    void *context = nullptr;
};

} // namespace moxel::test
