// Reads what the kernel tells of all virtual devices as soon as it is told.
#pragma once

#include "Moxel Daemon/Kernel/UhidInbox.h"
#include "Platform/Linux/Descriptor.h"
#include "Platform/Result.h"
#include "Platform/Thread.h"

#include <map>
#include <memory>
#include <mutex>

namespace moxel::daemon {

/// One thread for all devices of a publisher, whatever the daemon's thread is busy with. Any thread, but
/// destroyed on none of its own.
class UhidReader {
  public:
    static Result<std::shared_ptr<UhidReader>> start();
    ~UhidReader();
    UhidReader(const UhidReader &) = delete;
    UhidReader &operator=(const UhidReader &) = delete;

    /// Fills the inbox from now on.
    [[nodiscard]] Result<void> add(const std::shared_ptr<UhidInbox> &inbox);
    /// Goes on filling an inbox that was full.
    void goOn(const UhidInbox &inbox) noexcept;
    /// Only then may the inbox's descriptor be closed, and the inbox before.
    void remove(const UhidInbox &inbox) noexcept;

  private:
    UhidReader(Descriptor poll, Descriptor stop);
    void run();
    void drain(int descriptor);

    const Descriptor poll_;
    const Descriptor stop_; ///< Readable once the thread is to end.
    std::mutex mutex_;
    std::map<int, std::shared_ptr<UhidInbox>> inboxes_; ///< By descriptor. Guarded by the mutex.
    std::shared_ptr<Thread> thread_;
};

} // namespace moxel::daemon
