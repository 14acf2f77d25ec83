// Hands the driver an application's commands, and tells it which set of them is active.
#include "Control/RequestSending.h"
#include "Export/ClientExport.h"
#include "Export/ExportFile.h"
#include "ExportedCall.h"
#include "Helpers/Logging.h"
#include "Session/ClientRegistry.h"
#include <Moxel/MoxelClient.h>
#include <Moxel/MxlActionInterfaceDictConvert.h>

#include <cerrno>
#include <span>

namespace moxel {

namespace {

constexpr const char *writeFunction =
    "int16_t MoxelClientWriteCommands(uint16_t, uint32_t, int64_t, const void *)";
constexpr const char *activateFunction = "int16_t MoxelClientActivateActionSet(uint16_t, const char *)";

// ------------------------------------------------------------------------------------------ Commands

Result<MutableDictionary> commandsFromTree(const MoxelCommandSyncNode_s *list) {
    MutableDictionary content = MutableDictionary::withCapacity(1);
    const Result<void> converted =
        MxlActionInterfaceDictConvert::sharedDefaultDictionaries()->genCommandsDict(content, list);
    if (!converted.ok())
        return converted.error();
    return content;
}

Result<MutableDictionary> commandsFromArchive(std::span<const uint8_t> archive) {
    const Result<Value> commands = unarchiveObjectWithData(archive);
    if (!commands.ok())
        return commands.error();
    if (!commands->asDictionary())
        return Error{"the archive holds no dictionary of commands"};
    MutableDictionary content = MutableDictionary::withCapacity(1);
    content.set(kMxKeyAppCommands, *commands);
    logInfo("%s, MoxelClientWriteCommands(via DICT) ...dict=%@", writeFunction, content);
    return content;
}

/// The new "Commands" in a dictionary; null, with an error line unless the arguments say it all, when there
/// are none.
MutableDictionary makeCommands(uint32_t type, int64_t size, const void *data) {
    Result<MutableDictionary> content = MutableDictionary();
    if (type == kMoxelExportTree) {
        const auto *list = static_cast<const MoxelCommandSyncNode_s *>(data);
        if (list->type == kMoxelNodeActionSet)
            content = commandsFromTree(list);
    } else if (type == kMoxelExportDictionary && size >= 1) {
        content = commandsFromArchive({static_cast<const uint8_t *>(data), static_cast<size_t>(size)});
    }
    if (!content.ok())
        logExportError(writeFunction, content.error());
    return content.ok() ? *content : MutableDictionary();
}

/// Adds the new commands to those of the file, or begins a file with them. False when that cannot be done,
/// or when the file has no commands to add to.
bool mergeCommands(const String &path, const MutableDictionary &content) {
    Result<MutableDictionary> file = readExportDictionary(path.string());
    if (!file.ok()) {
        const bool isReplaced = file.error().code == 0 || file.error().code == ENOENT;
        if (!isReplaced)
            logExportError(writeFunction, file.error());
        return isReplaced && writeExportDictionary(path.string(), content).ok();
    }
    MutableDictionary commands = (*file)[kMxKeyAppCommands].asMutableDictionary();
    if (!commands)
        return false;
    commands.addEntries(content[kMxKeyAppCommands].asDictionary());
    return writeExportDictionary(path.string(), *file).ok();
}

int16_t writeCommands(uint16_t clientID, uint32_t type, int64_t size, const void *data) {
    const std::lock_guard lock(MoxelClientAPI::classLock());
    const ClientRegistry::Client client = CurrentClientViaClientID(clientID);
    if (!client)
        return kMoxelResultFailed;
    logInfo("*** %s, client=%p", writeFunction, static_cast<const void *>(client.get()));
    const MutableDictionary content = data ? makeCommands(type, size, data) : MutableDictionary();
    if (!content)
        return kMoxelResultFailed;
    const String path = prepareExport(*client, ExportFile::commands, writeFunction);
    if (!path || !mergeCommands(path, content))
        return kMoxelResultFailed;
    const Ref<MxlApplication> application = client->applicationInfo();
    application->setCommandsFile(path);
    // Always -1, whatever the call returns.
    logInfo("retVal = %i, Commandsfile = %@, channelID=%@", -1, path, application->channelID());
    const Data request = exportRequest("moxclientwrite", "cswritecommands", path);
    logInfo("%s, '>'>'>'> Sending info.. length: %lu", writeFunction, request.size());
    return sendRequest(*client, request, true) ? kMoxelResultOK : kMoxelResultFailed;
}

// ------------------------------------------------------------------------------------------ Active set

bool writeActiveSet(const String &path, const String &identifier) {
    Result<MutableDictionary> file = readOrBeginExport(path);
    if (!file.ok()) {
        logExportError(activateFunction, file.error());
        return false;
    }
    MutableDictionary commands = (*file)[kMxKeyAppCommands].asMutableDictionary();
    if (!commands) {
        if ((*file)[kMxKeyAppCommands]) {
            logExportError(activateFunction, {path.string() + " holds no dictionary of commands"});
            return false;
        }
        commands = MutableDictionary::withCapacity(1);
        file->set(kMxKeyAppCommands, commands);
    }
    commands.set(kMxKeyActiveSetID, identifier);
    return writeExportDictionary(path.string(), *file).ok();
}

int16_t activateActionSet(uint16_t clientID, const char *actionSetID) {
    const std::lock_guard lock(MoxelClientAPI::classLock());
    const ClientRegistry::Client client = CurrentClientViaClientID(clientID);
    if (!client)
        return kMoxelResultFailed;
    logInfo(" %s, client=%p", activateFunction, static_cast<const void *>(client.get()));
    const String path = prepareExport(*client, ExportFile::commands, activateFunction);
    const String identifier = actionSetID ? String(actionSetID) : String("(null)");
    // Even a null identifier is written, before the call fails for it.
    if (!path || !writeActiveSet(path, identifier) || !actionSetID)
        return kMoxelResultFailed;
    const Data request = exportRequest("moxclientactset", "csactiveset", identifier);
    return sendRequest(*client, request, true) ? kMoxelResultOK : kMoxelResultFailed;
}

} // namespace

} // namespace moxel

using namespace moxel;

int16_t MoxelClientWriteCommands(uint16_t clientID, uint32_t type, int64_t size, const void *data) {
    return exportedCall("MoxelClientWriteCommands", static_cast<int16_t>(kMoxelResultFailed),
                        [&] { return writeCommands(clientID, type, size, data); });
}

int16_t MoxelClientActivateActionSet(uint16_t clientID, const char *actionSetID) {
    return exportedCall("MoxelClientActivateActionSet", static_cast<int16_t>(kMoxelResultFailed),
                        [&] { return activateActionSet(clientID, actionSetID); });
}
