// A device of the kernel that has a hidraw node, as all managers of the process share it.
#pragma once

#include "Platform/Linux/HIDBus.h"
#include "Platform/Linux/HidrawNode.h"

#include <atomic>
#include <memory>

namespace moxel {

/// Any thread.
class HidrawEntry final : public HIDBusEntry, public std::enable_shared_from_this<HidrawEntry> {
  public:
    explicit HidrawEntry(HidrawNode node) : node_(std::move(node)) {}

    [[nodiscard]] std::optional<HIDProperty> property(std::string_view key) const override;
    [[nodiscard]] std::shared_ptr<HIDBusDevice>
    makeDevice(std::shared_ptr<HIDDeviceHost> host) const override;
    /// Logs, once, why this process may not use the device and how that is changed.
    void complain() const override;

    [[nodiscard]] const HidrawNode &node() const noexcept { return node_; }

    [[nodiscard]] bool hasLeft() const noexcept { return left_; }
    void leave() const noexcept { left_ = true; }

  private:
    const HidrawNode node_;
    mutable std::atomic<bool> left_{false};
    mutable std::atomic<bool> hasComplained_{false};
};

} // namespace moxel
