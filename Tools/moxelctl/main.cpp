// moxelctl: what a person at a terminal wants from the driver.
#include "ExitCode.h"
#include "Monitor.h"

#include <CLI/CLI.hpp>

using namespace moxel::tool;

namespace {

void addMonitor(CLI::App &application, MonitorOptions &options) {
    CLI::App &command = *application.add_subcommand("monitor", "Show events as they come");
    command.add_option("--seconds", options.seconds, "End after so many seconds")
        ->check(CLI::NonNegativeNumber);
    command.add_option("--count", options.count, "End after so many events");
    command.add_option("--name", options.name, "Application name to register under")->capture_default_str();
    command.add_option("--mask", options.mask, "Events wanted, as a bit mask")->default_str("0xFFFFFFFF");
    command.add_flag("--json", options.json, "Print one JSON object for each event");
    command.add_flag("--plain", options.plain, "Print lines even on a terminal");
    command
        .add_option("--require", options.required, "Fail unless an event of this kind came (may be repeated)")
        ->check(CLI::IsMember({"motion", "buttons", "application", "state", "added", "removed", "preferences",
                               "sync", "pairing", "settings"}));
    command.footer("Examples:\n"
                   "  moxelctl monitor                       bars and lamps until Ctrl-C\n"
                   "  moxelctl monitor --seconds 5 --plain   lines for five seconds\n"
                   "  moxelctl monitor --json | jq .axes     for programs");
}

} // namespace

int main(int argc, char **argv) {
    CLI::App application("Looks at the Moxel driver and talks to it.", "moxelctl");
    application.require_subcommand(1);
    application.footer("Exit codes: 0 success, 1 failure, 2 wrong usage, 3 no driver, 4 not registered.");
    MonitorOptions monitorOptions;
    addMonitor(application, monitorOptions);
    try {
        application.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return application.exit(error) == 0 ? success : usageError;
    }
    return monitor(monitorOptions);
}
