#include "Export/PropertyListFile.h"

#include "Export/ExportFile.h"
#include "Export/PropertyListBytes.h"
#include "Platform/FileContents.h"
#include "Values/PropertyList.h"
#include <Moxel/MxlPlistDictionaries.h>

#include <string>

namespace moxel {

Result<std::vector<uint8_t>> readAnyFile(const String &path) {
    const std::string text = path.string();
    if (text.empty() || text.find('\0') != std::string::npos)
        return Error{"This is not the path of a file"};
    return liesInExportFolder(text) ? readExportFile(text) : readFileContents(text);
}

Value propertyListInFile(const String &path) {
    const auto bytes = readAnyFile(path);
    if (!bytes)
        return nullptr;
    auto list = readPropertyList(*bytes);
    return list ? std::move(list->root) : Value();
}

Value mxMutableDictWithContentsOfFile(const String &path) {
    const auto bytes = readAnyFile(path);
    if (!bytes)
        return nullptr;
    auto list = readMutablePropertyList(*bytes);
    return list ? std::move(*list) : Value();
}

} // namespace moxel
