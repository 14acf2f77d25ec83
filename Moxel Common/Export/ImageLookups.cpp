// Look-ups of the images and settings that applications have exported.
#include <Moxel/MxlPlistDictionaries.h>

#include "Export/PropertyListFile.h"
#include <Moxel/MxlImage.h>

#include <utility>

namespace moxel {

namespace {

// Null when there are none.
Data imageBytes(const Dictionary &entry) {
    if (Data data = entry["data"].asData())
        return data;
    auto bytes = readAnyFile(entry[kMxKeyPath].asString());
    return bytes ? Data(std::move(*bytes)) : Data();
}

} // namespace

Dictionary MxlPlistDictionaries::imageDictionaryForPrefs(const Dictionary &prefs) const {
    return exportedDictionary(prefs, kMxKeySyncFileImgs);
}

Dictionary MxlPlistDictionaries::navSettingsDictionaryForPrefs(const Dictionary &prefs) const {
    return exportedDictionary(prefs, kMxKeySyncFileNavSettings);
}

Dictionary MxlPlistDictionaries::imageEntry(const String &identifier, const Dictionary &prefs) const {
    return identifier ? imageDictionaryForPrefs(prefs)[identifier.view()].asDictionary() : Dictionary();
}

std::shared_ptr<MxlImage> MxlPlistDictionaries::copyImageForID(const String &identifier,
                                                               const Dictionary &withSetting) const {
    const Dictionary entry = imageEntry(identifier, withSetting);
    const String type = entry["imagetype"].asString();
    if (type == "file")
        return MxlImage::initWithPath(entry[kMxKeyPath].asString());
    const Data bytes = type == "imagedata" ? imageBytes(entry) : Data();
    return bytes ? MxlImage::initWithData(bytes) : nullptr;
}

String MxlPlistDictionaries::imagePathForID(const String &identifier, const Dictionary &withSetting) const {
    const Dictionary entry = imageEntry(identifier, withSetting);
    const String type = entry["imagetype"].asString();
    const bool isFile = type == "file" || (type == "imagedata" && !entry["data"]);
    return isFile ? entry[kMxKeyPath].asString() : String();
}

} // namespace moxel
