// The store itself, the driver's own files, and the folders and index of exports.
#include <Moxel/MxlPlistDictionaries.h>

#include "Export/ExportFile.h"
#include "Export/FileURL.h"
#include "Helpers/Logging.h"
#include "Platform/Folders.h"
#include "Platform/LoginTime.h"
#include "Platform/StaleFiles.h"
#include "Values/Format.h"

#include <chrono>
#include <filesystem>
#include <mutex>
#include <set>
#include <string>
#include <system_error>

namespace moxel {

namespace {

bool exists(const std::string &path) {
    std::error_code error;
    return std::filesystem::exists(std::filesystem::path(path), error);
}

// Folders that were published stay in memory for ever, since anybody may have kept a pointer to one.
void publishBaseFolder(const std::optional<std::string> &folder) {
    static auto &published = *new std::set<std::string>;
    kExportedCommandsBaseDirPath = folder ? published.insert(*folder).first->c_str() : nullptr;
}

// The application's part of the path; null when it is no name of a folder.
String exportFolderName(const String &identifier, const String &name) {
    String text = name ? String(format("%@_%@", identifier, name)) : identifier;
    return isFileName(text.view()) ? text : String();
}

constexpr const char *dirPathMethod = "-[MxlPlistDictionaries exportedCommandsDirPath:withID:andName:]";
constexpr const char *indexPathMethod = "-[MxlPlistDictionaries getSyncedApplicationsFilePath:]";

void logFolderError(const std::string &path, const std::string &error) {
    logError("%s, Error creating main sync folder %@. Error: %@ ", dirPathMethod, path, error);
}

// True when the folder is there now.
bool makeLoggedFolder(const std::string &path) {
    const auto made = makeExportFolder(path);
    if (!made)
        logFolderError(path, made.error().message);
    return made.ok();
}

} // namespace

// Never destroyed: threads may ask until the process is gone.
MxlPlistDictionaries::Singleton &MxlPlistDictionaries::singleton() {
    static auto &singleton = *new Singleton;
    return singleton;
}

MxlPlistDictionaries::Shared MxlPlistDictionaries::sharedDefaultDictionaries() {
    auto &shared = singleton();
    const std::lock_guard lock(shared.mutex);
    if (!shared.store) {
        auto store = allocPrivately();
        if (store->readDefaults())
            shared.store = std::move(store);
    }
    return shared.store;
}

MxlPlistDictionaries::Shared MxlPlistDictionaries::allocPrivately() {
    return Shared(new MxlPlistDictionaries);
}

MxlPlistDictionaries::Shared MxlPlistDictionaries::alloc() {
    logError("%@ : Use +sharedInstance instead of +alloc", "MxlPlistDictionaries");
    return nullptr;
}

MxlPlistDictionaries::Shared MxlPlistDictionaries::newInstance() { return alloc(); }

MxlPlistDictionaries::Shared MxlPlistDictionaries::init() { return shared_from_this(); }

MxlPlistDictionaries::Shared MxlPlistDictionaries::copyWithZone() { return shared_from_this(); }

MxlPlistDictionaries::Shared MxlPlistDictionaries::mutableCopyWithZone() { return copyWithZone(); }

bool MxlPlistDictionaries::readDefaults() {
    const auto library = userLibraryFolder();
    publishBaseFolder(exportBaseFolder());
    const std::string support = localApplicationSupportFolder();
    stringAppCommandsPath_ = format("%@/Moxel/MxlWare/MxlCommands.%@", support, kMxPlistFileType);
    stringDefaultPath_ = format("%@/Moxel/MxlWare/MxlDefaults.%@", support, kMxPlistFileType);
    if (library)
        stringUserMappingPath_ =
            format("%@/Preferences/%s.%@", *library, "com.moxel.mappingsV2", kMxPlistFileType);
    urlAppCommandsPath_ = fileURLWithPath(stringAppCommandsPath_);
    urlDefaultPath_ = fileURLWithPath(stringDefaultPath_);
    urlUserMappingPath_ = fileURLWithPath(stringUserMappingPath_);
    dictAppCommands_ = mxMutableDictWithContentsOfFile(stringAppCommandsPath_).asMutableDictionary();
    return static_cast<bool>(dictAppCommands_);
}

MutableDictionary MxlPlistDictionaries::defaultMapping() const {
    return mxMutableDictWithContentsOfFile(stringDefaultPath_).asMutableDictionary();
}

MutableDictionary MxlPlistDictionaries::userMapping() const {
    return mxMutableDictWithContentsOfFile(stringUserMappingPath_).asMutableDictionary();
}

std::optional<Date> MxlPlistDictionaries::getLoginTime() const {
    constexpr double secondsFrom1970To2001 = 978'307'200;
    const auto time = loginTime();
    if (!time)
        return std::nullopt;
    return Date{static_cast<double>(time->time_since_epoch().count()) - secondsFrom1970To2001};
}

void MxlPlistDictionaries::cleanupExportFiles() const {
    const auto time = loginTime();
    const String base = exportedCommandsBaseDirPath();
    if (time && base)
        removeFilesCreatedBefore(base.string(), fileTime(time->time_since_epoch()));
}

String MxlPlistDictionaries::exportedCommandsBaseDirPath() const {
    return kExportedCommandsBaseDirPath.load();
}

String MxlPlistDictionaries::exportedCommandsDirPath(bool create, const String &withID,
                                                     const String &andName) const {
    const String base = exportedCommandsBaseDirPath();
    if (!withID || !base)
        return nullptr;
    const String name = exportFolderName(withID, andName);
    if (!name) {
        if (create)
            logFolderError(
                format("%@/%@", base, andName ? format("%@_%@", withID, andName) : withID.string()),
                "The name cannot be that of a folder");
        return nullptr;
    }
    const std::string folder = format("%@/%@", base, name);
    if (exists(folder))
        return folder;
    if (!create || !makeLoggedFolder(folder))
        return nullptr;
    const std::string images = format("%@/%@", folder, kStrImageDataSubfolder);
    if (!exists(images))
        (void)makeLoggedFolder(images);
    return folder;
}

String MxlPlistDictionaries::getSyncedApplicationsFilePath(bool create) const {
    // Unlike the export folders, the index is looked for where the library folder is now.
    const auto base = exportBaseFolder();
    if (!base)
        return nullptr;
    const std::string index = *base + "/SyncApplications.plist";
    if (!create || exists(index))
        return index;
    if (const auto made = makeExportFolder(*base); !made) {
        // Without the path, which this line has never told.
        logError("%s, Error creating %@. Error: %@ ", indexPathMethod, String(), made.error().message);
        return nullptr;
    }
    return createEmptyExportFile(index) ? String(index) : String();
}

} // namespace moxel
