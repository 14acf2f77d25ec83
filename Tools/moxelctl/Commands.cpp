#include "Commands.h"

namespace moxel::tool {

std::vector<std::unique_ptr<Command>> makeCommands() {
    std::vector<std::unique_ptr<Command>> commands;
    commands.push_back(makeListCommand());
    commands.push_back(makeDoctorCommand());
    commands.push_back(makeMonitorCommand());
    commands.push_back(makeControlCommand());
    commands.push_back(makeMaskCommand());
    commands.push_back(makePrefsCommand());
    commands.push_back(makeSendCommand());
    commands.push_back(makeExportCommand());
    commands.push_back(makeCommandsCommand());
    commands.push_back(makeSearchCommand());
    commands.push_back(makeSettingsCommand());
    commands.push_back(makeDumpCommand());
    commands.push_back(makeRecordCommand());
    commands.push_back(makeReplayCommand());
    return commands;
}

} // namespace moxel::tool
