// An open input device as the daemon reads it.
#pragma once

#include "Moxel Daemon/Devices/AxisMapping.h"
#include "Moxel Daemon/Devices/InputCapabilities.h"

#include <bitset>
#include <cstdint>
#include <linux/input.h>
#include <string>

namespace moxel::daemon {

/// What a device tells of itself; nothing of it is to be trusted.
struct InputDescription {
    std::string name;
    uint16_t vendorID = 0;
    uint16_t productID = 0;
    InputCapabilities capabilities;
    AxisRanges ranges{};
    std::bitset<KEY_CNT> pressed; ///< Keys that were down when it was opened.
};

/// Lives on one thread.
class InputReader {
  public:
    enum class Outcome {
        event, ///< The next event is there.
        idle,  ///< There is none for now.
        gone,  ///< The device has been unplugged or can't be read any more.
    };

    virtual ~InputReader() = default;

    [[nodiscard]] virtual const InputDescription &description() const = 0;
    /// Readable when there may be events.
    [[nodiscard]] virtual int descriptor() const = 0;
    /// Never blocks. Reports end with SYN_REPORT. SYN_DROPPED tells that events were lost; the ones after it
    /// tell what has become of buttons and absolute axes meanwhile.
    [[nodiscard]] virtual Outcome next(input_event &event) = 0;
    /// True when events have been read from the descriptor, which need not be ready any more, but not been
    /// taken.
    [[nodiscard]] virtual bool hasMore() const = 0;
};

} // namespace moxel::daemon
