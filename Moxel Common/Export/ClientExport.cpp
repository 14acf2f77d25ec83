#include "Export/ClientExport.h"

#include "Export/ExportFile.h"
#include "Helpers/Logging.h"
#include "Platform/Process.h"
#include <Moxel/MxlPlistDictionaries.h>

#include <cerrno>

namespace moxel {

namespace {

/// One character for each byte, the most significant first.
String signatureText(uint32_t signature) {
    const char16_t characters[] = {
        static_cast<char16_t>(signature >> 24), static_cast<char16_t>(signature >> 16 & 0xFF),
        static_cast<char16_t>(signature >> 8 & 0xFF), static_cast<char16_t>(signature & 0xFF)};
    return String::fromUTF16(characters);
}

std::string fileName(const MxlApplication &application, ExportFile file) {
    const String signature = signatureText(application.signature().uint32Value());
    if (file == ExportFile::settings)
        return format("%@_%@.settings.plist", application.name(), signature);
    return format("%@_%@_%d.%s.plist", application.channelID(), signature, processIdentifier(),
                  file == ExportFile::commands ? "commands" : "images");
}

/// Null, with an error line, when there is none.
String exportFolder(const MxlApplication &application, const char *function) {
    const MxlPlistDictionaries::Shared store = MxlPlistDictionaries::sharedDefaultDictionaries();
    if (!store) {
        logExportError(function, {"the driver's default commands file is missing or unreadable"});
        return nullptr;
    }
    const String identifier = application.bundleid().asString();
    if (!identifier) {
        logExportError(function, {"the application has no bundle identifier"});
        return nullptr;
    }
    return store->exportedCommandsDirPath(true, identifier, application.name().asString());
}

} // namespace

String prepareExport(MoxelClientAPI &client, ExportFile file, const char *function) {
    const Ref<MxlApplication> application = client.applicationInfo();
    const String folder = exportFolder(*application, function);
    client.setStringSyncedResourcesPath(folder);
    if (!folder)
        return nullptr;
    const std::string name = fileName(*application, file);
    if (!isFileName(name)) {
        logExportError(function, {format("a file cannot be named %@", name)});
        return nullptr;
    }
    return format("%@/%@", folder, name);
}

Result<MutableDictionary> readOrBeginExport(const String &path) {
    Result<MutableDictionary> content = readExportDictionary(path.string());
    if (content.ok() || (content.error().code != 0 && content.error().code != ENOENT))
        return content;
    return MutableDictionary::withCapacity(0);
}

Data exportRequest(const char *request, const char *command, const String &parameter) {
    Result<Data> archive = archivedDataWithRootObject(
        Dictionary{{kMxKeyRequest, request}, {"ctrlcmd", command}, {"ctrlparm", parameter}});
    return archive.ok() ? *archive : Data();
}

void logExportError(const char *function, const Error &error) {
    logError("Error: %s: %@", function, error.message);
}

} // namespace moxel
