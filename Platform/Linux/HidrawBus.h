// The kernel's HID devices, by their hidraw nodes.
#pragma once

#include "Platform/Linux/HIDBus.h"
#include "Platform/Linux/HidrawWatcher.h"
#include "Platform/Linux/ServiceThread.h"
#include "Platform/Result.h"

#include <memory>

namespace moxel {

/// Watches the nodes for all managers of the process, on the service thread, and opens none. Any thread.
class HidrawBus final : public HIDBus {
  public:
    /// It exists while somebody holds it; null when the environment variable MOXEL_HIDRAW is "off".
    static Result<std::shared_ptr<HIDBus>> shared();

    ~HidrawBus() override;
    HidrawBus(const HidrawBus &) = delete;
    HidrawBus &operator=(const HidrawBus &) = delete;

    void addObserver(std::weak_ptr<HIDBusObserver> observer) override;

  private:
    explicit HidrawBus(std::shared_ptr<ServiceThread> services);
    static Result<std::shared_ptr<HidrawBus>> create();

    const std::shared_ptr<ServiceThread> services_;
    std::unique_ptr<HidrawWatcher> watcher_; ///< Lives on the service thread. Set from creation on.
};

} // namespace moxel
