// Look-ups of the images and settings that applications have exported.
#include <Moxel/MxlPlistDictionaries.h>

namespace moxel {

Dictionary MxlPlistDictionaries::imageDictionaryForPrefs(const Dictionary &prefs) const {
    return appExportedDictUsingBundleID(prefs[kMxKeyBundleID].asString(), prefs[kMxKeyApplication].asString(),
                                        prefs[kMxKeyClientName].asString(), kMxKeySyncFileImgs);
}

Dictionary MxlPlistDictionaries::navSettingsDictionaryForPrefs(const Dictionary &prefs) const {
    return appExportedDictUsingBundleID(prefs[kMxKeyBundleID].asString(), prefs[kMxKeyApplication].asString(),
                                        prefs[kMxKeyClientName].asString(), kMxKeySyncFileNavSettings);
}

Dictionary MxlPlistDictionaries::imageEntry(const String &identifier, const Dictionary &prefs) const {
    return identifier ? imageDictionaryForPrefs(prefs)[identifier.view()].asDictionary() : Dictionary();
}

String MxlPlistDictionaries::imagePathForID(const String &identifier, const Dictionary &withSetting) const {
    const Dictionary entry = imageEntry(identifier, withSetting);
    const String type = entry["imagetype"].asString();
    const bool isFile = type == "file" || (type == "imagedata" && !entry["data"]);
    return isFile ? entry[kMxKeyPath].asString() : String();
}

} // namespace moxel
