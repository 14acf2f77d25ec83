#include "Export/ImageList.h"

#include "Export/ExportFile.h"
#include "Helpers/Logging.h"

#include <cstddef>
#include <cstdint>
#include <new>
#include <string_view>
#include <vector>

namespace moxel {

namespace {

// Applications and the library are compiled apart.
static_assert(sizeof(void *) == 8, "the layouts below are those of 64-bit machines");
static_assert(sizeof(MoxelImage_s) == 48);
static_assert(offsetof(MoxelImage_s, tag) == 0);
static_assert(offsetof(MoxelImage_s, type) == 4);
static_assert(offsetof(MoxelImage_s, id) == 8);
static_assert(offsetof(MoxelImage_s, file) == 16);
static_assert(offsetof(MoxelImage_s, image) == 16);
static_assert(offsetof(MoxelImage_s, glyph) == 16);
static_assert(offsetof(MoxelImageFile_s, index) == 8);
static_assert(offsetof(MoxelImageData_s, size) == 8);
static_assert(offsetof(MoxelImageData_s, index) == 16);
static_assert(offsetof(MoxelImageGlyph_s, count) == 24);

/// Whether a file can be named after an image; without an identifier it is called ".imgdata".
bool canNameFile(std::string_view identifier) { return identifier.empty() || isFileName(identifier); }

Result<void> checkImage(const MoxelImage_s &image, size_t index, bool writesFiles) {
    if (!image.id)
        return Error{format("Image %lu has no identifier", index)};
    if (image.type == kMoxelImageFile && !image.file.path)
        return Error{format("Image %lu (\"%.64s\") has no path", index, image.id)};
    if (image.type == kMoxelImageData && writesFiles && !canNameFile(image.id))
        return Error{format("Image %lu: a file cannot be named \"%.64s\"", index, image.id)};
    return {};
}

/// The bytes where the application has them; without a place when there cannot be so many.
std::span<const uint8_t> bytesOf(const MoxelImageData_s &image) {
    static constexpr uint8_t nothing = 0;
    if (image.size == 0)
        return {&nothing, size_t{0}};
    if (!image.data || image.size > PTRDIFF_MAX)
        return {};
    return {image.data, image.size};
}

/// Null when there is no memory for a copy, which sessions with faults show and the suite does not.
Data copyOf(std::span<const uint8_t> bytes) try { return Data(bytes); } catch (const std::bad_alloc &) {
    return nullptr;
}

/// The path of the file, whether or not it could be written.
String writeImage(std::span<const uint8_t> bytes, const String &folder, const String &identifier) {
    String path = format("%@/%@.imgdata", folder, identifier);
    const Result<void> written = writeExportFile(path.string(), bytes);
    if (!written)
        logError("%s, Error writing image data %@. Error: %@",
                 "-[MxlActionInterfaceDictConvert genImagesDict:fromArray:withCount:]", path,
                 written.error().message);
    return path;
}

void addData(MutableDictionary &entry, const MoxelImage_s &image, const String &folder,
             const String &identifier) {
    entry.set("imagetype", "imagedata");
    const std::span<const uint8_t> bytes = bytesOf(image.image);
    if (!bytes.data())
        return;
    if (folder) {
        entry.set("path", writeImage(bytes, folder, identifier));
    } else {
        const Data data = copyOf(bytes);
        if (!data)
            return;
        entry.set("data", data);
        entry.set("datasize", image.image.size);
    }
    entry.set("index", image.image.index);
}

MutableDictionary entryOf(const MoxelImage_s &image, const String &folder, const String &identifier) {
    MutableDictionary entry = MutableDictionary::withCapacity(0);
    switch (image.type) {
    case kMoxelImageFile:
        entry.set("imagetype", "file");
        entry.set("path", image.file.path);
        entry.set("index", image.file.index);
        break;
    case kMoxelImageData:
        addData(entry, image, folder, identifier);
        break;
    case kMoxelImageGlyph:
        entry.set("imagetype", "glyph");
        break;
    default:
        break;
    }
    return entry;
}

} // namespace

Result<MutableDictionary> convertImageList(std::span<const MoxelImage_s> images, const String &folder) {
    for (size_t i = 0; i < images.size(); ++i)
        if (Result<void> checked = checkImage(images[i], i, static_cast<bool>(folder)); !checked)
            return checked.error();
    MutableDictionary entries = MutableDictionary::withCapacity(images.size());
    for (const MoxelImage_s &image : images) {
        const String identifier(image.id);
        entries.set(identifier, entryOf(image, folder, identifier));
    }
    return entries;
}

} // namespace moxel
