// The HID manager of Linux: one object for all buses.
#include "Platform/HIDManager.h"

#include "Platform/Linux/HIDManagerSchedule.h"
#include "Platform/Linux/HidrawBus.h"
#include "Platform/Linux/UserSpaceBus.h"
#include "Platform/Log.h"

#include <algorithm>
#include <map>
#include <optional>
#include <utility>
#include <vector>

namespace moxel {

namespace {

constexpr RunLoop::Seconds busRetryPause{1};

/// The bus is null where it is not wanted.
using BusFinder = Result<std::shared_ptr<HIDBus>> (*)();
/// Every kind of bus that the platform has.
constexpr BusFinder busFinders[] = {UserSpaceBus::shared, HidrawBus::shared};

class LinuxHIDManager final : public HIDManager, public HIDManagerSchedule::Manager {
  public:
    ~LinuxHIDManager() override { unscheduleFromRunLoop(); }

    void setDeviceMatching(Matching matching) override;
    void registerDeviceMatchingCallback(DeviceCallback callback, void *context) override;
    void registerDeviceRemovalCallback(DeviceCallback callback, void *context) override;
    void scheduleWithRunLoop(RunLoop &runLoop) override;
    void unscheduleFromRunLoop() override;
    HIDStatus close() override;

  private:
    struct Callback {
        DeviceCallback function = nullptr;
        void *context = nullptr;
    };
    struct Device {
        const HIDBusEntry *entry; ///< Alive as long as the device.
        std::shared_ptr<HIDBusDevice> device;
    };

    void joinBuses();
    void joinLater(const Error &error);
    [[nodiscard]] bool matches(const HIDBusEntry &entry) const;
    [[nodiscard]] std::vector<Device>::iterator deviceOf(const HIDBusEntry &entry);

    void entryArrived(const HIDBusEntryReference &entry) override;
    void entryLeft(const HIDBusEntryReference &entry) override;
    void entryRefused(const HIDBusEntryReference &entry) override;
    void deviceEnded(HIDBusDevice &device) override;

    Matching matching_;
    Callback arrived_;
    Callback removed_;
    std::shared_ptr<HIDManagerSchedule> schedule_;       ///< Null while unscheduled.
    std::map<BusFinder, std::shared_ptr<HIDBus>> buses_; ///< Those that could be joined.
    RunLoopSource busRetry_;
    bool busErrorLogged_ = false;
    std::vector<Device> devices_;
    std::vector<std::weak_ptr<HIDBusDevice>> formerDevices_; ///< Of earlier schedules; some may be open.
};

void LinuxHIDManager::setDeviceMatching(Matching matching) {
    matching_ = std::move(matching);
    for (const auto &[finder, bus] : buses_)
        bus->addObserver(schedule_); // Devices that did not match before may match now.
}

void LinuxHIDManager::registerDeviceMatchingCallback(DeviceCallback callback, void *context) {
    arrived_ = {callback, context};
}

void LinuxHIDManager::registerDeviceRemovalCallback(DeviceCallback callback, void *context) {
    removed_ = {callback, context};
}

// ------------------------------------------------------------------------------------------ Scheduling

void LinuxHIDManager::scheduleWithRunLoop(RunLoop &runLoop) {
    unscheduleFromRunLoop();
    schedule_ = std::make_shared<HIDManagerSchedule>(*this, runLoop);
    busErrorLogged_ = false;
    joinBuses();
}

void LinuxHIDManager::joinBuses() {
    std::optional<Error> error;
    for (const BusFinder find : busFinders) {
        if (buses_.contains(find))
            continue;
        Result<std::shared_ptr<HIDBus>> bus = find();
        if (bus.ok() && !*bus)
            continue;
        if (bus.ok()) {
            buses_.emplace(find, *bus);
            (*bus)->addObserver(schedule_);
        } else {
            error = bus.error();
        }
    }
    busRetry_.reset();
    if (error)
        joinLater(*error);
}

void LinuxHIDManager::joinLater(const Error &error) {
    if (!std::exchange(busErrorLogged_, true))
        logLine(LogLevel::error, "Error: some HID devices are not found for now: " + error.message);
    Result<RunLoopSource> retry =
        schedule_->runLoop()->addTimer(busRetryPause, RunLoop::Seconds(0), [this] { joinBuses(); });
    if (retry.ok()) {
        busRetry_ = *std::move(retry);
    } else {
        logLine(LogLevel::error, "Error: some HID devices are not found: " + retry.error().message);
    }
}

void LinuxHIDManager::unscheduleFromRunLoop() {
    if (!schedule_)
        return;
    busRetry_.reset();
    std::erase_if(formerDevices_, [](const auto &each) { return each.expired(); });
    for (const Device &each : devices_) {
        each.device->unschedule();
        formerDevices_.push_back(each.device); // There is room: this must not fail.
    }
    devices_.clear();
    schedule_->end();
    schedule_.reset();
    buses_.clear();
}

HIDStatus LinuxHIDManager::close() {
    auto outcome = HIDStatus::success;
    const auto closeDevice = [&outcome](const std::shared_ptr<HIDBusDevice> &device) {
        const HIDStatus status = device ? device->close() : HIDStatus::notOpen;
        const bool wasClosed = status == HIDStatus::notOpen || status == HIDStatus::noDevice;
        if (outcome == HIDStatus::success && !wasClosed)
            outcome = status;
    };
    for (const Device &each : devices_)
        closeDevice(each.device);
    for (const auto &each : formerDevices_)
        closeDevice(each.lock());
    return outcome;
}

// ------------------------------------------------------------------------------------------ Devices

bool LinuxHIDManager::matches(const HIDBusEntry &entry) const {
    return std::ranges::all_of(
        matching_, [&entry](const auto &wanted) { return entry.property(wanted.first) == wanted.second; });
}

std::vector<LinuxHIDManager::Device>::iterator LinuxHIDManager::deviceOf(const HIDBusEntry &entry) {
    return std::ranges::find(devices_, &entry, &Device::entry);
}

void LinuxHIDManager::entryArrived(const HIDBusEntryReference &entry) {
    if (!matches(*entry))
        return;
    if (const auto known = deviceOf(*entry); known != devices_.end()) {
        if (!known->device->awaitsNewArrival())
            return;
        const auto device = known->device; // The callback may drop every other reference.
        device->leave();
        if (!schedule_ || deviceOf(*entry) != devices_.end())
            return;
    }
    formerDevices_.reserve(formerDevices_.size() + devices_.size() +
                           1); // unscheduleFromRunLoop() needs the room.
    const auto device = entry->makeDevice(schedule_);
    devices_.push_back({entry.get(), device});
    if (arrived_.function)
        arrived_.function(arrived_.context, HIDStatus::success, this, device);
}

void LinuxHIDManager::entryLeft(const HIDBusEntryReference &entry) {
    const auto found = deviceOf(*entry);
    if (found == devices_.end())
        return;
    const auto device = found->device; // The callback may drop every other reference.
    device->leave();
}

void LinuxHIDManager::entryRefused(const HIDBusEntryReference &entry) {
    if (matches(*entry))
        entry->complain();
}

void LinuxHIDManager::deviceEnded(HIDBusDevice &device) {
    const auto found =
        std::ranges::find(devices_, &device, [](const Device &each) { return each.device.get(); });
    const HIDDeviceReference removed = std::move(found->device);
    devices_.erase(found);
    if (removed_.function)
        removed_.function(removed_.context, HIDStatus::success, this, removed);
}

} // namespace

std::unique_ptr<HIDManager> HIDManager::create() { return std::make_unique<LinuxHIDManager>(); }

} // namespace moxel
