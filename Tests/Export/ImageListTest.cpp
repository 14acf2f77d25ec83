// Image lists as dictionaries and files.
#include <Moxel/MxlActionInterfaceDictConvert.h>

#include "Support/CapturedLog.h"
#include "Support/ExportFolders.h"
#include "Support/PlistJSON.h"
#include "Support/PropertyLists.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace moxel {
namespace {

using test::ExactText;
namespace fs = std::filesystem;

MoxelImage_s image(int32_t type, const char *id) {
    MoxelImage_s result{};
    result.tag = 0xDECAFBAD;
    result.type = type;
    result.id = id;
    return result;
}

MoxelImage_s fileImage(const char *id, const char *path, uint32_t index = 0) {
    MoxelImage_s result = image(kMoxelImageFile, id);
    result.file = {path, index};
    return result;
}

MoxelImage_s dataImage(const char *id, std::string_view bytes, uint32_t index = 0) {
    MoxelImage_s result = image(kMoxelImageData, id);
    result.image = {reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size(), index};
    return result;
}

std::string readFile(const std::string &path) {
    std::string bytes(fs::exists(path) ? fs::file_size(path) : 0, '\0');
    std::ifstream(path, std::ios::binary).read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return bytes;
}

class ImageList : public ::testing::Test {
  protected:
    ImageList() {
        fs::create_directories(imagePath(""));
        converter_->init();
    }
    ~ImageList() override { converter_->init(); }

    /// Without naming an export folder.
    Result<void> convert(const std::vector<MoxelImage_s> &images) {
        return converter_->genImagesDict(target_, images.data(), images.size());
    }
    Result<void> convertAtFolder(const std::vector<MoxelImage_s> &images) {
        return converter_->genImagesDict(target_, images.data(), images.size(), exportFolder());
    }
    [[nodiscard]] std::string exportFolder() const { return folders_.base("org.example.Viewer_Viewer"); }
    [[nodiscard]] std::string text() const { return ExactText::of(target_); }
    [[nodiscard]] std::string imagePath(std::string_view name) const {
        return exportFolder() + "/imagedata/" + std::string(name);
    }
    [[nodiscard]] Dictionary entry(std::string_view id) const {
        return target_["Images"].asDictionary()[id].asDictionary();
    }
    [[nodiscard]] size_t filesWritten() const {
        return static_cast<size_t>(std::distance(fs::recursive_directory_iterator(imagePath("")), {}));
    }

