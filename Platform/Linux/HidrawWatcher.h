// Watches the kernel's hidraw nodes, and tells observers which devices may be used.
#pragma once

#include "Platform/Linux/Alarm.h"
#include "Platform/Linux/HIDBusObservers.h"
#include "Platform/Linux/HidrawEntry.h"
#include "Platform/Linux/HidrawNode.h"
#include "Platform/Linux/Inotify.h"
#include "Platform/Result.h"
#include "Platform/RunLoop.h"

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <systemd/sd-device.h>

namespace moxel {

/// Opens no node. Lives on the service thread.
class HidrawWatcher {
  public:
    /// With the service thread's run loop, on that thread.
    static Result<std::unique_ptr<HidrawWatcher>> create(RunLoop &runLoop);
    HidrawWatcher(const HidrawWatcher &) = delete;
    HidrawWatcher &operator=(const HidrawWatcher &) = delete;

    /// Tells it of the devices that are there, then of every change until it is gone.
    void addObserver(std::weak_ptr<HIDBusObserver> observer);

  private:
    using Clock = Alarm::Clock;

    struct Node {
        std::shared_ptr<HidrawEntry> entry;
        Clock::time_point waitsUntil; ///< For its rights.
        bool isReady = false;
        bool isRefused = false;
        bool wasReported = false; ///< As arrived, to whoever observed then.
    };
    struct MonitorCloser {
        void operator()(sd_device_monitor *monitor) const { sd_device_monitor_unref(monitor); }
    };

    HidrawWatcher() = default;

    [[nodiscard]] Result<void> start(RunLoop &runLoop);
    void listenToUdev();
    static int udevReports(sd_device_monitor *monitor, sd_device *device, void *context) noexcept;
    void nodesHaveChanged();
    void reviewAllNowOrLater();
    Result<void> reviewAll();
    void review(const std::string &name);
    std::shared_ptr<HidrawEntry> makeEntry(const std::string &name, HidrawNode node);
    void alarmRings();
    void settle(Node &node);
    void settleAgain(Node &node, bool mayBeUsed);
    void reportAgain(Node &node);

    std::optional<Alarm> alarm_;     ///< Set from creation on.
    std::optional<Inotify> inotify_; ///< Likewise.
    RunLoopSource source_;
    std::unique_ptr<sd_device_monitor, MonitorCloser> monitor_; ///< Null where udev cannot be heard.
    std::map<std::string, Node> nodes_;
    std::set<std::string> unread_; ///< Names that could not be looked at.
    bool listIsDue_ = false;       ///< The names could not be listed.
    const std::shared_ptr<bool> isAlive_ = std::make_shared<bool>(true);
    HIDBusObservers observers_;
};

} // namespace moxel
