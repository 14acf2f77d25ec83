// moxelctl: what a person at a terminal wants from the driver.
#include "Commands.h"
#include "Complaint.h"
#include "ExitCode.h"

#include <algorithm>
#include <clocale>
#include <csignal>
#include <exception>

namespace moxel::tool {

namespace {

constexpr const char *footer = R"(
moxelctl COMMAND --help shows the options of a command, and examples.

Exit codes:
  0  success
  1  the command did not get what it wanted
  2  wrong usage
  3  no driver answers, or it went away
  4  the driver does not register this program
  5  the driver does not answer a request

Environment:
  MOXEL_HID_BUS  the folder of the bus (default: $XDG_RUNTIME_DIR/moxel/hid, else /run/moxel/hid)
  MOXEL_LOG      stderr shows every step of the library, off none (default: the system's log))";

int runProgram(int argumentCount, char **arguments) {
    CLI::App program("Looks at the driver for 3D motion controllers and talks to it.", "moxelctl");
    program.require_subcommand(1);
    program.footer(footer);
    const std::vector<std::unique_ptr<Command>> commands = makeCommands();
    for (const std::unique_ptr<Command> &command : commands)
        command->addTo(program);
    try {
        program.parse(argumentCount, arguments);
    } catch (const CLI::ParseError &error) {
        return program.exit(error) == 0 ? success : usageError;
    }
    const auto chosen =
        std::ranges::find_if(commands, [](const auto &command) { return command->isChosen(); });
    return (*chosen)->run();
}

} // namespace

} // namespace moxel::tool

int main(int argumentCount, char **arguments) {
    std::setlocale(LC_CTYPE, "");  // NOLINT(concurrency-mt-unsafe): there is no other thread yet
    std::signal(SIGPIPE, SIG_IGN); // A reader that has had enough is no reason to leave without goodbye.
    try {
        return moxel::tool::runProgram(argumentCount, arguments);
    } catch (const std::exception &exception) {
        moxel::tool::complain(exception.what());
        return moxel::tool::failure;
    }
}
