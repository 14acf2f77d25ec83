// The driver's property lists: where they lie, what they hold, and what applications have exported.
#pragma once

#include "MoxelBase.h"
#include "MoxelKeys.h"
#include "Values/Value.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>

namespace moxel {

class MxlImage;

/// The process has one store. Strings and dictionaries that are arguments may be null, results are null when
/// there is nothing; nothing throws. Files are read anew at every call.
///
/// Identifiers and names become parts of paths: one with a slash, or one that would lead to another folder,
/// has no export folder. Below the export base folder symbolic links are not followed.
///
/// All members may be called from any thread, as long as no thread changes what they return or are given.
class MOXEL_EXPORT MxlPlistDictionaries : public std::enable_shared_from_this<MxlPlistDictionaries> {
  public:
    /// A shared reference to the store.
    using Shared = std::shared_ptr<MxlPlistDictionaries>;

    // ---------------------------------------------------------------------------------- The store

    /// +[MxlPlistDictionaries sharedDefaultDictionaries]
    /// The store; null while the driver's default commands file is missing or unreadable.
    [[nodiscard]] static Shared sharedDefaultDictionaries();
    /// +[MxlPlistDictionaries alloc]
    /// Logs that sharedDefaultDictionaries() is the way, and yields null.
    static Shared alloc();
    /// +[MxlPlistDictionaries new]
    /// Like alloc().
    static Shared newInstance();
    /// -[MxlPlistDictionaries init]
    /// The store itself.
    Shared init();
    /// -[MxlPlistDictionaries copyWithZone:]
    /// The store itself.
    [[nodiscard]] Shared copyWithZone();
    /// -[MxlPlistDictionaries mutableCopyWithZone:]
    /// The store itself.
    [[nodiscard]] Shared mutableCopyWithZone();
    MxlPlistDictionaries(const MxlPlistDictionaries &) = delete;
    MxlPlistDictionaries &operator=(const MxlPlistDictionaries &) = delete;

    // ---------------------------------------------------------------------------------- The driver's files

    /// Path of the default commands file.
    [[nodiscard]] String stringAppCommandsPath() const { return stringAppCommandsPath_; }
    /// File URL of the default commands file.
    [[nodiscard]] String urlAppCommandsPath() const { return urlAppCommandsPath_; }
    /// Path of the default mapping file.
    [[nodiscard]] String stringDefaultPath() const { return stringDefaultPath_; }
    /// File URL of the default mapping file.
    [[nodiscard]] String urlDefaultPath() const { return urlDefaultPath_; }
    /// Path of the user mapping file; null when the user has no library folder.
    [[nodiscard]] String stringUserMappingPath() const { return stringUserMappingPath_; }
    /// File URL of the user mapping file; null when the user has no library folder.
    [[nodiscard]] String urlUserMappingPath() const { return urlUserMappingPath_; }
    /// The content of the default commands file, read once.
    [[nodiscard]] MutableDictionary dictAppCommands() const { return dictAppCommands_; }

    /// -[MxlPlistDictionaries defaultCommands]
    [[nodiscard]] MutableDictionary defaultCommands() const { return dictAppCommands_; }
    /// -[MxlPlistDictionaries defaultMapping]
    [[nodiscard]] MutableDictionary defaultMapping() const;
    /// -[MxlPlistDictionaries userMapping]
    [[nodiscard]] MutableDictionary userMapping() const;

    // ---------------------------------------------------------------------------------- Export folders

    /// -[MxlPlistDictionaries getLoginTime]
    /// When the user logged in at the console; absent when the machine does not know.
    [[nodiscard]] std::optional<Date> getLoginTime() const;
    /// -[MxlPlistDictionaries cleanupExportFiles]
    /// Removes every file and folder in the export base folder that was created before the console login;
    /// nothing when the login time is unknown.
    void cleanupExportFiles() const;
    /// -[MxlPlistDictionaries exportedCommandsBaseDirPath]
    [[nodiscard]] String exportedCommandsBaseDirPath() const;
    /// -[MxlPlistDictionaries exportedCommandsDirPath:withID:andName:]
    /// The export folder of an application, by its bundle identifier and, unless null, its name. With
    /// `create` a missing folder is made, and the one for image data in it; otherwise it yields null.
    [[nodiscard]] String exportedCommandsDirPath(bool create, const String &withID,
                                                 const String &andName) const;
    /// -[MxlPlistDictionaries getSyncedApplicationsFilePath:]
    /// The index of the applications whose exports the driver has taken over. With `create` a missing one is
    /// made, empty; otherwise the path says nothing about whether it exists.
    [[nodiscard]] String getSyncedApplicationsFilePath(bool create) const;

    // ---------------------------------------------------------------------------------- What is exported

    // `prefs` names an application under kMxKeyBundleID, kMxKeyApplication and kMxKeyClientName. The
    // application is the first of the index whose key contains the bundle identifier, and of its clients the
    // first with that client name or, when none is given, the first whose name or process name is the
    // application name. Only the client name's case counts. Without an application name nothing is found.

    /// -[MxlPlistDictionaries appExportedCommandsDictUsingPrefs:]
    /// What the application exported under "Commands".
    [[nodiscard]] Dictionary appExportedCommandsDictUsingPrefs(const Dictionary &prefs) const;
    /// -[MxlPlistDictionaries appExportedDictUsingBundleID:appName:andClientName:ofType:]
    /// By type: kMxKeySyncFileCmds and kMxKeySyncFileImgs yield what the file holds under "Commands" and
    /// "Images", kMxKeySyncFileNavSettings the whole file and its path under "filepath".
    [[nodiscard]] Dictionary appExportedDictUsingBundleID(const String &bundleID, const String &appName,
                                                          const String &andClientName,
                                                          const String &ofType) const;

