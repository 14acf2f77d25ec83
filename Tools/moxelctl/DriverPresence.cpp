#include "DriverPresence.h"

#include "DriverDiagnosis.h"
#include <Moxel/MoxelClient.h>

namespace moxel::tool {

DriverPresence::DriverPresence() : baseName_(baseChannelName()) {
    Result<std::shared_ptr<RunLoop>> runLoop = RunLoop::current();
    if (!runLoop.ok())
        return; // Nor will there be a session.
    runLoop_ = *std::move(runLoop);
    manager_ = HIDManager::create();
    manager_->setDeviceMatching({{std::string(hidVendorIDKey), int64_t{kMoxelVendorID}}});
    manager_->registerDeviceRemovalCallback(
        [](void *context, HIDStatus, HIDManager *, const HIDDeviceReference &device) {
            auto &presence = *static_cast<DriverPresence *>(context);
            presence.hasLeft_ = presence.hasLeft_ || device->registryEntryName() == presence.baseName_;
        },
        this);
    manager_->scheduleWithRunLoop(*runLoop_);
}

DriverPresence::~DriverPresence() {
    if (manager_)
        manager_->unscheduleFromRunLoop();
}

} // namespace moxel::tool
