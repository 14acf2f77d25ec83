// The temporary folder in which a process's test daemons have their bus and applications their exports.
#pragma once

#include "Platform/Result.h"

#include <string>

namespace moxel {

/// There is one for the whole process, because the library looks once for where exports lie.
class TestFolder {
  public:
    /// Made at the first call, removed when the process ends. Any thread.
    [[nodiscard]] static Result<TestFolder *> ofThisProcess();

    ~TestFolder();
    TestFolder(const TestFolder &) = delete;
    TestFolder &operator=(const TestFolder &) = delete;

    [[nodiscard]] std::string bus() const { return path_ + "/bus"; }
    /// What XDG_CONFIG_HOME names.
    [[nodiscard]] std::string configuration() const { return path_ + "/config"; }
    [[nodiscard]] std::string exports() const { return configuration() + "/Preferences/Moxel/Applications"; }
    /// Forgets what applications have exported.
    void clear() const;

  private:
    explicit TestFolder(std::string path) : path_(std::move(path)) {}

    std::string path_; ///< Empty when the folder could not be made.
};

} // namespace moxel
