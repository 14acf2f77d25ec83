// Look-ups in the action sets that applications have exported.
#include <Moxel/MxlPlistDictionaries.h>

#include "Export/CommandSearch.h"
#include "Platform/UnicodeCase.h"

#include <algorithm>
#include <array>

namespace moxel {

namespace {

bool isAttribute(const String &key) {
    return std::ranges::find(containerAttributes, key.view()) != containerAttributes.end();
}

bool hasLabel(const Value &member, const String &label) {
    return label && member.asDictionary()["label"].asString() == label;
}

// The first member of the set with that label; null when there is none.
Dictionary memberWithLabel(const Dictionary &set, const String &label) {
    for (const auto &[key, member] : set)
        if (hasLabel(member, label))
            return member.asDictionary();
    return nullptr;
}

void store(String *result, const String &value) {
    if (result != nullptr)
        *result = value;
}

// The active one of an application's action sets, and its identifier.
Dictionary activeSetOf(const Dictionary &commands, String *returningID) {
    if (!commands)
        return nullptr;
    String identifier = commands[kMxKeyActiveSetID].asString();
    if (!identifier)
        identifier = "Default";
    store(returningID, identifier);
    return commands[identifier.view()].asDictionary();
}

} // namespace

String MxlPlistDictionaries::idForLabel(const String &label, const Dictionary &inCommandSet) const {
    String found;
    for (const auto &[key, member] : inCommandSet)
        if (!isAttribute(key) && hasLabel(member, label))
            found = key;
    return found;
}

Dictionary MxlPlistDictionaries::commandSetForLabel(const String &label, String *returningCommandID,
                                                    const Dictionary &fromSetting) const {
    for (const auto &[key, value] : appExportedCommandsDictUsingPrefs(fromSetting)) {
        Dictionary set = value.asDictionary();
        if (key == kMxKeyActiveSetID || set["type"].asString() != kMxKeyActionSet)
            continue;
        if (const Dictionary member = memberWithLabel(set, label)) {
            store(returningCommandID, member["id"].asString());
            return set;
        }
    }
    return nullptr;
}

Dictionary MxlPlistDictionaries::dictionaryForSearchStringInDict(const String &searchString,
                                                                 const Dictionary &inDict, bool exactSearch,
                                                                 bool singleItemSearch,
                                                                 uint16_t *returningFinds) const {
    uint16_t ignored = 0;
    return CommandSearch(searchString, exactSearch, singleItemSearch,
                         returningFinds != nullptr ? *returningFinds : ignored)
        .run(inDict);
}

Dictionary MxlPlistDictionaries::dictionaryForSearchStringFromDict(const String &searchString,
                                                                   const Dictionary &fromDict,
                                                                   bool exactSearch, bool singleItemSearch,
                                                                   uint16_t *hasFinds) const {
    if (hasFinds == nullptr)
        return nullptr;
    *hasFinds = 0;
    const String text = searchString ? String(lowercase(searchString.view())) : String();
    return dictionaryForSearchStringInDict(text, fromDict, exactSearch, singleItemSearch, hasFinds);
}

MutableArray MxlPlistDictionaries::commandSetIDsForSetting(const Dictionary &prefs,
                                                           String *returningID) const {
    const Dictionary commands = appExportedCommandsDictUsingPrefs(prefs);
    if (!commands)
        return {};
    auto identifiers = MutableArray::withCapacity(commands.size());
    for (const auto &[key, value] : commands)
        if (key != kMxKeyActiveSetID)
            identifiers.append(key);
    store(returningID, commands[kMxKeyActiveSetID].asString());
    return identifiers;
}

Dictionary MxlPlistDictionaries::activeCommandSetForBundleID(const String &bundleID, const String &appName,
                                                             const String &andClientName,
                                                             String *returningID) const {
    return activeSetOf(appExportedDictUsingBundleID(bundleID, appName, andClientName, kMxKeySyncFileCmds),
                       returningID);
}

Dictionary MxlPlistDictionaries::activeCommandSetForPrefs(const Dictionary &prefs,
                                                          String *returningID) const {
    return activeSetOf(appExportedCommandsDictUsingPrefs(prefs), returningID);
}

String MxlPlistDictionaries::activeCommandSetIDForBundleID(const String &bundleID, const String &appName,
                                                           const String &andClientName) const {
    return appExportedDictUsingBundleID(bundleID, appName, andClientName,
                                        kMxKeySyncFileCmds)[kMxKeyActiveSetID]
        .asString();
}

String MxlPlistDictionaries::activeCommandSetIDForPrefs(const Dictionary &prefs) const {
    return appExportedCommandsDictUsingPrefs(prefs)[kMxKeyActiveSetID].asString();
}

} // namespace moxel
