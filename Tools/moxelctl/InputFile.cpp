#include "InputFile.h"

#include "Platform/Linux/Descriptor.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace moxel::tool {

namespace {

constexpr size_t readSize = size_t{64} << 10;

Result<std::vector<uint8_t>> readToEnd(int descriptor, const std::string &name) {
    std::vector<uint8_t> content;
    for (;;) {
        const size_t size = content.size();
        if (size > inputLimit)
            return Error{name + " is too large: more than 64 MiB"};
        content.resize(size + readSize);
        const ssize_t got = ::read(descriptor, content.data() + size, readSize);
        const int error = errno;
        content.resize(size + static_cast<size_t>(got > 0 ? got : 0));
        if (got == 0)
            return content;
        if (got < 0 && error != EINTR)
            return systemError("cannot read " + name, error);
    }
}

} // namespace

Result<std::vector<uint8_t>> readInput(const std::string &path) {
    if (path == "-")
        return readToEnd(STDIN_FILENO, inputName(path));
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file)
        return systemError("cannot read " + path, errno);
    return readToEnd(file.get(), path);
}

std::string inputName(const std::string &path) { return path == "-" ? "standard input" : path; }

} // namespace moxel::tool
