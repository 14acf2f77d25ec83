// Makes virtual devices in the kernel, no two of one name.
#pragma once

#include "Moxel Daemon/Archive/Value.h"
#include "Platform/Linux/Descriptor.h"
#include "Platform/Result.h"

#include <functional>
#include <string>

namespace moxel::daemon {

/// Any thread.
class UhidMaker {
  public:
    static constexpr const char *devicePath = "/dev/uhid";

    /// Opens the kernel's side of a device that does not exist yet: one message a read or write, not
    /// blocking.
    using Opener = std::function<Result<Descriptor>()>;

    /// With the kernel's device.
    UhidMaker();
    /// `deviceFolder` lists the HID devices that are there.
    UhidMaker(Opener open, std::string deviceFolder);

    /// The error says what keeps this process from making devices, if anything does.
    [[nodiscard]] Result<void> check() const;
    /// The device exists until the descriptor is closed. The error's code is BusFolder::alreadyPublished when
    /// there is one of that name, one that is still being closed included.
    [[nodiscard]] Result<Descriptor> make(const std::string &name, const Data &createMessage) const;

  private:
    [[nodiscard]] bool isThere(const std::string &name) const;

    Opener open_;
    std::string deviceFolder_;
};

} // namespace moxel::daemon
