// What applications have exported, found through the index of synchronised applications.
#include <Moxel/MxlPlistDictionaries.h>

#include "Export/PropertyListFile.h"
#include "Platform/UnicodeCase.h"

#include <string>
#include <string_view>

namespace moxel {

namespace {

// Null equals nothing; text compares in lower case.
bool isSameName(const Value &value, const std::string &lowerCase) {
    const String text = value.asString();
    return text && lowercase(text.view()) == lowerCase;
}

Dictionary applicationIn(const Dictionary &index, const String &bundleID) {
    const std::string wanted = lowercase(bundleID.view());
    if (wanted.empty())
        return nullptr;
    for (const auto &[key, value] : index)
        if (lowercase(key.view()).find(wanted) != std::string::npos)
            return value.asDictionary();
    return nullptr;
}

Dictionary clientIn(const Dictionary &application, const String &appName, const String &clientName) {
    if (!appName)
        return nullptr;
    const std::string wanted = lowercase(appName.view());
    for (const auto &[key, value] : application) {
        Dictionary entry = value.asDictionary();
        const bool isMatch = clientName ? entry[kMxKeyClientName].asString() == clientName
                                        : isSameName(entry[kMxKeyName], wanted) ||
                                              isSameName(entry[kMxKeyProcessName], wanted);
        if (entry && isMatch)
            return entry;
    }
    return nullptr;
}

Dictionary contentOf(const String &path, std::string_view type) {
    // Every container stands in one place only, so that walks of it end soon.
    const auto file = mxMutableDictWithContentsOfFile(path).asMutableDictionary();
    if (!file)
        return nullptr;
    if (type == kMxKeySyncFileCmds)
        return file[kMxKeyAppCommands].asDictionary();
    if (type == kMxKeySyncFileImgs)
        return file[kMxKeyAppImages].asDictionary();
    auto settings = file;
    settings.set("filepath", path);
    return settings;
}

} // namespace

Dictionary MxlPlistDictionaries::exportedDictionary(const Dictionary &prefs, const String &ofType) const {
    return appExportedDictUsingBundleID(prefs[kMxKeyBundleID].asString(), prefs[kMxKeyApplication].asString(),
                                        prefs[kMxKeyClientName].asString(), ofType);
}

Dictionary MxlPlistDictionaries::appExportedCommandsDictUsingPrefs(const Dictionary &prefs) const {
    return exportedDictionary(prefs, kMxKeySyncFileCmds);
}

Dictionary MxlPlistDictionaries::appExportedDictUsingBundleID(const String &bundleID, const String &appName,
                                                              const String &andClientName,
                                                              const String &ofType) const {
    const std::string_view type = ofType.view();
    if (type != kMxKeySyncFileCmds && type != kMxKeySyncFileImgs && type != kMxKeySyncFileNavSettings)
        return nullptr;
    const Dictionary index = propertyListInFile(getSyncedApplicationsFilePath(false)).asDictionary();
    const Dictionary entry = clientIn(applicationIn(index, bundleID), appName, andClientName);
    const String path = entry[type].asString();
    return path ? contentOf(path, type) : Dictionary();
}

} // namespace moxel
