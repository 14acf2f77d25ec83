#include "TestFolder.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace moxel {

namespace {

/// Its path; empty after an error.
std::string makeFolder() {
    std::error_code error;
    const std::filesystem::path base = std::filesystem::temp_directory_path(error);
    std::string path = ((error ? "/tmp" : base) / "moxel-test-daemon-XXXXXX").string();
    return ::mkdtemp(path.data()) != nullptr ? path : std::string();
}

} // namespace

Result<TestFolder *> TestFolder::ofThisProcess() {
    static TestFolder folder(makeFolder());
    if (folder.path_.empty())
        return Error{"cannot make a temporary folder", 0};
    return &folder;
}

TestFolder::~TestFolder() {
    std::error_code ignored;
    if (!path_.empty())
        std::filesystem::remove_all(path_, ignored);
}

void TestFolder::clear() const {
    std::error_code ignored;
    std::filesystem::remove_all(exports(), ignored);
}

} // namespace moxel
