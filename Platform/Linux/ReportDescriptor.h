// What a HID report descriptor says of its device as a whole.
#pragma once

#include <cstdint>
#include <span>

namespace moxel {

struct ReportDescriptorSummary {
    uint16_t usagePage = 0; ///< Of the first application collection; 0 when there is none.
    uint16_t usage = 0;
    bool numbersReports = false; ///< Reports begin with an identifier.

    bool operator==(const ReportDescriptorSummary &) const = default;
};

/// Total: what breaks off or makes no sense is read as far as it goes. Constant memory. Any thread.
[[nodiscard]] ReportDescriptorSummary summarizeReportDescriptor(std::span<const uint8_t> descriptor);

} // namespace moxel
