// Bus, export and data folders of a benchmark's own.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace moxel::benchmarks {

/// One, made before the library is used: the library reads the environment. Logging is off unless MOXEL_LOG
/// says otherwise.
class PrivateFolders {
  public:
    PrivateFolders() : path_((std::filesystem::temp_directory_path() / "moxel-benchmark-XXXXXX").string()) {
        if (::mkdtemp(path_.data()) == nullptr)
            std::abort();
        std::filesystem::create_directory(bus());
        std::filesystem::permissions(bus(), std::filesystem::perms::owner_all);
        ::setenv("MOXEL_HID_BUS", bus().c_str(), 1);
        ::setenv("MOXEL_HIDRAW", "off", 1);
        ::setenv("XDG_CONFIG_HOME", path("config").c_str(), 1);
        ::setenv("XDG_DATA_DIRS", MOXEL_DATA_FOLDER, 1);
        ::setenv("MOXEL_LOG", "off", 0);
    }
    ~PrivateFolders() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    PrivateFolders(const PrivateFolders &) = delete;
    PrivateFolders &operator=(const PrivateFolders &) = delete;

    [[nodiscard]] std::string path(const std::string &name) const { return path_ + '/' + name; }
    [[nodiscard]] std::string bus() const { return path("bus"); }

  private:
    std::string path_;
};

} // namespace moxel::benchmarks
