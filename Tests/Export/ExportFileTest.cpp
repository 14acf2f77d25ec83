// Files in the export base folder: what is written, what is refused, and what a crash leaves.
#include "Export/ExportFile.h"
#include "Support/ExportFolders.h"
#include "Support/PropertyLists.h"

#include <gtest/gtest.h>


namespace moxel {
namespace {

class ExportFile : public ::testing::Test {
  protected:
    test::ExportFolders folders_;
};

TEST_F(ExportFile, IsWrittenAndReadBack) {
    ASSERT_TRUE(makeExportFolder(folders_.base("org.example.Viewer")));
    const std::string path = folders_.base("org.example.Viewer/a.plist");
    ASSERT_TRUE(writeExportFile(path, test::asBytes("old")));
    ASSERT_TRUE(writeExportFile(path, test::asBytes("new")));
    const auto bytes = readExportFile(path);
    ASSERT_TRUE(bytes) << bytes.error().message;
    EXPECT_EQ(std::string(bytes->begin(), bytes->end()), "new");
}

} // namespace
} // namespace moxel
