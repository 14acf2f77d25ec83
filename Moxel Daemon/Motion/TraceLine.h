// One line of a trace, taken apart into its time stamp, its keyword and its arguments.
#pragma once

#include "Moxel Daemon/Archive/Value.h"
#include "Platform/Result.h"

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace moxel::daemon {

/// When a line happens. Without a time stamp: together with the line before it.
struct TraceTime {
    std::chrono::nanoseconds seconds{0};
    bool isRelative = true; ///< To the line before it; else to the start of the block.
};

struct TraceArgument {
    std::string key; ///< Empty for an argument that has none.
    std::string text;
    bool isQuoted = false;

    /// A quoted text is a string, others are numbers, true or false; absent for anything else.
    [[nodiscard]] std::optional<Value> value() const;
};

struct TraceLine {
    TraceTime time;
    std::string keyword; ///< Empty for a line that holds nothing.
    std::vector<TraceArgument> arguments;
};

[[nodiscard]] Result<TraceLine> readTraceLine(std::string_view line);

} // namespace moxel::daemon
