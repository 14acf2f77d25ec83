// Notices when the driver leaves.
#pragma once

#include "Platform/HIDManager.h"
#include "Platform/RunLoop.h"

#include <memory>
#include <string>

namespace moxel::tool {

/// Watches the base channel of this login session. Made before the session, so that it misses nothing. On the
/// main thread, whose run loop tells it.
class DriverPresence {
  public:
    DriverPresence();
    ~DriverPresence();
    DriverPresence(const DriverPresence &) = delete;
    DriverPresence &operator=(const DriverPresence &) = delete;

    /// Once true it stays so: a driver that comes back knows nothing of the session.
    [[nodiscard]] bool hasLeft() const noexcept { return hasLeft_; }

  private:
    const std::string baseName_;
    std::shared_ptr<RunLoop> runLoop_;
    std::unique_ptr<HIDManager> manager_;
    bool hasLeft_ = false;
};

} // namespace moxel::tool
