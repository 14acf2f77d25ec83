// Watches a folder of device files, and tells when to look at it again.
#pragma once

#include "Platform/Linux/AncestorWatches.h"
#include "Platform/Linux/Inotify.h"
#include "Platform/Result.h"
#include "Platform/RunLoop.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace moxel::daemon {

/// The folder may be missing, come, go and come again. Lives on the run loop's thread.
class DeviceFolder {
  public:
    /// Files have come or gone, or the rights on them have changed; or so has the folder.
    using Changed = std::function<void()>;

    /// `path` is absolute.
    static Result<std::unique_ptr<DeviceFolder>> watch(std::string path, RunLoop &runLoop, Changed changed);
    DeviceFolder(const DeviceFolder &) = delete;
    DeviceFolder &operator=(const DeviceFolder &) = delete;

    /// Paths of the event devices in a folder, watched or not; in the order of their numbers.
    [[nodiscard]] static std::vector<std::string> eventDevices(const std::string &path);

  private:
    DeviceFolder(std::string path, Inotify inotify, Changed changed);

    void eventsAreReady();
    void watchPath();

    std::string path_;
    Inotify inotify_;
    AncestorWatches ancestors_{path_, inotify_};
    Changed changed_;
    int folderWatch_ = -1;
    RunLoopSource events_;
};

} // namespace moxel::daemon
