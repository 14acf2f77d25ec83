// How a daemon is started.
#pragma once

#include "Moxel Daemon/Devices/DeviceOptions.h"
#include "Moxel Daemon/Protocol/Faults.h"
#include "Moxel Daemon/Protocol/RequestInbox.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace moxel::daemon {

struct Options {
    /// Where the channels appear: on the user-space bus, or as devices of the kernel.
    enum class Bus { socket, uhid } bus = Bus::socket;
    /// Absolute; empty for the default folder of the user-space bus.
    std::string busFolder;
    /// Where applications export their files; absolute; empty for the folder of this user.
    std::string exportFolder;
    /// User identifier in the base channel's name; by default that of the user on the console, 0 when there
    /// is none.
    std::optional<uint32_t> user;
    Faults faults;
    DeviceOptions devices;

    /// What the base channel tells of itself, for tests of clients that must look closely.
    std::string baseManufacturer = "Moxel";
    std::string baseName; ///< Empty for the name that the user identifier gives.

    /// Input reports are padded with zeros to this size; 0 sends them as long as they are.
    size_t inputReportSize = 0;
    FullBlock fullBlock = FullBlock::isSlice;
    std::chrono::milliseconds sliceTimeout{1000};
    /// How long a data packet waits to be read and acknowledged.
    std::chrono::milliseconds packetTimeout{2000};
    /// Whether messages of traces ask to be acknowledged.
    bool traceAsksAcknowledgement = true;

    /// Received reports, requests and messages that are kept to be looked at.
    size_t logEntries = 65536;
    size_t logBytes = size_t{16} << 20;

    /// Called on the daemon's thread when a trace has come to its end; `problem` is empty when it ended well.
    std::function<void(const std::string &problem)> whenTraceEnds;
};

} // namespace moxel::daemon
