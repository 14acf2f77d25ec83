// Standard output, whose reader may have had enough.
#pragma once

#include <string>

namespace moxel::tool {

/// Hands everything that was printed to the reader. False once that has failed; a failure that is not the
/// reader's leave has been explained on standard error. On the main thread.
[[nodiscard]] bool flushOutput();

/// Whether it has failed for another reason than that the reader has left.
[[nodiscard]] bool outputIsBroken();

/// Prints a text that is a command's whole result, newline included; an ExitCode. A reader that leaves early
/// is no failure.
[[nodiscard]] int printResult(const std::string &text);

} // namespace moxel::tool
