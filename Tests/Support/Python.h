// The Python interpreter that tests compare against.
#pragma once

#include "Support/Subprocess.h"

namespace moxel::test {

/// Whether the build found an interpreter.
inline bool hasPython() { return !std::string_view(MOXEL_PYTHON).ends_with("NOTFOUND"); }

/// Runs a script with the given standard input; arguments begin at sys.argv[1].
inline SubprocessResult runPython(const std::string &script, std::string_view input = {},
                                  const std::vector<std::string> &arguments = {}) {
    std::vector<std::string> all = {"-I", "-c", script};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return runSubprocess(MOXEL_PYTHON, all, input);
}

} // namespace moxel::test
