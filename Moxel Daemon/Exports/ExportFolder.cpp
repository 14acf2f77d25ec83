#include "Moxel Daemon/Exports/ExportFolder.h"

#include "Moxel Daemon/Archive/PlainPropertyList.h"
#include "Platform/ConfinedFiles.h"
#include "Platform/Folders.h"
#include "Platform/LogText.h"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <string_view>

namespace moxel::daemon {

namespace {

/// A file in a folder, at least; no names that lead elsewhere.
bool leadsToFileInFolder(std::string_view relative) {
    bool hasFolder = false;
    for (;; hasFolder = true) {
        const std::string_view name = relative.substr(0, relative.find('/'));
        if (!isFileName(name) || name.size() == relative.size())
            return hasFolder && isFileName(name);
        relative.remove_prefix(name.size() + 1);
    }
}

} // namespace

std::string ExportFolder::defaultPath() {
    const std::optional<std::string> library = userLibraryFolder();
    return library ? *library + "/Preferences/Moxel/Applications" : std::string();
}

Result<Value> ExportFolder::read(const std::string &path) const {
    const std::string name = printableText(path);
    const std::string start = path_ + '/';
    if (path_.empty() || !path.starts_with(start) ||
        !leadsToFileInFolder(std::string_view(path).substr(start.size())))
        return Error{name + " is refused: it is no file of an application in " + path_, 0};
    const Result<Data> content = readFile({path_, path.substr(start.size())}, propertyListSizeLimit);
    if (!content.ok())
        return Error{name + ": " + content.error().message, 0};
    Result<Value> value = readPropertyList(*content);
    if (!value.ok())
        return Error{name + ": " + value.error().message, 0};
    return value;
}

Result<Data> ExportFolder::readOwn(const std::string &name) const {
    Result<Data> content = readFile({path_, name}, propertyListSizeLimit);
    if (!content.ok() && content.error().code == ENOENT)
        return Data();
    return content;
}

Result<void> ExportFolder::replaceOwn(const std::string &name, const Data &content) const {
    return replaceFile({path_, name}, content);
}

} // namespace moxel::daemon
