// What moxelctl's exit codes mean.
#pragma once

namespace moxel::tool {

enum ExitCode : int {
    success = 0,
    failure = 1,       ///< The command ran and did not get what it wanted.
    usageError = 2,    ///< The command line makes no sense.
    noDriver = 3,      ///< No daemon answers.
    notRegistered = 4, ///< The daemon answers but does not register the program.
};

} // namespace moxel::tool
