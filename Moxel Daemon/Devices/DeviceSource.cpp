#include "Moxel Daemon/Devices/DeviceSource.h"

#include "Moxel Daemon/Protocol/DaemonMessages.h"
#include "Platform/LogText.h"

#include <Moxel/MoxelClient.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <set>
#include <utility>

namespace moxel::daemon {

namespace {

/// What the user can do about a device that cannot be opened; begins with a blank, or is empty.
std::string adviceFor(int errnoValue) {
    switch (errnoValue) {
    case EACCES:
    case EPERM:
        return " (this user may not read it: install 70-moxel-input.rules, or join the group that the file "
               "belongs "
               "to and log in again; it is used as soon as it may be read)";
    case ENOTTY:
    case EINVAL:
        return " (it is no input device)";
    default:
        return " (it is tried again when its folder changes)";
    }
}

std::string identifierText(uint32_t identifier) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "0x%08X", identifier);
    return text.data();
}

} // namespace

DeviceSource::DeviceSource(RunLoop &runLoop, EventSink &sink, DeviceOptions options, Open open)
    : runLoop_(runLoop), sink_(sink), options_(std::move(options)), open_(std::move(open)) {}

// ------------------------------------------------------------------------------------------ Finding

void DeviceSource::start() {
    // Links to devices lie elsewhere, but the rights change on the device's own file.
    std::set<std::string> paths{options_.inputFolder};
    for (const std::string &path : options_.paths)
        paths.insert(std::filesystem::path(path).parent_path().string());
    for (const std::string &path : paths) {
        Result<std::unique_ptr<DeviceFolder>> folder =
            DeviceFolder::watch(path, runLoop_, [this] { look(); });
        if (folder.ok())
            folders_.push_back(std::move(*folder));
        else
            logLine(LogLevel::error, "Error: devices that come later to " + printableText(path) +
                                         " are not noticed: " + folder.error().message);
    }
    look();
    if (devices_.empty())
        logLine(LogLevel::info, "No device is there yet");
}

void DeviceSource::look() {
    const auto isPast = [](const DeviceFile &file) {
        const std::optional<DeviceFile> now = DeviceFile::at(file.path);
        return !now || !now->isUnchangedFrom(file);
    };
    std::erase_if(spent_, isPast);
    for (const std::string &path : options_.paths)
        lookForNamed(path);
    if (options_.choosesItself)
        lookForChosen();
    hasLooked_ = true;
}

void DeviceSource::lookForNamed(const std::string &path) {
    const std::optional<DeviceFile> file = DeviceFile::at(path);
    if (!file)
        complain(path, "Error: " + path + " is not there; it is used as soon as it comes",
                 hasLooked_ ? LogLevel::info : LogLevel::error);
    else if (isUsable(*file))
        attach(path, std::nullopt);
}

/// Controllers come first: while there is one, sticks are left alone.
void DeviceSource::lookForChosen() {
    const std::vector<std::string> paths = DeviceFolder::eventDevices(options_.inputFolder);
    std::erase_if(complaints_, [&](const auto &complaint) {
        const auto isThat = [&](const std::string &path) { return path == complaint.first; };
        return std::none_of(paths.begin(), paths.end(), isThat) &&
               std::none_of(options_.paths.begin(), options_.paths.end(), isThat);
    });
    std::vector<DeviceFile> sticks;
    for (const std::string &path : paths) {
        const std::optional<DeviceFile> file = DeviceFile::at(path);
        if (!file || !isUsable(*file))
            continue;
        const std::optional<DeviceKind> kind = kindAt(path);
        if (kind == DeviceKind::sixAxisController)
            attach(path, kind);
        else if (kind == DeviceKind::joystick)
            sticks.push_back(*file);
    }
    const bool hasController = std::any_of(devices_.begin(), devices_.end(), [](const Device &device) {
        return device.kind == DeviceKind::sixAxisController;
    });
    if (hasController)
        removeChosenSticks();
    else
        for (const DeviceFile &file : sticks)
            if (isUsable(file))
                attach(file.path, DeviceKind::joystick);
}

/// Whether a file is worth opening: it is not open already, and has not just hung up.
bool DeviceSource::isUsable(const DeviceFile &file) const {
    return std::none_of(devices_.begin(), devices_.end(),
                        [&](const Device &device) { return device.file.isSameFileAs(file); }) &&
           std::none_of(spent_.begin(), spent_.end(),
                        [&](const DeviceFile &spent) { return spent.isSameFileAs(file); });
}

std::optional<DeviceKind> DeviceSource::kindAt(const std::string &path) {
    const std::string name = std::filesystem::path(path).filename().string();
    if (const auto capabilities = readCapabilities(options_.systemFolder + "/" + name + "/device"))
        return kindOf(*capabilities);
    const Result<std::unique_ptr<InputReader>> reader = open_(path);
    if (reader.ok())
        return kindOf((*reader)->description().capabilities);
    complain(path, "Cannot see what kind of device this is: " + reader.error().message, LogLevel::info);
    return std::nullopt;
}

// ------------------------------------------------------------------------------------------ Coming

