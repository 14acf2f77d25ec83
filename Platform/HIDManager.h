// Finds HID devices on every bus of the platform and reports their arrival and removal.
#pragma once

#include "Export.h"
#include "HIDDevice.h"
#include "RunLoop.h"

#include <map>
#include <memory>
#include <string>

namespace moxel {

/// Lives on the thread whose run loop it is scheduled on.
class MOXEL_EXPORT HIDManager {
  public:
    using DeviceCallback = void (*)(void *context, HIDStatus result, HIDManager *sender,
                                    const HIDDeviceReference &device);
    /// A device matches when it has each of these properties with an equal value.
    using Matching = std::map<std::string, HIDProperty, std::less<>>;

    static std::unique_ptr<HIDManager> create();

    virtual ~HIDManager() = default;

    virtual void setDeviceMatching(Matching matching) = 0;
    virtual void registerDeviceMatchingCallback(DeviceCallback callback, void *context) = 0;
    virtual void registerDeviceRemovalCallback(DeviceCallback callback, void *context) = 0;

    /// Starts reporting on the calling thread's run loop: first the devices that are there, then every
    /// change.
    virtual void scheduleWithRunLoop(RunLoop &runLoop) = 0;
    /// Stops all callbacks, those of the manager's devices included; none is under way afterwards.
    virtual void unscheduleFromRunLoop() = 0;
    /// Closes every device that is still open.
    virtual HIDStatus close() = 0;
};

} // namespace moxel
