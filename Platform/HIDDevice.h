// One HID device as its manager reports it: properties, open and close, reports in both directions.
#pragma once

#include "Export.h"
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>

namespace moxel {

/// The outcome of a HID operation; the platform's own numbers.
enum class [[nodiscard]] HIDStatus : uint32_t{
    success = 0,          error = 0xE00002BC,    noDevice = 0xE00002C0,     badArgument = 0xE00002C2,
    notOpen = 0xE00002CD, timedOut = 0xE00002D6, notPermitted = 0xE00002E2,
};

/// In which direction a report goes.
enum class HIDReportType : uint8_t { input = 0, output = 1, feature = 2 };

/// Property names that every device answers.
inline constexpr std::string_view hidVendorIDKey = "VendorID";
/// USB product identifier.
inline constexpr std::string_view hidProductIDKey = "ProductID";
/// Usage of the first collection.
inline constexpr std::string_view hidPrimaryUsageKey = "PrimaryUsage";
/// Usage page of the first collection.
inline constexpr std::string_view hidPrimaryUsagePageKey = "PrimaryUsagePage";
/// Manufacturer's name.
inline constexpr std::string_view hidManufacturerKey = "Manufacturer";
/// Product's name.
inline constexpr std::string_view hidProductKey = "Product";
/// Serial number.
inline constexpr std::string_view hidSerialNumberKey = "SerialNumber";

/// A number or a text.
using HIDProperty = std::variant<int64_t, std::string>;

/// Input callbacks and removal come on the run loop that the device's manager is scheduled on. Every other
/// member may be called from any thread, from inside an input callback too; requests of several threads are
/// served one after the other and take at most 1 s each.
class MOXEL_EXPORT HIDDevice {
  public:
    /// `report` points into the buffer of registerInputReportCallback(), report ID first.
    using InputReportCallback = void (*)(void *context, HIDStatus result, HIDDevice *sender,
                                         HIDReportType type, uint32_t reportID, uint8_t *report,
                                         size_t length);

    virtual ~HIDDevice() = default;

    /// A property by its name; absent when the device has none.
    [[nodiscard]] virtual std::optional<HIDProperty> property(std::string_view key) const = 0;
    /// The name of the device's registry entry; absent when the device has no entry.
    [[nodiscard]] virtual std::optional<std::string> registryEntryName() const = 0;

    /// Input reports come from now on.
    virtual HIDStatus open() = 0;
    /// No more input reports come.
    virtual HIDStatus close() = 0;

    /// `report` without its identifier, at most 4,095 bytes: the kernel's limit with it is 4,096.
    virtual HIDStatus setReport(HIDReportType type, uint8_t reportID, std::span<const uint8_t> report) = 0;
    /// Reads one report, without its identifier, into `buffer`; `length` is set to the number of bytes
    /// received.
    virtual HIDStatus getReport(HIDReportType type, uint8_t reportID, std::span<uint8_t> buffer,
                                size_t &length) = 0;

    /// Input reports are copied into `buffer` (cut to its size) and handed to the callback. The buffer is
    /// used on the manager's run loop only, so several devices of one manager may share it. Null stops the
    /// callbacks.
    virtual void registerInputReportCallback(std::span<uint8_t> buffer, InputReportCallback callback,
                                             void *context) = 0;

    /// The text that stands for the device in a log line.
    [[nodiscard]] virtual std::string description() const = 0;
};

/// A shared reference to a device.
using HIDDeviceReference = std::shared_ptr<HIDDevice>;

} // namespace moxel
