// What the kernel writes to the publisher of a HID device, and what any device's description makes the
// publisher write.
#include "Fuzzers/FuzzInput.h"
#include "Moxel Daemon/Kernel/UhidMessages.h"

#include <functional>

using namespace moxel;
using fuzz::FuzzInput;

namespace {

void readEvent(std::span<const uint8_t> message) {
    const auto event = daemon::parseUhidEvent(message);
    if (!event)
        return;
    const std::less_equal<> isBefore;
    if (!event->report.empty()) {
        fuzz::require(isBefore(message.data(), event->report.data()));
        fuzz::require(isBefore(event->report.data() + event->report.size(), message.data() + message.size()));
    }
    (void)daemon::uhidSetReply(event->request.value_or(0), HIDStatus::success);
    const daemon::Data reply =
        daemon::uhidGetReply(event->request.value_or(0), event->reportID, HIDStatus::success, event->report);
    fuzz::require(reply.size() <= sizeof(uhid_event));
}

void describeDevice(FuzzInput &input) {
    daemon::DeviceDescription device;
    device.name = input.text(300);
    device.manufacturer = input.text(300);
    device.serialNumber = input.text(300);
    device.primaryUsagePage = input.number<uint16_t>();
    device.primaryUsage = input.number<uint16_t>();
    if (const auto message = daemon::uhidCreateMessage(device))
        fuzz::require(message->size() <= sizeof(uhid_event));
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) { return 0; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzInput input(data, size);
    readEvent(input.bytes(sizeof(uhid_event) + 16));
    describeDevice(input);
    fuzz::require(daemon::uhidInputMessage(input.bytes(300)).size() <= sizeof(uhid_event));
    return 0;
}