    const std::shared_ptr<MxlActionInterfaceDictConvert> converter_ =
        MxlActionInterfaceDictConvert::sharedDefaultDictionaries();
    test::ExportFolders folders_;
    MutableDictionary target_ = MutableDictionary::withCapacity(0);
};

// ------------------------------------------------------------------------------------------------ Entries

TEST_F(ImageList, FileHasPathAndIndex) {
    ASSERT_TRUE(convert({fileImage("cut", "/icons/cut.icns", 3)}));
    EXPECT_EQ(text(), R"({"Images": {"cut": {"imagetype": "file", "path": "/icons/cut.icns", "index": 3}}})");
}

TEST_F(ImageList, DataWithoutAFolderStandInTheEntry) {
    ASSERT_TRUE(convert({dataImage("cut", "BM01", 7)}));
    EXPECT_EQ(text(), R"({"Images": {"cut": {"imagetype": "imagedata", "data": <424d3031>, )"
                      R"("datasize": 4, "index": 7}}})");
}

TEST_F(ImageList, DataWithAFolderAreWrittenToAFile) {
    ASSERT_TRUE(convertAtFolder({dataImage("cut", std::string_view("B\0\xFF", 3), 7)}));
    const std::string path = imagePath("cut.imgdata");
    EXPECT_EQ(text(),
              R"({"Images": {"cut": {"imagetype": "imagedata", "path": ")" + path + R"(", "index": 7}}})");
    EXPECT_EQ(readFile(path), std::string("B\0\xFF", 3));
    EXPECT_FALSE(entry("cut").contains("data"));
    EXPECT_FALSE(entry("cut").contains("datasize"));
}

TEST_F(ImageList, GlyphHasNothingButItsType) {
    MoxelImage_s glyph = image(kMoxelImageGlyph, "cut");
    glyph.glyph = {"text", nullptr, nullptr, 99};
    ASSERT_TRUE(convert({glyph}));
    EXPECT_EQ(text(), R"({"Images": {"cut": {"imagetype": "glyph"}}})");
}

TEST_F(ImageList, TypesTwoAndZeroAndAllOthersGiveEmptyEntries) {
    ASSERT_TRUE(convert({image(2, "two"), image(0, "zero"), image(5, "five"), image(-1, "minus one")}));
    EXPECT_EQ(text(), R"({"Images": {"two": {}, "zero": {}, "five": {}, "minus one": {}}})");
}

TEST_F(ImageList, NumbersAreUnsigned) {
    ASSERT_TRUE(convert({fileImage("f", "/f", UINT32_MAX), dataImage("d", "x", UINT32_MAX)}));
    EXPECT_EQ(entry("f")["index"], Value(uint32_t{4294967295}));
    EXPECT_EQ(entry("f")["index"].kind(), Kind::unsignedInteger);
    EXPECT_EQ(entry("d")["index"].kind(), Kind::unsignedInteger);
    EXPECT_EQ(entry("d")["datasize"].kind(), Kind::unsignedInteger);
}

TEST_F(ImageList, EmptyDataAreData) {
    ASSERT_TRUE(convert({dataImage("embedded", "")}));
    ASSERT_TRUE(convertAtFolder({dataImage("file", "")}));
    EXPECT_EQ(ExactText::of(entry("embedded")),
              R"({"imagetype": "imagedata", "data": <>, "datasize": 0, "index": 0})");
    EXPECT_TRUE(fs::is_regular_file(imagePath("file.imgdata")));
    EXPECT_TRUE(fs::is_empty(imagePath("file.imgdata")));
}

TEST_F(ImageList, NoBytesAtANullPointerAreEmptyData) {
    MoxelImage_s null = image(kMoxelImageData, "null");
    null.image = {nullptr, 0, 9};
    ASSERT_TRUE(convert({null}));
    EXPECT_EQ(ExactText::of(entry("null")),
              R"({"imagetype": "imagedata", "data": <>, "datasize": 0, "index": 9})");
}

TEST_F(ImageList, ImageWithoutDataKeepsOnlyItsType) {
    MoxelImage_s missing = image(kMoxelImageData, "missing");
    missing.image = {nullptr, 4, 7};
    MoxelImage_s huge = dataImage("huge", "x", 7);
    huge.image.size = UINT64_MAX;
    const std::string expected =
        R"({"Images": {"missing": {"imagetype": "imagedata"}, "huge": {"imagetype": "imagedata"}}})";
    ASSERT_TRUE(convert({missing, huge}));
    EXPECT_EQ(text(), expected);
    target_.clear();
    ASSERT_TRUE(convertAtFolder({missing, huge}));
    EXPECT_EQ(text(), expected);
    EXPECT_EQ(filesWritten(), 0U);
}

TEST_F(ImageList, EntriesAreMutable) {
    ASSERT_TRUE(convert({fileImage("f", "/f"), image(0, "none")}));
    EXPECT_TRUE(target_["Images"].asDictionary().isMutable());
    EXPECT_TRUE(entry("f").isMutable());
    EXPECT_TRUE(entry("none").isMutable());
}

TEST_F(ImageList, LaterImageOfTheSameIdentifierRemains) {
    ASSERT_TRUE(convertAtFolder({dataImage("a", "first"), fileImage("b", "/b"), dataImage("a", "second")}));
    EXPECT_EQ(target_["Images"].asDictionary().size(), 2U);
    EXPECT_EQ(readFile(imagePath("a.imgdata")), "second");
    ASSERT_TRUE(convertAtFolder({fileImage("a", "/a"), fileImage("a", "/last")}));
    EXPECT_EQ(entry("a")["path"], Value("/last"));
}

TEST_F(ImageList, PlistlibReadsTheFile) {
    ASSERT_TRUE(
        convert({fileImage("f", "/f", 1), dataImage("d", "\x01\xFF", 2), image(4, "g"), image(0, "n")}));
    const std::string expected =
        R"({"Images": {"d": {"data": "data:01ff", "datasize": 2, "imagetype": "imagedata", "index": 2}, )"
        R"("f": {"imagetype": "file", "index": 1, "path": "/f"}, "g": {"imagetype": "glyph"}, "n": {}}})";
    EXPECT_EQ(test::jsonViaBinary(target_), expected);
    EXPECT_EQ(test::jsonViaXML(target_), expected);
}

// ------------------------------------------------------------------------------------------------ Merging

TEST_F(ImageList, NoImagesCreateAnEmptyDictionary) {
    ASSERT_TRUE(converter_->genImagesDict(target_, nullptr, 0));
    EXPECT_EQ(text(), R"({"Images": {}})");
}

TEST_F(ImageList, NoImagesLeaveWhatIsThere) {
    target_.set("Images", Dictionary{{"a", Dictionary{{"imagetype", "glyph"}}}});
    ASSERT_TRUE(convertAtFolder({}));
    EXPECT_EQ(text(), R"({"Images": {"a": {"imagetype": "glyph"}}})");
}

TEST_F(ImageList, NewEntriesReplaceThoseOfTheSameIdentifierAndLeaveTheRest) {
    const Dictionary immutable{{"a", "old"}, {"b", "old"}};
    target_.set("other", 1);
    target_.set("Images", immutable);
    ASSERT_TRUE(convert({image(4, "b"), image(4, "c")}));
    EXPECT_EQ(text(), R"({"other": 1, "Images": {"a": "old", "b": {"imagetype": "glyph"}, )"
                      R"("c": {"imagetype": "glyph"}}})");
    EXPECT_EQ(ExactText::of(immutable), R"({"a": "old", "b": "old"})");
    ASSERT_TRUE(convert({image(0, "a")}));
    EXPECT_EQ(text(), R"({"other": 1, "Images": {"a": {}, "b": {"imagetype": "glyph"}, )"
                      R"("c": {"imagetype": "glyph"}}})");
}

TEST_F(ImageList, ImagesThatAreNoDictionaryAreReplaced) {
    target_.set("Images", "spoilt");
    ASSERT_TRUE(convert({image(4, "a")}));
    EXPECT_EQ(text(), R"({"Images": {"a": {"imagetype": "glyph"}}})");
}

// ------------------------------------------------------------------------------------------------ Folder

TEST_F(ImageList, LastFolderServesLaterCallsThatNameNone) {
    ASSERT_TRUE(converter_->genImagesDict(target_, nullptr, 0, folders_.base("org.example.Other")));
    ASSERT_TRUE(convertAtFolder({}));
    ASSERT_TRUE(convert({dataImage("a", "late")}));
    EXPECT_EQ(entry("a")["path"], Value(imagePath("a.imgdata")));
    EXPECT_FALSE(entry("a").contains("data"));
    EXPECT_EQ(readFile(imagePath("a.imgdata")), "late");
}

TEST_F(ImageList, FileThatIsThereIsReplaced) {
    ASSERT_TRUE(convertAtFolder({dataImage("a", "a longer text")}));
    ASSERT_TRUE(convertAtFolder({dataImage("a", "short")}));
    EXPECT_EQ(readFile(imagePath("a.imgdata")), "short");
    EXPECT_EQ(filesWritten(), 1U);
}

TEST_F(ImageList, FileThatCannotBeWrittenIsNamedAllTheSame) {
    fs::remove(imagePath(""));
    const test::CapturedLog log;
    ASSERT_TRUE(convertAtFolder({dataImage("a", "lost", 5)}));
    const std::string path = imagePath("a.imgdata");
    EXPECT_EQ(text(),
              R"({"Images": {"a": {"imagetype": "imagedata", "path": ")" + path + R"(", "index": 5}}})");
    EXPECT_EQ(log.countStarting("-[MxlActionInterfaceDictConvert genImagesDict:fromArray:withCount:], Error "
                                "writing image data " +
                                path + ". Error: "),
              1U);
}

TEST_F(ImageList, FoldersOfCallsAtTheSameTimeAreNotMixedUp) {
    const auto convertOften = [this](const std::string &folder) {
        fs::create_directories(folder + "/imagedata");
        const std::vector<MoxelImage_s> images = {dataImage("a", "x")};
        for (int i = 0; i < 50; ++i) {
            const MutableDictionary target = MutableDictionary::withCapacity(0);
            ASSERT_TRUE(converter_->genImagesDict(target, images.data(), 1, folder));
            ASSERT_EQ(target["Images"].asDictionary()["a"].asDictionary()["path"],
                      Value(folder + "/imagedata/a.imgdata"));
        }
    };
    std::thread other(convertOften, folders_.base("org.example.Other"));
    convertOften(exportFolder());
    other.join();
}

TEST_F(ImageList, NothingIsWrittenOutsideTheExportBaseFolder) {
    fs::create_directories(folders_.outside("other/imagedata"));
    const std::vector<MoxelImage_s> images = {dataImage("a", "x")};
    const test::CapturedLog log;
    ASSERT_TRUE(converter_->genImagesDict(target_, images.data(), 1, folders_.outside("other")));
    EXPECT_FALSE(fs::exists(folders_.outside("other/imagedata/a.imgdata")));
    EXPECT_EQ(log.countContaining("Error writing image data "), 1U);
}

TEST_F(ImageList, NoExportFolderIsAnError) {
    const std::vector<MoxelImage_s> images = {dataImage("a", "x")};
    const Result<void> converted =
        converter_->genImagesDict(target_, images.data(), images.size(), String(nullptr));
    ASSERT_FALSE(converted);
    EXPECT_EQ(converted.error().message, "There is no export folder for images");
    EXPECT_TRUE(target_.empty());
}

// ------------------------------------------------------------------------------------------------ Refusals

TEST_F(ImageList, NullIdentifierIsRefusedBeforeAnythingIsWritten) {
    target_.set("Images", Dictionary{{"a", "old"}});
    const test::CapturedLog log;
    const Result<void> converted = convertAtFolder({dataImage("a", "x"), image(0, nullptr)});
    ASSERT_FALSE(converted);
    EXPECT_EQ(converted.error().message, "Image 1 has no identifier");
    EXPECT_EQ(text(), R"({"Images": {"a": "old"}})");
    EXPECT_EQ(filesWritten(), 0U);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(ImageList, FileWithoutAPathIsRefused) {
    const Result<void> converted = convert({fileImage("f", nullptr)});
    ASSERT_FALSE(converted);
    EXPECT_EQ(converted.error().message, "Image 0 (\"f\") has no path");
    EXPECT_TRUE(target_.empty());
}

TEST_F(ImageList, ListThatIsMissingOrImpossiblyLongIsRefused) {
    EXPECT_FALSE(converter_->genImagesDict(target_, nullptr, 1));
    const MoxelImage_s one = image(0, "a");
    const Result<void> converted = converter_->genImagesDict(target_, &one, SIZE_MAX);
    ASSERT_FALSE(converted);
    EXPECT_EQ(converted.error().message, "There is no such image list");
    EXPECT_TRUE(target_.empty());
}

TEST_F(ImageList, IdentifierThatLeadsOutOfTheFolderIsRefusedBeforeAnythingIsWritten) {
    for (const char *id : {"../out", "/etc/out", "a/b", "a/../../b", "/", ".", ".."}) {
        const Result<void> converted = convertAtFolder({dataImage("fine", "x"), dataImage(id, "x")});
        ASSERT_FALSE(converted) << id;
        EXPECT_EQ(converted.error().message, "Image 1: a file cannot be named \"" + std::string(id) + "\"");
        EXPECT_EQ(filesWritten(), 0U) << id;
        EXPECT_TRUE(target_.empty()) << id;
    }
    EXPECT_FALSE(fs::exists(exportFolder() + "/out.imgdata"));
}

TEST_F(ImageList, IdentifierWithSlashesOrDotsIsFineWhereNoFileIsNamedAfterIt) {
    ASSERT_TRUE(convert({dataImage("../a", "x"), fileImage("a/b", "/f"), image(4, "..")}));
    EXPECT_EQ(entry("../a")["datasize"], Value(1));
    EXPECT_EQ(entry("a/b")["path"], Value("/f"));
    EXPECT_EQ(entry("..")["imagetype"], Value("glyph"));
    ASSERT_TRUE(convertAtFolder({fileImage("a/b", "/g"), dataImage("Save As...", "x")}));
    EXPECT_EQ(entry("a/b")["path"], Value("/g"));
    EXPECT_TRUE(fs::exists(imagePath("Save As....imgdata")));
}

// ------------------------------------------------------------------------------------------------ Size, text

TEST_F(ImageList, ImagesOfHundredMegabytes) {
    std::string bytes(size_t{100} << 20, '\0');
    for (size_t i = 0; i < bytes.size(); i += 4096)
        bytes[i] = static_cast<char>(i >> 12);
    ASSERT_TRUE(convert({dataImage("embedded", bytes)}));
    ASSERT_TRUE(convertAtFolder({dataImage("file", bytes)}));
    EXPECT_EQ(entry("embedded")["datasize"], Value(104'857'600));
    EXPECT_TRUE(entry("embedded")["data"].asData() == Data(test::asBytes(bytes)));
    EXPECT_TRUE(readFile(imagePath("file.imgdata")) == bytes);
}

TEST_F(ImageList, HundredThousandImages) {
    std::vector<std::string> ids;
    for (size_t i = 0; i < 100'000; ++i)
        ids.push_back("image " + std::to_string(i));
    std::vector<MoxelImage_s> images;
    for (const std::string &id : ids)
        images.push_back(fileImage(id.c_str(), "/f"));
    ASSERT_TRUE(convert(images));
    ASSERT_TRUE(convert(images));
    EXPECT_EQ(target_["Images"].asDictionary().size(), 100'000U);
}

TEST_F(ImageList, IdentifiersInEveryScriptNameFiles) {
    const std::vector<const char *> ids = {"\u5207\u308a\u53d6\u308a", "\u0412\u044b\u0440", "\u0642\u0635",
                                           "e\u0301\U0001F600",        "a b\n\"c\"",         ""};
    for (const char *id : ids) {
        ASSERT_TRUE(convertAtFolder({dataImage(id, id)}));
        EXPECT_EQ(entry(id)["path"], Value(imagePath(std::string(id) + ".imgdata")));
        EXPECT_EQ(readFile(imagePath(std::string(id) + ".imgdata")), id);
    }
    EXPECT_EQ(filesWritten(), ids.size());
}

TEST_F(ImageList, IllFormedIdentifierIsRepairedInKeyAndFileName) {
    ASSERT_TRUE(convertAtFolder({dataImage("a\xFFz", "x")}));
    EXPECT_EQ(entry("a\uFFFDz")["path"], Value(imagePath("a\uFFFDz.imgdata")));
    EXPECT_EQ(readFile(imagePath("a\uFFFDz.imgdata")), "x");
}

TEST_F(ImageList, IdentifierTooLongForAFileNameIsLogged) {
    const std::string id(300, 'x');
    const test::CapturedLog log;
    ASSERT_TRUE(convertAtFolder({dataImage(id.c_str(), "x")}));
    EXPECT_EQ(entry(id)["path"], Value(imagePath(id + ".imgdata")));
    EXPECT_EQ(log.countContaining("Error writing image data "), 1U);
}

} // namespace
} // namespace moxel
