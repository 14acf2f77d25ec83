#include "Export/ExportFile.h"

#include "Export/PropertyListBytes.h"
#include "Platform/Folders.h"
#include <Moxel/MoxelKeys.h>

#include <string_view>

namespace moxel {

namespace {

// Absent when the path is neither the base folder nor below it.
std::optional<ConfinedPath> below(const std::string &base, const std::string &path) {
    if (path == base)
        return ConfinedPath{base, ""};
    if (!path.starts_with(base + '/'))
        return std::nullopt;
    return ConfinedPath{base, path.substr(base.size() + 1)};
}

// The store keeps to the folder that it published, whatever becomes of the environment afterwards.
std::optional<ConfinedPath> find(const std::string &path) {
    const char *published = kExportedCommandsBaseDirPath.load();
    if (auto place = published != nullptr ? below(published, path) : std::nullopt)
        return place;
    const auto base = exportBaseFolder();
    return base ? below(*base, path) : std::nullopt;
}

Result<ConfinedPath> confined(const std::string &path) {
    if (auto place = find(path))
        return *place;
    return Error{path + " does not lie in the export base folder"};
}

} // namespace

std::optional<std::string> exportBaseFolder() {
    auto folder = userLibraryFolder();
    if (folder)
        *folder += "/Preferences/Moxel/Applications";
    return folder;
}

bool liesInExportFolder(const std::string &path) { return find(path).has_value(); }

Result<void> makeExportFolder(const std::string &path) {
    const auto place = confined(path);
    return place ? makeFolders(*place) : place.error();
}

Result<void> writeExportFile(const std::string &path, std::span<const uint8_t> bytes) {
    const auto place = confined(path);
    return place ? replaceFile(*place, bytes) : place.error();
}

Result<void> createEmptyExportFile(const std::string &path) {
    const auto place = confined(path);
    return place ? createEmptyFile(*place) : place.error();
}

Result<std::vector<uint8_t>> readExportFile(const std::string &path) {
    const auto place = confined(path);
    return place ? readFile(*place) : place.error();
}

Result<void> writeExportDictionary(const std::string &path, const Dictionary &dictionary) {
    const auto bytes = losslessPropertyList(dictionary);
    if (!bytes)
        return bytes.error();
    return writeExportFile(path, {reinterpret_cast<const uint8_t *>(bytes->data()), bytes->size()});
}

Result<MutableDictionary> readExportDictionary(const std::string &path) {
    const auto bytes = readExportFile(path);
    if (!bytes)
        return bytes.error();
    const auto list = readMutablePropertyList(*bytes);
    if (!list)
        return Error{path + ": " + list.error().message, list.error().code};
    auto dictionary = list->asMutableDictionary();
    if (!dictionary)
        return Error{path + " does not hold a dictionary"};
    return dictionary;
}

} // namespace moxel
