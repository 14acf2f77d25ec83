// Images that an application exports: their files, requests, results and log lines.
#include "Export/ExportFunctions.h"
#include "Support/PlistJSON.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <sys/resource.h>
#include <sys/stat.h>

namespace moxel {
namespace {

using test::ExportFunctions;
using test::jsonFromPlistlib;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;
namespace fs = std::filesystem;

class WriteImages : public ExportFunctions {};

class ImageList {
  public:
    ImageList() {
        images_[0].type = 1;
        images_[0].id = "copy";
        images_[0].file = {"/icons/copy.png", 3};
        images_[1].type = 3;
        images_[1].id = "paste";
        images_[1].image = {reinterpret_cast<const uint8_t *>("bytes"), 5, 7};
    }
    MoxelImage_s &operator[](size_t index) { return images_[index]; }
    [[nodiscard]] const MoxelImage_s *data() const { return images_.data(); }
    [[nodiscard]] size_t size() const { return images_.size(); }

  private:
    std::array<MoxelImage_s, 2> images_{};
};

TEST_F(WriteImages, PutTheListIntoAFileAndTheirBytesIntoOthers) {
    const ImageList images;
    EXPECT_EQ(MoxelClientWriteImages(exporter.identifier, 0x6D76696D, images.data(), images.size()), 0);
    EXPECT_EQ(
        jsonFromPlistlib(contentOf(exporter.imagesPath())),
        "{\"Images\": {\"copy\": {\"imagetype\": \"file\", \"index\": 3, \"path\": \"/icons/copy.png\"}, "
        "\"paste\": {\"imagetype\": \"imagedata\", \"index\": 7, \"path\": \"" +
            exporter.folder() + "/imagedata/paste.imgdata\"}}}");
    EXPECT_EQ(contentOf(exporter.folder() + "/imagedata/paste.imgdata"), "bytes");
}

TEST_F(WriteImages, TellTheDaemonThePathByTheWordThatItExpects) {
    const ImageList images;
    EXPECT_EQ(MoxelClientWriteImages(exporter.identifier, 0x6D76696D, images.data(), images.size()), 0);
    EXPECT_THAT(exporter.requests(),
                ElementsAre(request("moxclientwrite", "cswriteimgages", exporter.imagesPath())));
    EXPECT_EQ(exporter.client->applicationInfo()->imagesFile(), Value(exporter.imagesPath()));
}

TEST_F(WriteImages, LogTheirEntry) {
    const ImageList images;
    EXPECT_EQ(MoxelClientWriteImages(exporter.identifier, 0x6D76696D, images.data(), images.size()), 0);
    EXPECT_THAT(log.lines(),
                ElementsAre(format("*** %s, client=%@", writeImages, address()),
                            HasSubstr("**** New data placed in Storage"), StartsWith("<<<< ====")));
}

TEST_F(WriteImages, MergeWithThoseOfTheFile) {
    exporter.store.writeList(
        exporter.imagesPath(),
        Dictionary{{"Images", Dictionary{{"copy", "old"}, {"cut", "kept"}}}, {"Other", 1}},
        PropertyListFormat::binary);
    const ImageList images;
    EXPECT_EQ(MoxelClientWriteImages(exporter.identifier, 0x6D76696D, images.data(), 1), 0);
    EXPECT_EQ(
        jsonFromPlistlib(contentOf(exporter.imagesPath())),
        "{\"Images\": {\"copy\": {\"imagetype\": \"file\", \"index\": 3, \"path\": \"/icons/copy.png\"}, "
        "\"cut\": \"kept\"}, \"Other\": 1}");
}

TEST_F(WriteImages, OfADictionaryReplaceAllImages) {
    exporter.store.writeList(exporter.imagesPath(),
                             Dictionary{{"Images", Dictionary{{"cut", "old"}}}, {"Other", 1}});
    const Dictionary images{{"copy", Dictionary{{"imagetype", "glyph"}}}};
    EXPECT_EQ(MoxelClientWriteImages(exporter.identifier, 0x6D766473, &images, 1), 0);
    EXPECT_EQ(jsonFromPlistlib(contentOf(exporter.imagesPath())),
              "{\"Images\": {\"copy\": {\"imagetype\": \"glyph\"}}, \"Other\": 1}");
    const Dictionary null;
    EXPECT_EQ(MoxelClientWriteImages(exporter.identifier, 0x6D766473, &null, 1), -1);
    EXPECT_EQ(log.countStarting(format("Error: %s: ", writeImages)), 1U);
}

TEST_F(WriteImages, OfAnUnknownTypeRewriteTheFileUnchangedAndStillNotifyTheDaemon) {
    exporter.store.writeList(exporter.imagesPath(),
                             Dictionary{{"Images", Dictionary{{"cut", "kept"}}}, {"Other", 1}});
    struct stat before {};
    struct stat after {};
    ASSERT_EQ(::stat(exporter.imagesPath().c_str(), &before), 0);
    EXPECT_EQ(MoxelClientWriteImages(exporter.identifier, 0x12345678, "x", 1), 0);
    ASSERT_EQ(::stat(exporter.imagesPath().c_str(), &after), 0);
    EXPECT_NE(before.st_ino, after.st_ino) << "it was not written";
    EXPECT_EQ(jsonFromPlistlib(contentOf(exporter.imagesPath())),
              "{\"Images\": {\"cut\": \"kept\"}, \"Other\": 1}");
    EXPECT_THAT(exporter.requests(), ::testing::SizeIs(1));
    fs::remove(exporter.imagesPath());
    EXPECT_EQ(MoxelClientWriteImages(exporter.identifier, 0x12345678, "x", 1), 0);
    EXPECT_EQ(jsonFromPlistlib(contentOf(exporter.imagesPath())), "{}");
}

TEST_F(WriteImages, WithoutDataOrCountFailAtOnce) {
    const ImageList images;
    EXPECT_EQ(whileTheClassLockIsHeld([] { return MoxelClientWriteImages(1, 0x6D76696D, nullptr, 1); }), -1);
    EXPECT_EQ(
        whileTheClassLockIsHeld([&] { return MoxelClientWriteImages(1, 0x6D76696D, images.data(), 0); }), -1);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(WriteImages, IdentifiersThatWouldLeaveTheFolderAreRefused) {
    ImageList images;
    for (const char *identifier : {"../../../evil", "a/b", "..", static_cast<const char *>(nullptr)}) {
        images[1].id = identifier;
        log.clear();
        EXPECT_EQ(MoxelClientWriteImages(exporter.identifier, 0x6D76696D, images.data(), images.size()), -1);
        EXPECT_EQ(log.countStarting(format("Error: %s: Image 1", writeImages)), 1U);
    }
    EXPECT_TRUE(exporter.hasNoFiles());
    EXPECT_THAT(exporter.requests(), IsEmpty());
}

TEST_F(WriteImages, FailWhenTheFileCannotBeWrittenOrTheRequestNotSent) {
    const ImageList images;
    fs::create_directories(exporter.imagesPath());
    EXPECT_EQ(MoxelClientWriteImages(exporter.identifier, 0x6D76696D, images.data(), images.size()), -1);
    EXPECT_FALSE(exporter.client->applicationInfo()->imagesFile());
    fs::remove(exporter.imagesPath());
    exporter.dedicated->setReportStatus = HIDStatus::error;
    EXPECT_EQ(MoxelClientWriteImages(exporter.identifier, 0x6D76696D, images.data(), images.size()), -1);
    EXPECT_TRUE(fs::exists(exporter.imagesPath()));
}

/// While it lives, files of this process cannot grow.
class FileSizeLimit {
  public:
    FileSizeLimit() {
        ::getrlimit(RLIMIT_FSIZE, &former_);
        const rlimit none{0, former_.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &none);
    }
    ~FileSizeLimit() {
        ::setrlimit(RLIMIT_FSIZE, &former_);
        std::signal(SIGXFSZ, handler_);
    }
    FileSizeLimit(const FileSizeLimit &) = delete;
    FileSizeLimit &operator=(const FileSizeLimit &) = delete;

  private:
    void (*handler_)(int) = std::signal(SIGXFSZ, SIG_IGN);
    rlimit former_{};
};

TEST_F(WriteImages, FailWhenTheListCannotBeWritten) {
    const ImageList images;
    {
        const FileSizeLimit limit;
        EXPECT_EQ(MoxelClientWriteImages(exporter.identifier, 0x6D76696D, images.data(), images.size()), -1);
    }
    EXPECT_FALSE(fs::exists(exporter.imagesPath()));
    EXPECT_FALSE(exporter.client->applicationInfo()->imagesFile());
    EXPECT_THAT(exporter.requests(), IsEmpty());
    EXPECT_EQ(MoxelClientWriteImages(exporter.identifier, 0x6D76696D, images.data(), images.size()), 0);
}

} // namespace
} // namespace moxel