    // ---------------------------------------------------------------------------------- Commands

    /// -[MxlPlistDictionaries idForLabel:inCommandSet:]
    /// The key of the member with that label, of several the last one.
    [[nodiscard]] String idForLabel(const String &label, const Dictionary &inCommandSet) const;
    /// -[MxlPlistDictionaries commandSetForLabel:returningCommandID:fromSetting:]
    /// The first action set that has an action of that label as a direct member, and the action's "id".
    [[nodiscard]] Dictionary commandSetForLabel(const String &label, String *returningCommandID,
                                                const Dictionary &fromSetting) const;
    /// -[MxlPlistDictionaries dictionaryForSearchString:inDict:exactSearch:singleItemSearch:returningFinds:]
    /// The actions whose lower-case label contains, or exactly is, the text, which must be in lower case.
    /// They are the dictionary's own entries, within copies of the sets and categories that hold them, each
    /// under its "id" and reduced to its attributes; `returningFinds` is increased by their number. A single
    /// item search yields the first action itself and counts nothing. A container that holds itself is
    /// searched once.
    [[nodiscard]] Dictionary dictionaryForSearchStringInDict(const String &searchString,
                                                             const Dictionary &inDict, bool exactSearch,
                                                             bool singleItemSearch,
                                                             uint16_t *returningFinds) const;
    /// -[MxlPlistDictionaries dictionaryForSearchString:fromDict:exactSearch:singleItemSearch:hasFinds:]
    /// The same for text in any case, counting from 0. Null without a counter.
    [[nodiscard]] Dictionary dictionaryForSearchStringFromDict(const String &searchString,
                                                               const Dictionary &fromDict, bool exactSearch,
                                                               bool singleItemSearch,
                                                               uint16_t *hasFinds) const;
    /// -[MxlPlistDictionaries commandSetIDsForSetting:returningID:]
    /// The identifiers of the action sets, and that of the active one or null.
    [[nodiscard]] MutableArray commandSetIDsForSetting(const Dictionary &prefs, String *returningID) const;
    /// -[MxlPlistDictionaries activeCommandSetForBundleID:appName:andClientName:returningID:]
    /// The active action set and its identifier, which is "Default" when none is marked as active.
    [[nodiscard]] Dictionary activeCommandSetForBundleID(const String &bundleID, const String &appName,
                                                         const String &andClientName,
                                                         String *returningID) const;
    /// -[MxlPlistDictionaries activeCommandSetForPrefs:returningID:]
    [[nodiscard]] Dictionary activeCommandSetForPrefs(const Dictionary &prefs, String *returningID) const;
    /// -[MxlPlistDictionaries activeCommandSetIDForBundleID:appName:andClientName:]
    /// Null when none is marked as active.
    [[nodiscard]] String activeCommandSetIDForBundleID(const String &bundleID, const String &appName,
                                                       const String &andClientName) const;
    /// -[MxlPlistDictionaries activeCommandSetIDForPrefs:]
    [[nodiscard]] String activeCommandSetIDForPrefs(const Dictionary &prefs) const;

    // ---------------------------------------------------------------------------------- Images and settings

    /// -[MxlPlistDictionaries imageDictionaryForPrefs:]
    [[nodiscard]] Dictionary imageDictionaryForPrefs(const Dictionary &prefs) const;
    /// -[MxlPlistDictionaries navSettingsDictionaryForPrefs:]
    [[nodiscard]] Dictionary navSettingsDictionaryForPrefs(const Dictionary &prefs) const;
    /// -[MxlPlistDictionaries copyImageForID:withSetting:]
    /// A new image.
    [[nodiscard]] std::shared_ptr<MxlImage> copyImageForID(const String &identifier,
                                                           const Dictionary &withSetting) const;
    /// -[MxlPlistDictionaries imagePathForID:withSetting:]
    /// Null when the image's bytes stand in the dictionary itself.
    [[nodiscard]] String imagePathForID(const String &identifier, const Dictionary &withSetting) const;

  private:
    friend struct MxlPlistDictionariesTestAccess;
    /// The slot that holds the store.
    struct Singleton {
        std::mutex mutex;
        Shared store;
    };

    MxlPlistDictionaries() = default;
    [[nodiscard]] static Singleton &singleton();
    [[nodiscard]] static Shared allocPrivately();
    /// False when the store is unusable.
    [[nodiscard]] bool readDefaults();
    /// What the application that `prefs` names has exported of that type.
    [[nodiscard]] MOXEL_HIDDEN Dictionary exportedDictionary(const Dictionary &prefs,
                                                             const String &ofType) const;
    [[nodiscard]] Dictionary imageEntry(const String &identifier, const Dictionary &prefs) const;

    // Set before the store is handed out, and never after.
    String stringAppCommandsPath_;
    String urlAppCommandsPath_;
    String stringDefaultPath_;
    String urlDefaultPath_;
    String stringUserMappingPath_;
    String urlUserMappingPath_;
    MutableDictionary dictAppCommands_;
};

/// +[NSMutableDictionary(MxMutableDict) mxMutableDictWithContentsOfFile:]
/// The property list in a file, whatever its form and its root, every container in it mutable; null when it
/// cannot be read. Any thread.
[[nodiscard]] MOXEL_EXPORT Value mxMutableDictWithContentsOfFile(const String &path);

} // namespace moxel
