#include "TraceFile.h"

#include "Platform/Linux/Descriptor.h"
#include "TraceText.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>

namespace moxel::tool {

Result<TraceFile> TraceFile::create(const std::string &path, bool overwrites) {
    if (path == "-")
        return TraceFile(stdout, "standard output");
    const int flags = O_WRONLY | O_CREAT | O_CLOEXEC | (overwrites ? O_TRUNC : O_EXCL);
    Descriptor descriptor(::open(path.c_str(), flags, 0666));
    FILE *const file = descriptor ? ::fdopen(descriptor.get(), "w") : nullptr;
    if (file == nullptr)
        return systemError("cannot write " + path, errno);
    (void)descriptor.release(); // The stream closes it.
    return TraceFile(file, path);
}

void TraceFile::add(std::chrono::duration<double> time, const std::string &text) {
    // Handlers of several threads may have looked at the clock in another order than they got in here.
    latest_ = std::max(latest_, time);
    if (text.starts_with('#'))
        std::fprintf(file_.get(), "%s\n", text.c_str());
    else
        std::fprintf(file_.get(), "%s %s\n", traceTime(latest_).c_str(), text.c_str());
}

Result<void> TraceFile::flush() {
    errno = 0;
    if (std::fflush(file_.get()) == 0 && std::ferror(file_.get()) == 0)
        return {};
    return systemError("cannot write " + name_, errno == 0 ? EIO : errno);
}

} // namespace moxel::tool
