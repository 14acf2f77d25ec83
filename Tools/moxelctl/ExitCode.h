// What moxelctl's exit codes mean.
#pragma once

namespace moxel::tool {

enum ExitCode : int {
    success = 0,
    failure = 1,       ///< The command ran and did not get what it wanted.
    usageError = 2,    ///< The command line makes no sense.
    noDriver = 3,      ///< No driver answers, or it went away.
    notRegistered = 4, ///< The driver answers but does not register the program.
    noAnswer = 5,      ///< The driver registered the program but does not answer a request.
};

} // namespace moxel::tool
