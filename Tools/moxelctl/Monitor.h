// "moxelctl monitor": registers with the driver and shows events as they come.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace moxel::tool {

struct MonitorOptions {
    std::optional<double> seconds;     ///< How long; until interrupted by default.
    std::optional<uint64_t> count;     ///< Ends after so many events.
    std::string name = "moxelctl";     ///< Application name to register under.
    uint32_t mask = 0xFFFFFFFF;        ///< Events wanted.
    bool json = false;                 ///< One JSON object a line.
    bool plain = false;                ///< Lines even on a terminal.
    std::vector<std::string> required; ///< Kinds of event without which the command fails.
};

/// Runs until its end; an exit code.
[[nodiscard]] int monitor(const MonitorOptions &options);

} // namespace moxel::tool
