#include "Helpers/FileContents.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <system_error>

namespace moxel {

namespace {

constexpr uintmax_t largestFile = uintmax_t{1} << 30;

struct FileCloser {
    void operator()(std::FILE *file) const noexcept {
        // Nothing was written, so closing cannot lose anything.
        [[maybe_unused]] const int result = std::fclose(file);
    }
};

} // namespace

Result<std::vector<uint8_t>> readFileContents(const std::string &path) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error))
        return error ? systemError("Cannot read " + path, error.value())
                     : Error{path + " is not a regular file"};
    const uintmax_t size = std::filesystem::file_size(path, error);
    if (error)
        return systemError("Cannot read " + path, error.value());
    if (size > largestFile)
        return Error{path + " is larger than 1 GiB"};
    const std::unique_ptr<std::FILE, FileCloser> file(std::fopen(path.c_str(), "rb"));
    if (!file)
        return systemError("Cannot open " + path, errno);
    std::vector<uint8_t> bytes(size);
    bytes.resize(std::fread(bytes.data(), 1, bytes.size(), file.get()));
    if (bytes.size() != size)
        return Error{path + " changed while it was read"};
    return bytes;
}

} // namespace moxel
