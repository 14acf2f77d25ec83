// Gives virtual devices back to the kernel, which may take its time.
#pragma once

#include "Platform/Linux/Descriptor.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>

namespace moxel::daemon {

/// The kernel removes a device only when nobody waits for an answer of any HID device, and such an answer may
/// be the daemon's own. So nobody waits for it. Any thread.
class UhidClosings final : public std::enable_shared_from_this<UhidClosings> {
  public:
    enum class Name {
        isFree,    ///< No device of that name is being closed.
        isComing,  ///< It will be free, and `then` called.
        isPromised ///< Another one waits for it already.
    };

    void close(Descriptor device, const std::string &name) noexcept;

    /// Has `then` called, on any thread, when the last device of that name has been closed, unless the name
    /// is free now.
    [[nodiscard]] Name await(const std::string &name, std::function<void()> then);
    /// What await() was given for the name is not called any more, unless it is being called.
    void forget(const std::string &name) noexcept;

    /// Waits for all of them.
    void awaitAll(std::chrono::milliseconds limit) noexcept;

  private:
    void closed(const std::string &name);

    std::mutex mutex_; ///< Guards the rest.
    std::condition_variable changed_;
    std::multiset<std::string> names_;                     ///< Of devices that are being closed.
    std::map<std::string, std::function<void()>> waiting_; ///< By the name that is waited for.
};

} // namespace moxel::daemon
