// Gives virtual devices back to the kernel, which may take its time.
#pragma once

#include "Platform/Linux/Descriptor.h"

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <set>
#include <string>

namespace moxel::daemon {

/// The kernel removes a device only when nobody waits for an answer of any HID device, and such an answer may
/// be the daemon's own. So nobody waits for it. Any thread.
class UhidClosings final : public std::enable_shared_from_this<UhidClosings> {
  public:
    void close(Descriptor device, const std::string &name) noexcept;
    /// False when a device of that name is still being closed after the time.
    [[nodiscard]] bool await(const std::string &name, std::chrono::milliseconds limit);
    /// Waits for all of them.
    void awaitAll(std::chrono::milliseconds limit) noexcept;

  private:
    void closed(const std::string &name);

    std::mutex mutex_; ///< Guards names_.
    std::condition_variable changed_;
    std::multiset<std::string> names_; ///< Of devices that are being closed.
};

} // namespace moxel::daemon
