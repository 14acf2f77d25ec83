// The platform's own log, behind logLine().
#pragma once

#include "Log.h"

#include <string_view>

namespace moxel {

/// Hands one line to the platform's log. Any thread. A line that cannot be written is lost.
void writeSystemLog(LogLevel level, std::string_view line);

} // namespace moxel
