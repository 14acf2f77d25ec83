// An input device of the kernel, read through libevdev.
#pragma once

#include "Moxel Daemon/Devices/InputReader.h"
#include "Platform/Linux/Descriptor.h"
#include "Platform/Result.h"

#include <memory>
#include <string>

struct libevdev;

namespace moxel::daemon {

/// Lives on one thread.
class InputDevice final : public InputReader {
  public:
    /// The error carries errno; ENOTTY for files that are no input devices.
    static Result<std::unique_ptr<InputReader>> open(const std::string &path);

    const InputDescription &description() const override { return description_; }
    int descriptor() const override { return file_.get(); }
    Outcome next(input_event &event) override;
    bool hasMore() const override;

  private:
    struct Closer {
        void operator()(libevdev *device) const noexcept;
    };
    using Handle = std::unique_ptr<libevdev, Closer>;

    InputDevice(Descriptor file, Handle device);

    Descriptor file_;
    Handle device_; ///< Does not outlive the file.
    InputDescription description_;
    bool isCatchingUp_ = false; ///< Events were lost, and what changed meanwhile is being told.
};

} // namespace moxel::daemon
