// Standard folders after the XDG base-directory rules.
#include "Platform/Folders.h"

#include "Platform/Accounts.h"

#include <cstdlib>
#include <string_view>
#include <system_error>
#include <vector>

#include <filesystem>
#include <unistd.h>

namespace moxel {

namespace {

// Absent unless the variable holds an absolute path: the rules say to ignore relative ones.
std::optional<std::string> absolutePathVariable(const char *name) {
    const char *value = ::secure_getenv(name);
    if (value == nullptr || *value != '/')
        return std::nullopt;
    return value;
}

std::string withoutTrailingSlashes(std::string path) {
    while (path.size() > 1 && path.ends_with('/'))
        path.pop_back();
    return path;
}

std::string joined(const std::string &folder, std::string_view name) {
    std::string path = withoutTrailingSlashes(folder);
    if (path != "/")
        path += '/';
    path += name;
    return path;
}

std::optional<std::string> homeFolder() {
    if (auto home = absolutePathVariable("HOME"))
        return home;
    const auto account = accountOf(::getuid());
    if (!account || !account->home.starts_with('/'))
        return std::nullopt;
    return account->home;
}

std::vector<std::string> absoluteEntries(std::string_view list) {
    std::vector<std::string> entries;
    while (!list.empty()) {
        const auto entry = list.substr(0, list.find(':'));
        if (entry.starts_with('/'))
            entries.push_back(withoutTrailingSlashes(std::string(entry)));
        list.remove_prefix(std::min(entry.size() + 1, list.size()));
    }
    return entries;
}

std::vector<std::string> dataFolders() {
    const char *list = ::secure_getenv("XDG_DATA_DIRS");
    auto folders = absoluteEntries(list != nullptr ? list : "");
    if (folders.empty())
        folders = {"/usr/local/share", "/usr/share"};
    return folders;
}

} // namespace

std::optional<std::string> userLibraryFolder() {
    if (auto folder = absolutePathVariable("XDG_CONFIG_HOME"))
        return withoutTrailingSlashes(*folder);
    const auto home = homeFolder();
    if (!home)
        return std::nullopt;
    return joined(*home, ".config");
}

std::string localApplicationSupportFolder() {
    const auto folders = dataFolders();
    for (const auto &folder : folders) {
        std::error_code error;
        if (std::filesystem::is_directory(joined(folder, "Moxel/MxlWare"), error))
            return folder;
    }
    return folders.front();
}

} // namespace moxel
