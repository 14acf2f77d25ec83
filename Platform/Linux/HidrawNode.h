// The hidraw nodes that the system has, looked at without being opened.
#pragma once

#include "Platform/Linux/BusMessage.h"
#include "Platform/Result.h"

#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace moxel {

struct HidrawNode {
    std::string place;   ///< "/dev/hidraw3".
    std::string sysPath; ///< Never used again for another device, unlike the number in `place`.
    BusDeviceProperties properties;
    bool numbersReports = false;
};

/// "hidraw3", not "hidraw" or "hidraw3x".
[[nodiscard]] bool isHidrawName(std::string_view name);

/// Names such as "hidraw3", in any order.
[[nodiscard]] Result<std::vector<std::string>> hidrawNames();

/// Absent when there is no such device, no node for it, or nothing sensible to be told about it; an error
/// when the process has too little left to look (descriptors, memory). Any thread.
[[nodiscard]] Result<std::optional<HidrawNode>> readHidrawNode(const std::string &name);

/// True when nobody is going to change the node's rights: udev has set them, or does not run.
[[nodiscard]] bool hasFinalRights(const HidrawNode &node);

/// Tells whether this process may use the node, without opening it.
[[nodiscard]] Result<void> checkRights(const HidrawNode &node);

/// The path of the device that a device number stands for now; empty when there is none, an error as above.
[[nodiscard]] Result<std::string> sysPathOfNumber(dev_t number);

/// A udev rule that lets the user at the machine use devices of that vendor.
[[nodiscard]] std::string udevRuleForVendor(uint16_t vendorID);

} // namespace moxel
