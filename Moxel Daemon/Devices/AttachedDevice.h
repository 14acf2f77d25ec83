// A device in use: reads its events and tells when buttons and axes have changed, and when it goes.
#pragma once

#include "Moxel Daemon/Devices/AxisMapping.h"
#include "Moxel Daemon/Devices/ButtonMapping.h"
#include "Moxel Daemon/Devices/InputReader.h"
#include "Platform/Result.h"
#include "Platform/RunLoop.h"

#include <cstdint>
#include <memory>

namespace moxel::daemon {

/// Lives on the run loop's thread.
class AttachedDevice {
  public:
    class Listener {
      public:
        virtual void buttonsChanged(const AttachedDevice &device) = 0;
        virtual void axesMoved(const AttachedDevice &device) = 0;
        /// Called once, and last; the device may be destroyed inside.
        virtual void deviceIsGone(const AttachedDevice &device) = 0;

      protected:
        ~Listener() = default;
    };

    AttachedDevice(RunLoop &runLoop, std::unique_ptr<InputReader> reader, AxisSettings settings,
                   Listener &listener);
    AttachedDevice(const AttachedDevice &) = delete;
    AttachedDevice &operator=(const AttachedDevice &) = delete;

    [[nodiscard]] Result<void> start();

    [[nodiscard]] const InputDescription &description() const { return reader_->description(); }
    [[nodiscard]] size_t axisCount() const noexcept { return axes_.axisCount(); }
    [[nodiscard]] size_t buttonCount() const noexcept { return buttons_.buttonCount(); }
    [[nodiscard]] const AxisMapping::Axes &axes() const noexcept { return axes_.axes(); }
    [[nodiscard]] uint32_t buttons() const noexcept { return buttons_.buttons(); }

  private:
    void read(RunLoop::Readiness readiness);
    void readOn();
    void take(const input_event &event);
    void endReport();
    /// Sees to it that relative axes come to rest.
    void awaitRest();
    void rest(AxisMapping::Time now);

    RunLoop &runLoop_;
    std::unique_ptr<InputReader> reader_;
    AxisMapping axes_;
    ButtonMapping buttons_;
    Listener &listener_;
    RunLoopSource events_;
    RunLoopSource nextTurn_;  ///< Set while there is more to take than one turn may.
    RunLoopSource restTimer_; ///< Empty while no relative axis is deflected.
};

} // namespace moxel::daemon
