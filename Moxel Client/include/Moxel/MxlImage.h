// The image record that lookups hand out, and the first bytes by which image formats are told apart.
#pragma once

#include "MoxelBase.h"
#include "Values/Data.h"
#include "Values/String.h"

#include <cstdint>
#include <memory>
#include <mutex>

/// Exports a constant of which a program must not make a copy of its own.
#if __has_attribute(nodirect_extern_access)
#define MOXEL_EXPORT_IN_PLACE MOXEL_EXPORT __attribute__((nodirect_extern_access))
#else
#define MOXEL_EXPORT_IN_PLACE MOXEL_EXPORT
#endif

MOXEL_BEGIN_DECLS

// They stand in memory one after the other, in this order.
/// What no image begins with.
MOXEL_EXPORT_IN_PLACE extern const uint8_t MxlImageMagic_UNSUPPORTED[1];
/// Windows bitmap.
MOXEL_EXPORT_IN_PLACE extern const uint8_t MxlImageMagic_BMP[2];
/// TIFF, little-endian.
MOXEL_EXPORT_IN_PLACE extern const uint8_t MxlImageMagic_TIFl[4];
/// TIFF, big-endian.
MOXEL_EXPORT_IN_PLACE extern const uint8_t MxlImageMagic_TIFb[4];
/// PNG.
MOXEL_EXPORT_IN_PLACE extern const uint8_t MxlImageMagic_PNG[8];
/// JPEG.
MOXEL_EXPORT_IN_PLACE extern const uint8_t MxlImageMagic_JPG[3];
/// PDF.
MOXEL_EXPORT_IN_PLACE extern const uint8_t MxlImageMagic_PDF[5];
/// The start of an XML declaration: any XML document that has one counts as SVG, an SVG file without one does
/// not.
MOXEL_EXPORT_IN_PLACE extern const uint8_t MxlImageMagic_SVG[5];

MOXEL_END_DECLS

namespace moxel {

/// Format of an image's bytes.
enum class MxlImageDataType : uint32_t {
    unsupported = 0, ///< Unknown, or not looked at.
    bmp = 1,
    png = 2,
    tiff = 3,
    jpg = 4,
    pdf = 5,
    svg = 6,
};

/// A button image: a reference to a file or the image's bytes. Any thread: one property is read or written
/// whole, several properties are not one step.
class MOXEL_EXPORT MxlImage {
  public:
    /// -[MxlImage initWithData:]
    /// Tells the format by the first bytes.
    [[nodiscard]] static std::shared_ptr<MxlImage> initWithData(const Data &data);
    /// -[MxlImage initWithPath:]
    [[nodiscard]] static std::shared_ptr<MxlImage> initWithPath(const String &path);

    /// Whether there are bytes and no path.
    [[nodiscard]] bool isData() const;
    /// Whether there is a path and no bytes.
    [[nodiscard]] bool isPath() const;

    // Setting one property leaves the others as they are.
    /// The image's bytes; null when it is a reference.
    [[nodiscard]] Data data() const;
    void setData(const Data &data);
    /// The file's path; null when there are bytes.
    [[nodiscard]] String path() const;
    void setPath(const String &path);
    /// The format that initWithData() recognised, or that was set.
    [[nodiscard]] MxlImageDataType dataType() const;
    void setDataType(MxlImageDataType dataType);

  private:
    MxlImage(Data data, String path, MxlImageDataType dataType);

    mutable std::mutex mutex_;
    MxlImageDataType dataType_;
    Data data_;
    String path_;
};

} // namespace moxel
