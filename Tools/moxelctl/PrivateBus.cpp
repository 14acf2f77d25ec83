#include "PrivateBus.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace moxel::tool {

Result<PrivateBus> PrivateBus::create() {
    std::error_code error;
    std::string folder = (std::filesystem::temp_directory_path(error) / "moxel-bus-XXXXXX").string();
    if (error || ::mkdtemp(folder.data()) == nullptr)
        return systemError("cannot make a folder for a bus", error ? error.value() : errno);
    ::setenv("MOXEL_HID_BUS", folder.c_str(), 1); // NOLINT(concurrency-mt-unsafe): there is one thread
    return PrivateBus(std::move(folder));
}

PrivateBus::~PrivateBus() {
    std::error_code ignored;
    if (!folder_.empty())
        std::filesystem::remove_all(folder_, ignored);
}

} // namespace moxel::tool
