// A folder for one test, removed with everything in it.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <system_error>

namespace moxel::test {

class TemporaryFolder {
  public:
    TemporaryFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "moxel-test-XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr)
            ADD_FAILURE() << "Cannot make " << name;
        else
            path_ = name;
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        if (!path_.empty())
            std::filesystem::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder &) = delete;
    TemporaryFolder &operator=(const TemporaryFolder &) = delete;

    [[nodiscard]] const std::string &path() const { return path_; }
    /// Where a file of that name lies or would lie.
    [[nodiscard]] std::string path(std::string_view name) const { return path_ + '/' + std::string(name); }

    /// Writes a file and makes the folders that lead to it; its path.
    std::string write(std::string_view name, std::string_view content = {}) const {
        const std::string file = path(name);
        std::filesystem::create_directories(std::filesystem::path(file).parent_path());
        std::ofstream(file, std::ios::binary) << content;
        return file;
    }

  private:
    std::string path_;
};

} // namespace moxel::test
