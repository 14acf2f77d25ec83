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
        command.footer(
            "\nOn a terminal it draws bars and lamps, elsewhere it prints a line for each event. A\n"
            "summary follows on standard error, also after Ctrl-C.\n"
            "\n"
            "Kinds of event: motion, buttons, application (an application event), state (any other\n"
            "state record), added, removed (a device), preferences, sync (of commands), pairing,\n"
            "settings (the settings file changed).\n"
            "\n"
            "When the driver goes away the command ends with exit code 3; with --require only the\n"
            "required kinds count.\n"
            "\n"
            "Examples:\n"
            "  moxelctl monitor\n"
            "      bars and lamps until Ctrl-C\n"
            "  moxelctl monitor --seconds 5 --plain\n"
            "      lines for five seconds\n"
            "  moxelctl monitor --json | jq --unbuffered -c .axes\n"
            "      for programs\n"
            "  moxelctl monitor --events buttons --count 1 --require buttons\n"
            "      wait for a button");
    }

    MonitorOptions options_;
};

} // namespace

std::unique_ptr<Command> makeMonitorCommand() { return std::make_unique<MonitorCommand>(); }

} // namespace moxel::tool
