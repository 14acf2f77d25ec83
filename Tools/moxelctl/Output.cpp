#include "Output.h"

#include "Complaint.h"
#include "ExitCode.h"
#include "Platform/Result.h"

#include <cerrno>
#include <cstdio>

namespace moxel::tool {

namespace {

/// What went wrong first; a stream forgets it, and fails silently from then on.
int firstError = 0;

} // namespace

bool flushOutput() {
    if (firstError == 0 && (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)) {
        firstError = errno == 0 ? EIO : errno;
        if (outputIsBroken())
            complain(systemError("cannot write to standard output", firstError).message);
    }
    return firstError == 0;
}

/// Interrupted: by a signal that asks the program to end, while a reader was slow.
bool outputIsBroken() {
    return firstError != 0 && firstError != EPIPE && firstError != EBADF && firstError != EINTR;
}

int printResult(const std::string &text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
    return flushOutput() || !outputIsBroken() ? success : failure;
}

} // namespace moxel::tool