void DeviceSource::attach(const std::string &path, std::optional<DeviceKind> chosenKind) {
    // A device whose place has been taken is gone, even if it has not hung up yet.
    const auto replaced = std::find_if(devices_.begin(), devices_.end(),
                                       [&](const Device &device) { return device.file.path == path; });
    if (replaced != devices_.end())
        remove(replaced);
    if (devices_.size() >= deviceLimit) {
        complain(path, "Error: " + path + " is not used: there are " + std::to_string(deviceLimit) +
                           " devices already");
        return;
    }
    Result<std::unique_ptr<InputReader>> reader = open_(path);
    if (!reader.ok()) {
        complain(path, "Error: " + reader.error().message + adviceFor(reader.error().code));
        return;
    }
    // What was looked at before it was opened may have been another device.
    const std::optional<DeviceFile> file = DeviceFile::of(path, (*reader)->descriptor());
    if (!file || !isUsable(*file))
        return;
    AttachedDevice::Listener &listener = *this;
    Device device;
    device.file = *file;
    device.isChosen = chosenKind.has_value();
    device.kind = kindOf((*reader)->description().capabilities);
    if (chosenKind && device.kind != *chosenKind)
        return;
    device.identifier = freeIdentifier((*reader)->description());
    device.attached = std::make_unique<AttachedDevice>(runLoop_, std::move(*reader), options_.axes, listener);
    if (device.attached->axisCount() == 0 && device.attached->buttonCount() == 0) {
        complain(path, "Error: " + path + " has neither axes nor buttons of a controller");
        return;
    }
    if (Result<void> started = device.attached->start(); !started.ok()) {
        complain(path, "Error: " + path + ": " + started.error().message);
        return;
    }
    greet(std::move(device));
}

void DeviceSource::greet(Device device) {
    const InputDescription &description = device.attached->description();
    complaints_.erase(device.file.path);
    logLine(LogLevel::info, printableText(device.file.path + " (" + description.name + ") is device ") +
                                identifierText(device.identifier) + " with " +
                                std::to_string(device.attached->axisCount()) + " axes and " +
                                std::to_string(device.attached->buttonCount()) + " buttons");
    const uint32_t identifier = device.identifier;
    devices_.push_back(std::move(device));
    sink_.happen(MessageEvent{deviceIdentityMessage(description.vendorID, description.productID)});
    sink_.happen(MessageEvent{deviceAddedMessage(identifier)});
    tellButtons(); // Some may be down already.
}

/// The model's identifier as applications know it; a further device of a model gets the next free number.
uint32_t DeviceSource::freeIdentifier(const InputDescription &description) const {
    uint32_t identifier = uint32_t{description.vendorID} << 16 | description.productID;
    if (identifier == 0)
        identifier = kMoxelDefaultDeviceID;
    while (std::any_of(devices_.begin(), devices_.end(),
                       [&](const Device &device) { return device.identifier == identifier; }))
        ++identifier;
    return identifier;
}

std::vector<Dictionary> DeviceSource::arrivals() const {
    std::vector<Dictionary> messages;
    for (const Device &device : devices_) {
        const InputDescription &description = device.attached->description();
        messages.push_back(deviceIdentityMessage(description.vendorID, description.productID));
        messages.push_back(deviceAddedMessage(device.identifier));
    }
    return messages;
}

// ------------------------------------------------------------------------------------------ Going

void DeviceSource::deviceIsGone(const AttachedDevice &device) {
    const auto gone = std::find_if(devices_.begin(), devices_.end(), [&](const Device &candidate) {
        return candidate.attached.get() == &device;
    });
    // Reading it again would fail at once, and for ever, unless something happens to the file.
    const std::optional<DeviceFile> left = DeviceFile::at(gone->file.path);
    if (left && left->isSameFileAs(gone->file))
        spent_.push_back(*left);
    remove(gone);
    look();
}

void DeviceSource::removeChosenSticks() {
    const auto isChosenStick = [](const Device &device) {
        return device.isChosen && device.kind == DeviceKind::joystick;
    };
    for (auto stick = devices_.begin();
         (stick = std::find_if(devices_.begin(), devices_.end(), isChosenStick)) != devices_.end();)
        remove(stick);
}

/// Lets go what the device holds before clients hear that it has gone.
void DeviceSource::remove(Devices::iterator device) {
    const Device removed = std::move(*device);
    devices_.erase(device);
    tellButtons();
    if (axes() != toldAxes_)
        axesMoved(*removed.attached);
    logLine(LogLevel::info, "Device " + identifierText(removed.identifier) + " has gone");
    sink_.happen(MessageEvent{deviceRemovedMessage(removed.identifier)});
    if (devices_.empty())
        return;
    const InputDescription &served = devices_.back().attached->description();
    sink_.happen(MessageEvent{deviceIdentityMessage(served.vendorID, served.productID)});
}

// ------------------------------------------------------------------------------------------ Events

void DeviceSource::buttonsChanged(const AttachedDevice &) { tellButtons(); }

void DeviceSource::axesMoved(const AttachedDevice &) {
    toldAxes_ = axes();
    sink_.happen(MotionEvent{toldAxes_});
}

void DeviceSource::tellButtons() {
    uint32_t buttons = 0;
    for (const Device &device : devices_)
        buttons |= device.attached->buttons();
    if (std::exchange(toldButtons_, buttons) != buttons)
        sink_.happen(ButtonsEvent{buttons});
}

AxisMapping::Axes DeviceSource::axes() const {
    using Limits = std::numeric_limits<int16_t>;
    AxisMapping::Axes sums{};
    for (size_t axis = 0; axis < sums.size(); ++axis) {
        int sum = 0;
        for (const Device &device : devices_)
            sum += device.attached->axes()[axis];
        sums[axis] = static_cast<int16_t>(std::clamp<int>(sum, Limits::min(), Limits::max()));
    }
    return sums;
}

void DeviceSource::complain(const std::string &path, const std::string &reason, LogLevel level) {
    std::string &known = complaints_[path];
    if (std::exchange(known, reason) != reason)
        logLine(level, printableText(reason));
}

} // namespace moxel::daemon
