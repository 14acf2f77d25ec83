// Finds the input devices, and brings what happens to them to the daemon's clients.
#pragma once

#include "Moxel Daemon/Archive/Value.h"
#include "Moxel Daemon/Devices/AttachedDevice.h"
#include "Moxel Daemon/Devices/DeviceFile.h"
#include "Moxel Daemon/Devices/DeviceFolder.h"
#include "Moxel Daemon/Devices/DeviceOptions.h"
#include "Moxel Daemon/Devices/InputReader.h"
#include "Moxel Daemon/Motion/EventSink.h"
#include "Platform/Log.h"
#include "Platform/Result.h"
#include "Platform/RunLoop.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace moxel::daemon {

/// Clients see the devices as one: a button is down while it is down on any of them, and the deflections of
/// an axis add up.
///
/// Lives on the run loop's thread.
class DeviceSource final : private AttachedDevice::Listener {
  public:
    using Open = std::function<Result<std::unique_ptr<InputReader>>(const std::string &path)>;

    /// Devices that are used at a time.
    static constexpr size_t deviceLimit = 32;

    DeviceSource(RunLoop &runLoop, EventSink &sink, DeviceOptions options, Open open);
    DeviceSource(const DeviceSource &) = delete;
    DeviceSource &operator=(const DeviceSource &) = delete;

    /// Takes the devices that are there, and from now on those that come. What cannot be used is logged.
    void start();

    /// What tells a client that comes later of the devices that are there.
    [[nodiscard]] std::vector<Dictionary> arrivals() const;

  private:
    struct Device {
        DeviceFile file;
        bool isChosen = false; ///< Not named by the options.
        DeviceKind kind = DeviceKind::other;
        uint32_t identifier = 0; ///< Unique among those attached.
        std::unique_ptr<AttachedDevice> attached;
    };
    using Devices = std::vector<Device>;

    void buttonsChanged(const AttachedDevice &device) override;
    void axesMoved(const AttachedDevice &device) override;
    void deviceIsGone(const AttachedDevice &device) override;

    void look();
    void lookForNamed(const std::string &path);
    void lookForChosen();
    [[nodiscard]] bool isUsable(const DeviceFile &file) const;
    /// Absent when it cannot be told.
    [[nodiscard]] std::optional<DeviceKind> kindAt(const std::string &path);
    /// `chosenKind` is the kind that made the file chosen; absent when the options name it.
    void attach(const std::string &path, std::optional<DeviceKind> chosenKind);
    void greet(Device device);
    void removeChosenSticks();
    void remove(Devices::iterator device);
    void tellButtons();
    [[nodiscard]] AxisMapping::Axes axes() const;
    [[nodiscard]] uint32_t freeIdentifier(const InputDescription &description) const;
    /// Logs why a file is not used, once until the reason changes.
    void complain(const std::string &path, const std::string &reason, LogLevel level = LogLevel::error);

    RunLoop &runLoop_;
    EventSink &sink_;
    DeviceOptions options_;
    Open open_;
    Devices devices_; ///< In the order in which they came.
    std::vector<std::unique_ptr<DeviceFolder>> folders_;
    std::vector<DeviceFile> spent_;                 ///< Hung up; not to be opened again as they are.
    std::map<std::string, std::string> complaints_; ///< By path.
    bool hasLooked_ = false;
    AxisMapping::Axes toldAxes_{};
    uint32_t toldButtons_ = 0;
};

} // namespace moxel::daemon
