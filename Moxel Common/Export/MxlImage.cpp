#include <Moxel/MxlImage.h>

#include <algorithm>
#include <array>
#include <span>
#include <utility>

namespace moxel {

namespace {

/// The bytes at the start of a format.
struct Magic {
    std::span<const uint8_t> bytes;
    MxlImageDataType type;
};

/// In the order in which they are tried.
std::array<Magic, 7> magics() {
    // Of the PNG signature two bytes are enough.
    return {{{MxlImageMagic_BMP, MxlImageDataType::bmp},
             {std::span(MxlImageMagic_PNG).first<2>(), MxlImageDataType::png},
             {MxlImageMagic_TIFl, MxlImageDataType::tiff},
             {MxlImageMagic_TIFb, MxlImageDataType::tiff},
             {MxlImageMagic_JPG, MxlImageDataType::jpg},
             {MxlImageMagic_PDF, MxlImageDataType::pdf},
             {MxlImageMagic_SVG, MxlImageDataType::svg}}};
}

bool startsWith(std::span<const uint8_t> bytes, std::span<const uint8_t> start) {
    return bytes.size() >= start.size() && std::ranges::equal(bytes.first(start.size()), start);
}

MxlImageDataType typeOf(std::span<const uint8_t> bytes) {
    for (const Magic &magic : magics())
        if (startsWith(bytes, magic.bytes))
            return magic.type;
    return MxlImageDataType::unsupported;
}

} // namespace

std::shared_ptr<MxlImage> MxlImage::initWithData(const Data &data) {
    return std::shared_ptr<MxlImage>(new MxlImage(data, nullptr, typeOf(data.bytes())));
}

std::shared_ptr<MxlImage> MxlImage::initWithPath(const String &path) {
    return std::shared_ptr<MxlImage>(new MxlImage(nullptr, path, MxlImageDataType::unsupported));
}

MxlImage::MxlImage(Data data, String path, MxlImageDataType dataType)
    : dataType_(dataType), data_(std::move(data)), path_(std::move(path)) {}

bool MxlImage::isData() const {
    const std::lock_guard lock(mutex_);
    return data_ && !path_;
}

bool MxlImage::isPath() const {
    const std::lock_guard lock(mutex_);
    return path_ && !data_;
}

Data MxlImage::data() const {
    const std::lock_guard lock(mutex_);
    return data_;
}

void MxlImage::setData(const Data &data) {
    const std::lock_guard lock(mutex_);
    data_ = data;
}

String MxlImage::path() const {
    const std::lock_guard lock(mutex_);
    return path_;
}

void MxlImage::setPath(const String &path) {
    const std::lock_guard lock(mutex_);
    path_ = path;
}

MxlImageDataType MxlImage::dataType() const {
    const std::lock_guard lock(mutex_);
    return dataType_;
}

void MxlImage::setDataType(MxlImageDataType dataType) {
    const std::lock_guard lock(mutex_);
    dataType_ = dataType;
}

} // namespace moxel
