// "moxelctl monitor": registers with the driver and shows events as they come.
#include "Commands.h"
#include "EventMask.h"
#include "MonitorCommandLine.h"

namespace moxel::tool {

namespace {

class MonitorCommand final : public Command {
  public:
    MonitorCommand() : Command("monitor", "Show events as they come") {}

    int run() override { return monitor(options_); }

  private:
    void describe(CLI::App &command) override {
        addMonitorOptions(command, options_);
        addEventMask(command, "--events,--mask", options_.events, "Events to ask for (default: all)");
        addButtonMask(command, "--buttons", options_.buttons, "Buttons to ask for (default: all)");
        command.footer(R"(
On a terminal it draws bars and lamps, elsewhere it prints a line for each event. A
summary follows on standard error, also after Ctrl-C.

Kinds of event: motion, buttons, application (an application event), state (any other
state record), added, removed (a device), preferences, sync (of commands), pairing,
settings (the settings file changed).

When the driver goes away the command ends with exit code 3; with --require only the
required kinds count.

Examples:
  moxelctl monitor
      bars and lamps until Ctrl-C
  moxelctl monitor --seconds 5 --plain
      lines for five seconds
  moxelctl monitor --json | jq --unbuffered -c .axes
      for programs
  moxelctl monitor --events buttons --count 1 --require buttons
      wait for a button)");
    }

    MonitorOptions options_;
};

} // namespace

std::unique_ptr<Command> makeMonitorCommand() { return std::make_unique<MonitorCommand>(); }

} // namespace moxel::tool
