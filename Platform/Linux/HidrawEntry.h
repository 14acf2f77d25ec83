// A device of the kernel that has a hidraw node, as all managers of the process share it.
#pragma once

#include "Platform/Linux/HIDBus.h"
#include "Platform/Linux/HidrawNode.h"

#include <atomic>
#include <functional>
#include <memory>

namespace moxel {

/// Any thread.
class HidrawEntry final : public HIDBusEntry, public std::enable_shared_from_this<HidrawEntry> {
  public:
    /// What the entry asks of its bus. Any thread.
    struct Requests {
        std::function<void()> announceAgain; ///< Report the device once more.
        std::function<void()> lookAgain;     ///< Look a little later whether that is worth while.
    };

    explicit HidrawEntry(HidrawNode node, Requests requests = {})
        : node_(std::move(node)), requests_(std::move(requests)) {}

    [[nodiscard]] std::optional<HIDProperty> property(std::string_view key) const override;
    [[nodiscard]] std::shared_ptr<HIDBusDevice>
    makeDevice(std::shared_ptr<HIDDeviceHost> host) const override;
    /// Logs why this process may not use the device and how that is changed, as the next one does.
    void complain() const override;
    /// Logs, once until the reason changes, why the device cannot be opened, by its errno value.
    void complainOf(int error) const;

    /// The device could not be opened, and the bus is to report it once more when that may have changed.
    void openingFailed() const noexcept { openingFailed_ = true; }
    /// Has the bus look by itself: as long as there is a shortage, and else once, because what has changed
    /// just now it has seen already.
    void askForAnotherLook(bool forShortage) const;
    void wasOpened() const noexcept { hasLookedAgain_ = false; }
    /// True once after openingFailed().
    [[nodiscard]] bool takeFailure() const noexcept { return openingFailed_.exchange(false); }
    /// It can be opened now.
    void becameOpenable() const {
        if (requests_.announceAgain)
            requests_.announceAgain();
    }

    [[nodiscard]] const HidrawNode &node() const noexcept { return node_; }

    [[nodiscard]] bool hasLeft() const noexcept { return left_; }
    void leave() const noexcept { left_ = true; }

  private:
    const HidrawNode node_;
    const Requests requests_;
    mutable std::atomic<bool> left_{false};
    mutable std::atomic<bool> openingFailed_{false};
    mutable std::atomic<bool> hasLookedAgain_{false}; ///< Since it was opened last.
    mutable std::atomic<int> complainedOf_{0};        ///< An errno value.
};

} // namespace moxel
