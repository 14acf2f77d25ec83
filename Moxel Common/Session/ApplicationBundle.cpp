#include "Session/ApplicationBundle.h"

#include "Platform/FileContents.h"
#include "Values/Format.h"
#include "Values/PropertyList.h"

namespace moxel {

namespace {

/// What the bundle's property list says; null when it cannot be read or does not say.
Value identifierOf(const std::string &bundlePath) {
    const Result<std::vector<uint8_t>> contents =
        readFileContents(format("%@/Contents/Info.plist", bundlePath));
    if (!contents.ok())
        return {};
    const Result<PropertyList> information = readPropertyList(*contents);
    return information.ok() ? information->root.asDictionary()["CFBundleIdentifier"] : Value();
}

} // namespace

Value applicationBundleIdentifier(const MainBundle &bundle) {
    constexpr std::string_view suffix = ".app";
    if (bundle.identifier)
        return *bundle.identifier;
    if (Value own = identifierOf(bundle.path))
        return own;
    const size_t found = bundle.path.find(suffix);
    if (found == std::string::npos || found + suffix.size() == bundle.path.size())
        return {};
    return identifierOf(bundle.path.substr(0, found + suffix.size()));
}

} // namespace moxel
