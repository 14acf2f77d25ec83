// Tells the application and the driver's user interface that the application's settings file changed.
#include "ExportedCall.h"
#include "Helpers/Logging.h"
#include "Platform/DistributedNotificationCenter.h"
#include "Platform/NotificationCenter.h"
#include "Platform/Thread.h"
#include "Protocol/Delivery.h"
#include <Moxel/CFileObserverInfo.h>
#include <Moxel/MoxelClientAPI.h>
#include <Moxel/MoxelStrings.h>

#include <memory>
#include <span>

namespace moxel {

namespace {

constexpr const char *userInterfaceRequest = "com.moxel.ui.req";

String appendPathComponent(const String &folder, const String &name) {
    std::string path = folder.string();
    if (name) {
        if (!path.empty() && !path.ends_with('/'))
            path += '/';
        path += name.view();
    }
    return path;
}

/// Carries the reason only. The areas for the path are zero, so that nothing of the process leaks into them.
std::unique_ptr<MoxelSettingsChange> makeSettingsChange(int32_t eventReason) {
    auto change = std::make_unique<MoxelSettingsChange>();
    change->reason = eventReason == 1 || eventReason == 2 ? static_cast<uint32_t>(eventReason) : 0;
    return change;
}

} // namespace

void MoxelClientAPI::fileChangeNotification(const Notification &notification) {
    const auto *info = dynamic_cast<const CFileObserverInfo *>(notification.object);
    if (!info)
        return;
    const String path = appendPathComponent(info->folderName(), info->fileName());
    // What the application's handler throws keeps neither this request nor the other clients from their turn.
    exportedCall("fileChangeNotification",
                 [&] { deliverSettingsChange(*makeSettingsChange(info->eventReason())); });
    postUserInterfaceRequest(path);
}

void MoxelClientAPI::deliverSettingsChange(MoxelSettingsChange &change) {
    if (!hasMessageHandler())
        return;
    if (allowThreadedCallback_) {
        callMessageHandler(kMoxelAnyProduct, kMoxelMsgSettingsFileChanged, &change);
        return;
    }
    const std::span bytes(reinterpret_cast<const uint8_t *>(&change), sizeof change);
    forwardToCallerThread({{"handler", int{delivery::settingsFileChanged}},
                           {"pid", uint32_t{kMoxelAnyProduct}},
                           {"arg", Data(bytes)}});
}

void MoxelClientAPI::postUserInterfaceRequest(const String &path) {
    const std::lock_guard lock(classLock());
    const Dictionary request{{"req", "unavsett"}, {"app", applicationInfo()}, {"filepath", path}};
    const Result<Data> archive = archivedDataWithRootObject(request);
    if (archive.ok() && archive->size() <= UINT16_MAX)
        postDistributedNotification(userInterfaceRequest, hexString(*archive).string());
    else
        logError("Error: a request to the user interface is dropped: %@",
                 archive.ok() ? "it is too long" : archive.error().message);
}

} // namespace moxel
