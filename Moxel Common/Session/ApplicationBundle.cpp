#include "Session/ApplicationBundle.h"

#include "Helpers/FileContents.h"
#include "Values/Format.h"
#include "Values/PropertyList.h"

namespace moxel {

Value applicationBundleIdentifier(const MainBundle &bundle) {
    constexpr std::string_view suffix = ".app";
    if (bundle.identifier)
        return *bundle.identifier;
    const size_t found = bundle.path.find(suffix);
    if (found == std::string::npos || found + suffix.size() == bundle.path.size())
        return {};
    const std::string application = bundle.path.substr(0, found + suffix.size());
    const Result<std::vector<uint8_t>> contents =
        readFileContents(format("%@/Contents/Info.plist", application));
    if (!contents.ok())
        return {};
    const Result<PropertyList> information = readPropertyList(*contents);
    return information.ok() ? information->root.asDictionary()["CFBundleIdentifier"] : Value();
}

} // namespace moxel
