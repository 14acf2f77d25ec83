// The events that a line of a trace can name.
#pragma once

#include "Moxel Daemon/Motion/Trace.h"
#include "Moxel Daemon/Motion/TraceLine.h"

namespace moxel::daemon {

/// The event of a line; the error says what is wrong with its arguments.
[[nodiscard]] Result<TraceEvent> traceEvent(const TraceLine &line);

} // namespace moxel::daemon
