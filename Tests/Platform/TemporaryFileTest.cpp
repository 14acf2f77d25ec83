// Temporary files: their names, leftovers, and what stands in their way.
#include "Platform/Linux/TemporaryFile.h"
#include "Platform/Linux/Descriptor.h"
#include "Support/PropertyLists.h"
#include "Support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <sys/file.h>
#include <sys/stat.h>
#include <vector>

namespace moxel {
namespace {

namespace fs = std::filesystem;

class TemporaryFiles : public ::testing::Test {
  protected:
    Result<TemporaryFile> create() const { return TemporaryFile::create(descriptor_.get()); }
    /// Writes one file from beginning to end.
    void replace(const std::string &name, std::string_view content) const {
        auto file = create();
        ASSERT_TRUE(file) << file.error().message;
        const std::span bytes(reinterpret_cast<const uint8_t *>(content.data()), content.size());
        ASSERT_TRUE(file->write(bytes));
        ASSERT_TRUE(file->renameTo(name));
    }
    [[nodiscard]] std::string content(std::string_view name) const {
        std::ifstream file(folder_.path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    [[nodiscard]] size_t count() const {
        return static_cast<size_t>(
            std::distance(fs::directory_iterator(folder_.path()), fs::directory_iterator()));
    }

    test::TemporaryFolder folder_;
    Descriptor descriptor_{::open(folder_.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
};

TEST_F(TemporaryFiles, IsRemovedUnlessItTookItsPlace) {
    {
        const auto file = create();
        ASSERT_TRUE(file);
        EXPECT_TRUE(fs::exists(folder_.path(".moxel-0.tmp")));
    }
    EXPECT_EQ(count(), 0u);
}

TEST_F(TemporaryFiles, LeftoverIsReplaced) {
    folder_.write(".moxel-0.tmp", "left by a crash");
    replace("a", "new");
    EXPECT_EQ(content("a"), "new");
    EXPECT_EQ(count(), 1u);
}

TEST_F(TemporaryFiles, FileThatAnotherWriterLockedIsLeftAlone) {
    folder_.write(".moxel-0.tmp", "being written");
    const Descriptor other(::open(folder_.path(".moxel-0.tmp").c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_EQ(::flock(other.get(), LOCK_EX), 0);
    replace("a", "new");
    EXPECT_EQ(content(".moxel-0.tmp"), "being written");
    EXPECT_EQ(content("a"), "new");
}

TEST_F(TemporaryFiles, LinkUnderItsNameIsRemovedAndNotFollowed) {
    const std::string target = folder_.write("target", "precious");
    fs::create_symlink(target, folder_.path(".moxel-0.tmp"));
    replace("a", "new");
    EXPECT_EQ(content("target"), "precious");
    EXPECT_EQ(content("a"), "new");
    EXPECT_FALSE(fs::is_symlink(folder_.path(".moxel-0.tmp")));
}

TEST_F(TemporaryFiles, HardLinkUnderItsNameKeepsItsContent) {
    const std::string target = folder_.write("target", "precious");
    fs::create_hard_link(target, folder_.path(".moxel-0.tmp"));
    replace("a", "new");
    EXPECT_EQ(content("target"), "precious");
    EXPECT_EQ(content("a"), "new");
}

TEST_F(TemporaryFiles, PipeUnderItsNameIsReplaced) {
    ASSERT_EQ(::mkfifo(folder_.path(".moxel-0.tmp").c_str(), 0600), 0);
    replace("a", "new");
    EXPECT_EQ(content("a"), "new");
    EXPECT_EQ(count(), 1u);
}

TEST_F(TemporaryFiles, FolderUnderItsNameIsPassedOver) {
    fs::create_directory(folder_.path(".moxel-0.tmp"));
    replace("a", "new");
    EXPECT_EQ(content("a"), "new");
    EXPECT_TRUE(fs::is_directory(folder_.path(".moxel-0.tmp")));
}

TEST_F(TemporaryFiles, ThereIsAnErrorWhenAllNamesAreInUse) {
    std::vector<TemporaryFile> files;
    for (;;) {
        auto file = create();
        if (!file) {
            EXPECT_EQ(file.error().message, "Cannot make a temporary file: all its names are in use");
            break;
        }
        files.push_back(std::move(*file));
        ASSERT_LE(files.size(), 1000u);
    }
    EXPECT_EQ(files.size(), 64u);
    files.pop_back();
    EXPECT_TRUE(create());
}

} // namespace
} // namespace moxel
