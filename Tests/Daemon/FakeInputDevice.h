// Input devices without a kernel: named pipes that answer the kernel's questions about input devices.
#pragma once

#include "Moxel Daemon/Devices/InputCapabilities.h"
#include "Platform/Linux/Descriptor.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <initializer_list>
#include <linux/input.h>
#include <memory>
#include <string>

namespace moxel::daemon {

/// What a device answers. Guarded by a lock inside, because daemons ask on threads of their own.
struct FakeInputAnswers {
    std::string name = "Test Controller";
    uint16_t vendorID = 0x1234;
    uint16_t productID = 0x5678;
    InputCapabilities capabilities;
    std::array<input_absinfo, ABS_CNT> axes{};
    std::bitset<KEY_CNT> pressed;

    /// A controller with six relative axes and two buttons.
    static FakeInputAnswers controller();
    /// The same with absolute axes from -350 to 350.
    static FakeInputAnswers absoluteController();
    /// Two absolute axes from -100 to 100, and a trigger.
    static FakeInputAnswers stick();
};

/// A file that the whole process, libevdev included, takes for an input device. Plugged in by the constructor
/// and unplugged, file and all, by unplug() or the destructor. Any thread may read the file.
class FakeInputDevice {
  public:
    struct Event {
        uint16_t type;
        uint16_t code;
        int32_t value;
    };

    explicit FakeInputDevice(std::string path, FakeInputAnswers answers = FakeInputAnswers::controller());
    ~FakeInputDevice();
    FakeInputDevice(const FakeInputDevice &) = delete;
    FakeInputDevice &operator=(const FakeInputDevice &) = delete;

    [[nodiscard]] const std::string &path() const { return path_; }

    /// What readers find from now on.
    void write(std::initializer_list<Event> events);
    /// The same with the end of the report behind it.
    void report(std::initializer_list<Event> events);
    /// What the device answers from now on, without an event.
    void answer(const FakeInputAnswers &answers);
    /// The readers see that the device is gone; the file stays.
    void hangUp() { pipe_.reset(); }
    void unplug();

  private:
    std::string path_;
    Descriptor pipe_;
};

} // namespace moxel::daemon
