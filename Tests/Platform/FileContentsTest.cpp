// Whole files: what is read, and what is refused without waiting.
#include "Platform/FileContents.h"
#include "Support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

namespace moxel {
namespace {

class FileContents : public ::testing::Test {
  protected:
    [[nodiscard]] int codeOf(const std::string &path, size_t limit = 100) const {
        const auto bytes = readFileContents(path, limit);
        EXPECT_FALSE(bytes.ok());
        return bytes.ok() ? 0 : bytes.error().code;
    }

    test::TemporaryFolder folder_;
};

TEST_F(FileContents, AreAllBytesOfTheFileBehindALinkToo) {
    std::ofstream(folder_.path("file")) << std::string("a\0b", 3);
    ASSERT_EQ(::symlink("file", folder_.path("link").c_str()), 0);
    for (const char *name : {"file", "link"}) {
        const auto bytes = readFileContents(folder_.path(name), 3);
        ASSERT_TRUE(bytes.ok());
        EXPECT_EQ(*bytes, (std::vector<uint8_t>{'a', 0, 'b'}));
    }
}

TEST_F(FileContents, AreRefusedWhenTheyAreLargerThanTheLimit) {
    std::ofstream(folder_.path("file")) << "abcd";
    EXPECT_EQ(codeOf(folder_.path("file"), 3), EFBIG);
}

TEST_F(FileContents, OfWhatIsNoRegularFileAreNotWaitedFor) {
    ASSERT_EQ(::mkfifo(folder_.path("pipe").c_str(), 0600), 0);
    EXPECT_EQ(codeOf(folder_.path("pipe")), EINVAL);
    EXPECT_EQ(codeOf(folder_.path()), EINVAL);
    EXPECT_EQ(codeOf("/dev/zero"), EINVAL);
}

TEST_F(FileContents, OfAMissingFileAreTheSystemsError) { EXPECT_EQ(codeOf(folder_.path("missing")), ENOENT); }

} // namespace
} // namespace moxel
