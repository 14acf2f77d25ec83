// Files are asked what they are once they are open, so that nothing can take their place in between.
#include "Platform/FileContents.h"

#include "Platform/Linux/Descriptor.h"
#include "Platform/Linux/FileReading.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace moxel {

Result<std::vector<uint8_t>> readOpenFile(int file, const std::string &name, size_t limit) {
    struct stat status {};
    if (::fstat(file, &status) != 0)
        return systemError("Cannot read " + name, errno);
    if (!S_ISREG(status.st_mode))
        return Error{name + " is not a regular file", EINVAL};
    const auto size = static_cast<size_t>(status.st_size);
    if (size > limit)
        return Error{name + " is larger than " + std::to_string(limit) + " bytes", EFBIG};
    std::vector<uint8_t> bytes(size);
    for (size_t count = 0; count < size;) {
        const ssize_t got = ::read(file, bytes.data() + count, size - count);
        if (got > 0)
            count += static_cast<size_t>(got);
        else if (got == 0)
            return Error{name + " changed while it was read", EBUSY};
        else if (errno != EINTR)
            return systemError("Cannot read " + name, errno);
    }
    return bytes;
}

Result<std::vector<uint8_t>> readFileContents(const std::string &path, size_t limit) {
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!file)
        return systemError("Cannot open " + path, errno);
    return readOpenFile(file.get(), path, limit);
}

} // namespace moxel
