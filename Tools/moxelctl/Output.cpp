#include "Output.h"

#include "Complaint.h"
#include "ExitCode.h"
#include "Platform/Result.h"

#include <cerrno>
#include <cstdio>

namespace moxel::tool {

namespace {

bool readerLeft(int error) { return error == EPIPE || error == EBADF; }

/// 0 or what went wrong first.
int flushError() {
    static int firstError = 0; // A stream forgets it, and fails silently from then on.
    if (firstError == 0 && (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)) {
        firstError = errno == 0 ? EIO : errno;
        if (!readerLeft(firstError) && firstError != EINTR)
            complain(systemError("cannot write to standard output", firstError).message);
    }
    return firstError;
}

} // namespace

bool flushOutput() { return flushError() == 0; }

int printResult(const std::string &text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
    const int error = flushError();
    return error == 0 || readerLeft(error) ? success : failure;
}

} // namespace moxel::tool
