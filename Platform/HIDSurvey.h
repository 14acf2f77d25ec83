// One look at the platform's HID buses: what stands there, whose it is, and what is wrong with it.
#pragma once

#include "Export.h"
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace moxel {

struct SurveyedDevice {
    enum class State {
        ready,      ///< It answers.
        silent,     ///< It accepts connections and then does not answer.
        stale,      ///< What a publisher that is gone has left behind.
        untrusted,  ///< Its publisher is neither root nor this user.
        malformed,  ///< It breaks the rules of the bus.
        unreachable ///< The system does not let this process connect to it.
    };

    std::string place; ///< Where it is found: a path.
    State state = State::unreachable;
    std::string problem; ///< In words; empty when it is ready.

    /// Who publishes it; absent where that cannot be told.
    std::optional<uint32_t> user;
    std::optional<int32_t> process;
    std::string program; ///< Name of that process; empty where it cannot be told.

    // What it says of itself; empty and 0 when it has said nothing.
    std::string name;
    std::string manufacturer;
    std::string product;
    std::string serialNumber;
    uint16_t vendorID = 0;
    uint16_t productID = 0;
};

struct SurveyedBus {
    enum class State {
        usable,
        missing,   ///< Not there (yet).
        untrusted, ///< It belongs to somebody else, or others may change it.
        unreadable
    };

    std::string place; ///< A path.
    State state = State::unreadable;
    std::string problem;                 ///< In words; empty when it is usable.
    std::vector<SurveyedDevice> devices; ///< By place; at most 256, only of a bus that is usable.
    size_t unseenDevices = 0;            ///< Beyond those.
};

/// Any thread. Every device is asked for a sign of life, all together, for 1 s at most; none is opened. Of
/// the platform's own devices only those of `vendorID` count, and their bus is left out where there are none.
[[nodiscard]] MOXEL_EXPORT std::vector<SurveyedBus> surveyHIDBuses(uint16_t vendorID);

} // namespace moxel
