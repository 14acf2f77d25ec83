// All commands of moxelctl; a new one is added here and in makeCommands().
#pragma once

#include "Command.h"

#include <memory>
#include <vector>

namespace moxel::tool {

[[nodiscard]] std::unique_ptr<Command> makeListCommand();
[[nodiscard]] std::unique_ptr<Command> makeDoctorCommand();
[[nodiscard]] std::unique_ptr<Command> makeMonitorCommand();
[[nodiscard]] std::unique_ptr<Command> makeControlCommand();
[[nodiscard]] std::unique_ptr<Command> makeMaskCommand();
[[nodiscard]] std::unique_ptr<Command> makePrefsCommand();
[[nodiscard]] std::unique_ptr<Command> makeSendCommand();
[[nodiscard]] std::unique_ptr<Command> makeExportCommand();
[[nodiscard]] std::unique_ptr<Command> makeCommandsCommand();
[[nodiscard]] std::unique_ptr<Command> makeSearchCommand();
[[nodiscard]] std::unique_ptr<Command> makeSettingsCommand();
[[nodiscard]] std::unique_ptr<Command> makeDumpCommand();
[[nodiscard]] std::unique_ptr<Command> makeRecordCommand();
[[nodiscard]] std::unique_ptr<Command> makeReplayCommand();

/// In the order in which the help lists them.
[[nodiscard]] std::vector<std::unique_ptr<Command>> makeCommands();

} // namespace moxel::tool
