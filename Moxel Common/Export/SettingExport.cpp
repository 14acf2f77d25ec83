// Writes and reads single settings of an application, which the driver knows by its settings file.
#include "Control/RequestSending.h"
#include "Export/ClientExport.h"
#include "Export/ExportFile.h"
#include "ExportedCall.h"
#include "Platform/FolderLock.h"
#include "Session/ClientRegistry.h"
#include <Moxel/CFileObserver.h>
#include <Moxel/MoxelClient.h>

#include <algorithm>
#include <chrono>
#include <span>
#include <string_view>
#include <utility>

namespace moxel {

namespace {

constexpr const char *setFunction =
    "int16_t MoxelClientSetSettingValue(uint16_t, const char *, const char *)";
constexpr const char *getFunction =
    "int16_t MoxelClientGetSettingValue(uint16_t, const char *, char *, uint64_t *)";

// As long as a call waits for an acknowledgement.
constexpr std::chrono::milliseconds lockLimit{2000};

bool writeSetting(const String &folder, const String &path, const char *name, const char *value) {
    // Other processes of the application change the same file.
    const Result<FolderLock> lock = FolderLock::take(folder.string(), lockLimit);
    if (!lock.ok()) {
        logExportError(setFunction, lock.error());
        return false;
    }
    Result<MutableDictionary> settings = readOrBeginExport(path);
    if (!settings.ok()) {
        logExportError(setFunction, settings.error());
        return false;
    }
    settings->set(name, value);
    return writeExportDictionary(path.string(), *settings).ok();
}

int16_t setSettingValue(uint16_t clientID, const char *name, const char *value) {
    const std::lock_guard lock(MoxelClientAPI::classLock());
    const ClientRegistry::Client client = CurrentClientViaClientID(clientID);
    if (!client)
        return kMoxelResultFailed;
    const String path = prepareExport(*client, ExportFile::settings, setFunction);
    if (!path || !writeSetting(client->stringSyncedResourcesPath(), path, name, value))
        return kMoxelResultFailed;
    const std::shared_ptr<CFileObserver> observer = client->observerSettingsFile();
    if (observer && !observer->isObserving())
        observer->observeFile(path);
    client->applicationInfo()->setSettingsFile(path);
    const bool sent = sendRequest(*client, exportRequest("moxclientwrite", "cswritesettings", path), true);
    (void)sent; // The setting is written; the sender has logged what went wrong.
    return kMoxelResultOK;
}

/// Copies UTF-8 and a zero, as many whole characters as fit; the buffer holds at least one byte.
void copyText(std::string_view text, std::span<char> buffer) {
    const auto continuesCharacter = [&](size_t at) {
        return (static_cast<uint8_t>(text[at]) & 0xC0) == 0x80;
    };
    size_t size = std::min(text.size(), buffer.size() - 1);
    while (size > 0 && size < text.size() && continuesCharacter(size))
        --size;
    std::ranges::copy(text.substr(0, size), buffer.begin());
    buffer[size] = '\0';
}

int16_t getSettingValue(uint16_t clientID, const char *name, char *buffer, uint64_t &length) {
    const std::lock_guard lock(MoxelClientAPI::classLock());
    const ClientRegistry::Client client = CurrentClientViaClientID(clientID);
    if (!client)
        return kMoxelResultFailed;
    const String path = prepareExport(*client, ExportFile::settings, getFunction);
    const uint64_t capacity = std::exchange(length, 0);
    if (!path)
        return kMoxelResultFailed;
    const Result<MutableDictionary> settings = readExportDictionary(path.string());
    if (!settings.ok())
        return kMoxelResultFailed;
    // A name that was never set is no error: its text is "(null)".
    const String text = (*settings)[String(name).view()].description();
    if (capacity <= text.length())
        return kMoxelResultFailed;
    length = text.length();
    copyText(text.view(), {buffer, capacity});
    return kMoxelResultOK;
}

} // namespace

} // namespace moxel

using namespace moxel;

int16_t MoxelClientSetSettingValue(uint16_t clientID, const char *name, const char *value) {
    if (!name || !value)
        return kMoxelResultFailed;
    return exportedCall("MoxelClientSetSettingValue", static_cast<int16_t>(kMoxelResultFailed),
                        [&] { return setSettingValue(clientID, name, value); });
}

int16_t MoxelClientGetSettingValue(uint16_t clientID, const char *name, char *buffer, uint64_t *length) {
    if (!name || !buffer || !length)
        return kMoxelResultFailed;
    return exportedCall("MoxelClientGetSettingValue", static_cast<int16_t>(kMoxelResultFailed),
                        [&] { return getSettingValue(clientID, name, buffer, *length); });
}
