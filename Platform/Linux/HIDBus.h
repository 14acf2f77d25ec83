// One bus on which HID devices appear, as the manager sees it; every kind of bus stands behind it.
#pragma once

#include "Platform/HIDDevice.h"
#include "Platform/RunLoop.h"
#include "Platform/Thread.h"

#include <memory>
#include <optional>
#include <string_view>

namespace moxel {

class HIDBusDevice;

/// What a device needs of the manager that it belongs to, for as long as that manager stays scheduled.
class HIDDeviceHost {
  public:
    virtual ~HIDDeviceHost() = default;

    /// The thread of the manager's run loop. Any thread.
    [[nodiscard]] virtual Thread &thread() const noexcept = 0;
    /// Null once the manager is unscheduled. On thread().
    [[nodiscard]] virtual RunLoop *runLoop() const noexcept = 0;
    /// The device has left and has delivered all its input. On thread(); the device is used no more
    /// afterwards and may be gone.
    virtual void deviceEnded(HIDBusDevice &device) = 0;
};

/// A device as one manager holds it. The members added here are called on the host's thread.
class HIDBusDevice : public HIDDevice {
  public:
    /// The device has left its bus: requests fail from now on, queued input is still delivered, then the host
    /// learns of the end (at once when no input is to come).
    virtual void leave() = 0;
    /// Takes the device off the run loop for good: no callback comes any more, leave() is not called any
    /// more.
    virtual void unschedule() = 0;
    /// True when it could not be opened for a reason that has passed if the bus reports it again: it leaves
    /// then, and a new object is made.
    [[nodiscard]] virtual bool awaitsNewArrival() const noexcept { return false; }
};

/// A device on a bus, shared by all managers. Any thread.
class HIDBusEntry {
  public:
    virtual ~HIDBusEntry() = default;

    [[nodiscard]] virtual std::optional<HIDProperty> property(std::string_view key) const = 0;
    /// An object of the caller's own for the device.
    [[nodiscard]] virtual std::shared_ptr<HIDBusDevice>
    makeDevice(std::shared_ptr<HIDDeviceHost> host) const = 0;
    /// Logs, once, why this process may not use the device.
    virtual void complain() const = 0;
};

using HIDBusEntryReference = std::shared_ptr<const HIDBusEntry>;

/// Hears what happens on a bus; called on the bus's thread, which it may not block.
class HIDBusObserver {
  public:
    virtual ~HIDBusObserver() = default;

    virtual void entryArrived(const HIDBusEntryReference &entry) = 0;
    virtual void entryLeft(const HIDBusEntryReference &entry) = 0;
    /// A device is there that this process may not use. It arrives when that changes, a second time when it
    /// had been usable before.
    virtual void entryRefused(const HIDBusEntryReference &entry) = 0;
};

/// Any thread.
class HIDBus {
  public:
    virtual ~HIDBus() = default;

    /// Tells the observer of the entries that are there, then of every change until the observer is gone. An
    /// observer that is added again hears of those entries again.
    virtual void addObserver(std::weak_ptr<HIDBusObserver> observer) = 0;
};

} // namespace moxel
