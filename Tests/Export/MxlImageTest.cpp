// The image record, the formats it tells apart and the exported first bytes of these.
#include <Moxel/MxlImage.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace moxel {
namespace {

using Type = MxlImageDataType;
using Bytes = std::vector<uint8_t>;

Data dataOf(std::string_view bytes) { return Data(Bytes(bytes.begin(), bytes.end())); }

Type typeOf(Bytes bytes) { return MxlImage::initWithData(Data(std::move(bytes)))->dataType(); }

Type typeOf(std::string_view bytes) { return MxlImage::initWithData(dataOf(bytes))->dataType(); }

Bytes bytesOf(std::span<const uint8_t> magic) { return {magic.begin(), magic.end()}; }

TEST(MxlImage, FormatCodesAreThoseOfTheFiles) {
    EXPECT_EQ(static_cast<uint32_t>(Type::unsupported), 0U);
    EXPECT_EQ(static_cast<uint32_t>(Type::bmp), 1U);
    EXPECT_EQ(static_cast<uint32_t>(Type::png), 2U);
    EXPECT_EQ(static_cast<uint32_t>(Type::tiff), 3U);
    EXPECT_EQ(static_cast<uint32_t>(Type::jpg), 4U);
    EXPECT_EQ(static_cast<uint32_t>(Type::pdf), 5U);
    EXPECT_EQ(static_cast<uint32_t>(Type::svg), 6U);
    static_assert(sizeof(Type) == 4);
}

TEST(MxlImage, EveryFormatIsToldByItsFirstBytes) {
    EXPECT_EQ(typeOf("BM....."), Type::bmp);
    EXPECT_EQ(typeOf(Bytes{0x89, 0x50, 0x4E, 0x47, 0x0D, 0x0A, 0x1A, 0x0A, 0}), Type::png);
    EXPECT_EQ(typeOf(Bytes{'I', 'I', 0x2A, 0x00, 8}), Type::tiff);
    EXPECT_EQ(typeOf(Bytes{'M', 'M', 0x00, 0x2A, 0}), Type::tiff);
    EXPECT_EQ(typeOf(Bytes{0xFF, 0xD8, 0xFF, 0xE0}), Type::jpg);
    EXPECT_EQ(typeOf("%PDF-1.7"), Type::pdf);
    EXPECT_EQ(typeOf("<?xml version=\"1.0\"?><svg/>"), Type::svg);
}

TEST(MxlImage, DataThatIsNothingButTheComparedBytesMatches) {
    EXPECT_EQ(typeOf("BM"), Type::bmp);
    EXPECT_EQ(typeOf(Bytes{0x89, 0x50}), Type::png);
    EXPECT_EQ(typeOf(Bytes{'I', 'I', 0x2A, 0x00}), Type::tiff);
    EXPECT_EQ(typeOf(Bytes{'M', 'M', 0x00, 0x2A}), Type::tiff);
    EXPECT_EQ(typeOf(Bytes{0xFF, 0xD8, 0xFF}), Type::jpg);
    EXPECT_EQ(typeOf("%PDF-"), Type::pdf);
    EXPECT_EQ(typeOf("<?xml"), Type::svg);
}

TEST(MxlImage, DataShorterThanTheComparedBytesDoesNotMatch) {
    EXPECT_EQ(typeOf(""), Type::unsupported);
    EXPECT_EQ(typeOf("B"), Type::unsupported);
    EXPECT_EQ(typeOf(Bytes{0x89}), Type::unsupported);
    EXPECT_EQ(typeOf(Bytes{'I', 'I', 0x2A}), Type::unsupported);
    EXPECT_EQ(typeOf(Bytes{'M', 'M', 0x00}), Type::unsupported);
    EXPECT_EQ(typeOf(Bytes{0xFF, 0xD8}), Type::unsupported);
    EXPECT_EQ(typeOf("%PDF"), Type::unsupported);
    EXPECT_EQ(typeOf("<?xm"), Type::unsupported);
}

TEST(MxlImage, EveryComparedByteCounts) {
    const std::initializer_list<Bytes> starts = {{'B', 'M'},
                                                 {0x89, 0x50},
                                                 {'I', 'I', 0x2A, 0x00},
                                                 {'M', 'M', 0x00, 0x2A},
                                                 {0xFF, 0xD8, 0xFF},
                                                 {'%', 'P', 'D', 'F', '-'},
                                                 {'<', '?', 'x', 'm', 'l'}};
    for (const Bytes &start : starts) {
        for (size_t i = 0; i < start.size(); ++i) {
            Bytes changed = start;
            changed[i] ^= 0x80;
            EXPECT_EQ(typeOf(changed), Type::unsupported) << "format " << start[0] << ", byte " << i;
        }
    }
}

TEST(MxlImage, TwoBytesOfThePNGSignatureAreEnough) {
    EXPECT_EQ(typeOf(Bytes{0x89, 0x50, 'a', 'n', 'y', 't', 'h', 'i', 'n', 'g'}), Type::png);
}

TEST(MxlImage, BothByteOrdersOfTIFFAreTIFF) {
    EXPECT_EQ(typeOf(Bytes{'I', 'I', '*', 0x00}), Type::tiff);
    EXPECT_EQ(typeOf(Bytes{'M', 'M', 0x00, '*'}), Type::tiff);
    EXPECT_EQ(typeOf(Bytes{'I', 'I', 0x00, '*'}), Type::unsupported);
    EXPECT_EQ(typeOf(Bytes{'M', 'M', '*', 0x00}), Type::unsupported);
}

TEST(MxlImage, AnyXMLDocumentWithADeclarationIsSVG) { EXPECT_EQ(typeOf("<?xml?><plist/>"), Type::svg); }

TEST(MxlImage, SVGWithoutAnXMLDeclarationIsUnknown) {
    EXPECT_EQ(typeOf("<svg xmlns=\"http://www.w3.org/2000/svg\"/>"), Type::unsupported);
}

TEST(MxlImage, ImageOfDataHasNoPath) {
    const Data data = dataOf("BM");
    const auto image = MxlImage::initWithData(data);
    EXPECT_TRUE(image->isData());
    EXPECT_FALSE(image->isPath());
    EXPECT_EQ(image->data(), data);
    EXPECT_FALSE(image->path());
}

TEST(MxlImage, ImageOfAPathIsOfUnknownFormat) {
    const auto image = MxlImage::initWithPath("/icons/cut.png");
    EXPECT_TRUE(image->isPath());
    EXPECT_FALSE(image->isData());
    EXPECT_EQ(image->dataType(), Type::unsupported);
    EXPECT_EQ(image->path(), String("/icons/cut.png"));
    EXPECT_FALSE(image->data());
}

TEST(MxlImage, ImageOfNothingIsNeither) {
    for (const auto &image : {MxlImage::initWithData(nullptr), MxlImage::initWithPath(nullptr)}) {
        EXPECT_FALSE(image->isData());
        EXPECT_FALSE(image->isPath());
        EXPECT_EQ(image->dataType(), Type::unsupported);
    }
}

TEST(MxlImage, ImageOfEmptyDataIsData) {
    const auto image = MxlImage::initWithData(dataOf(""));
    EXPECT_TRUE(image->isData());
    EXPECT_EQ(image->dataType(), Type::unsupported);
}

TEST(MxlImage, SettingOnePropertyLeavesTheOthers) {
    const auto image = MxlImage::initWithData(dataOf("BM"));
    image->setPath("/a");
    EXPECT_FALSE(image->isData());
    EXPECT_FALSE(image->isPath());
    image->setData(nullptr);
    EXPECT_TRUE(image->isPath());
    EXPECT_EQ(image->dataType(), Type::bmp);
    image->setData(dataOf("%PDF-"));
    EXPECT_EQ(image->dataType(), Type::bmp);
    image->setDataType(Type::pdf);
    EXPECT_EQ(image->dataType(), Type::pdf);
    image->setPath(nullptr);
    EXPECT_TRUE(image->isData());
    EXPECT_EQ(image->data(), dataOf("%PDF-"));
}

TEST(MxlImageMagic, BytesAreThoseOfTheFormats) {
    EXPECT_EQ(bytesOf(MxlImageMagic_UNSUPPORTED), (Bytes{0x00}));
    EXPECT_EQ(bytesOf(MxlImageMagic_BMP), (Bytes{0x42, 0x4D}));
    EXPECT_EQ(bytesOf(MxlImageMagic_TIFl), (Bytes{0x49, 0x49, 0x2A, 0x00}));
    EXPECT_EQ(bytesOf(MxlImageMagic_TIFb), (Bytes{0x4D, 0x4D, 0x00, 0x2A}));
    EXPECT_EQ(bytesOf(MxlImageMagic_PNG), (Bytes{0x89, 0x50, 0x4E, 0x47, 0x0D, 0x0A, 0x1A, 0x0A}));
    EXPECT_EQ(bytesOf(MxlImageMagic_JPG), (Bytes{0xFF, 0xD8, 0xFF}));
    EXPECT_EQ(bytesOf(MxlImageMagic_PDF), (Bytes{0x25, 0x50, 0x44, 0x46, 0x2D}));
    EXPECT_EQ(bytesOf(MxlImageMagic_SVG), (Bytes{0x3C, 0x3F, 0x78, 0x6D, 0x6C}));
}

TEST(MxlImageMagic, ArraysStandOneAfterTheOther) {
    const auto addressOf = [](std::span<const uint8_t> magic) {
        return reinterpret_cast<uintptr_t>(magic.data());
    };
    const uintptr_t first = addressOf(MxlImageMagic_UNSUPPORTED);
    EXPECT_EQ(addressOf(MxlImageMagic_BMP) - first, 1U);
    EXPECT_EQ(addressOf(MxlImageMagic_TIFl) - first, 3U);
    EXPECT_EQ(addressOf(MxlImageMagic_TIFb) - first, 7U);
    EXPECT_EQ(addressOf(MxlImageMagic_PNG) - first, 11U);
    EXPECT_EQ(addressOf(MxlImageMagic_JPG) - first, 19U);
    EXPECT_EQ(addressOf(MxlImageMagic_PDF) - first, 22U);
    EXPECT_EQ(addressOf(MxlImageMagic_SVG) - first, 27U);
}

} // namespace
} // namespace moxel
