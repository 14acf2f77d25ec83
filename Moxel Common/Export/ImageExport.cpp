// Hands the driver an application's images.
#include "Control/RequestSending.h"
#include "Export/ClientExport.h"
#include "Export/ExportFile.h"
#include "ExportedCall.h"
#include "Helpers/Logging.h"
#include "Session/ClientRegistry.h"
#include <Moxel/MoxelClient.h>
#include <Moxel/MxlActionInterfaceDictConvert.h>

namespace moxel {

namespace {

constexpr const char *function = "int16_t MoxelClientWriteImages(uint16_t, uint32_t, const void *, size_t)";

/// Adds the images to the file's content. An unknown type adds nothing, which is no error.
Result<void> addImages(MutableDictionary &content, uint32_t type, const void *data, size_t count,
                       const String &folder) {
    if (type == kMoxelExportImages)
        return MxlActionInterfaceDictConvert::sharedDefaultDictionaries()->genImagesDict(
            content, static_cast<const MoxelImage_s *>(data), count, folder);
    if (type != kMoxelExportDictionary)
        return {};
    const auto &images = *static_cast<MoxelDictionaryRef>(data);
    if (!images)
        return Error{"the dictionary of images is null"};
    content.set(kMxKeyAppImages, images);
    return {};
}

int16_t writeImages(uint16_t clientID, uint32_t type, const void *data, size_t count) {
    const std::lock_guard lock(MoxelClientAPI::classLock());
    const ClientRegistry::Client client = CurrentClientViaClientID(clientID);
    if (!client)
        return kMoxelResultFailed;
    logInfo("*** %s, client=%p", function, static_cast<const void *>(client.get()));
    const String path = prepareExport(*client, ExportFile::images, function);
    if (!path)
        return kMoxelResultFailed;
    Result<MutableDictionary> content = readOrBeginExport(path);
    const Result<void> added =
        content.ok() ? addImages(*content, type, data, count, client->stringSyncedResourcesPath())
                     : content.error();
    if (!added.ok()) {
        logExportError(function, added.error());
        return kMoxelResultFailed;
    }
    if (!writeExportDictionary(path.string(), *content).ok())
        return kMoxelResultFailed;
    client->applicationInfo()->setImagesFile(path);
    // The daemon expects the word as it is spelled here.
    const Data request = exportRequest("moxclientwrite", "cswriteimgages", path);
    return sendRequest(*client, request, true) ? kMoxelResultOK : kMoxelResultFailed;
}

} // namespace

} // namespace moxel

using namespace moxel;

int16_t MoxelClientWriteImages(uint16_t clientID, uint32_t type, const void *data, size_t count) {
    if (!data || count == 0)
        return kMoxelResultFailed;
    return exportedCall("MoxelClientWriteImages", static_cast<int16_t>(kMoxelResultFailed),
                        [&] { return writeImages(clientID, type, data, count); });
}
