#include "MonitorCommandLine.h"

namespace moxel::tool {

void addMonitorOptions(CLI::App &command, MonitorOptions &options) {
    command.add_option("--seconds", options.seconds, "End after so many seconds")
        ->check(CLI::Range(0.0, 1e9))
        ->type_name("N");
    command.add_option("--count", options.count, "End after so many events")->type_name("N");
    command.add_option("--name", options.name, "Application name to register under")
        ->type_name("TEXT")
        ->capture_default_str();
    command.add_flag("--json", options.json, "Print a JSON object for each event, one a line");
    command.add_flag("--plain", options.plain, "Print lines even on a terminal");
    command
        .add_option("--require", options.required, "Fail unless an event of this kind came; may be repeated")
        ->allow_extra_args(false)
        ->check(CLI::IsMember({"motion", "buttons", "application", "state", "added", "removed", "preferences",
                               "sync", "pairing", "settings"}))
        ->type_name("KIND");
}

} // namespace moxel::tool
