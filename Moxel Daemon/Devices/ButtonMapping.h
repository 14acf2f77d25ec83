// Turns the button events of an input device into the button mask.
#pragma once

#include "Moxel Daemon/Devices/InputCapabilities.h"

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <linux/input.h>
#include <vector>

namespace moxel::daemon {

/// A device's buttons are numbered in the order of their codes, without gaps; those after the 32nd, and keys
/// that are no buttons, are ignored.
///
/// Pure. One thread.
class ButtonMapping {
  public:
    static constexpr size_t buttonLimit = 32;

    /// `pressed` are the keys that are down already.
    explicit ButtonMapping(const InputCapabilities &capabilities, const std::bitset<KEY_CNT> &pressed = {});

    [[nodiscard]] size_t buttonCount() const noexcept { return codes_.size(); }

    /// Notes an event; one of another type or code is ignored.
    void take(const input_event &event);
    /// The report is whole. True when buttons() have changed.
    [[nodiscard]] bool endReport();

    /// The buttons that are down, one bit each.
    [[nodiscard]] uint32_t buttons() const noexcept { return buttons_; }

  private:
    std::vector<uint16_t> codes_; ///< In their order.
    uint32_t buttons_ = 0;
    uint32_t reported_ = 0; ///< With the changes of the report that is being taken.
};

} // namespace moxel::daemon
