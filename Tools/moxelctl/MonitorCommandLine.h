// The options that commands which show events have in common.
#pragma once

#include "Monitor.h"

#include <CLI/CLI.hpp>

namespace moxel::tool {

/// --seconds, --count, --name, --json, --plain and --require.
void addMonitorOptions(CLI::App &command, MonitorOptions &options);

} // namespace moxel::tool
