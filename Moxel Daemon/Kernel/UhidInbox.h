// What the kernel has told of one virtual device and the daemon has not served yet.
#pragma once

#include "Moxel Daemon/Archive/Value.h"
#include "Moxel Daemon/Kernel/UhidReader.h"
#include "Platform/Thread.h"
#include "Platform/WorkItem.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <span>

namespace moxel::daemon {

/// A thread that does nothing else fills it, so that the kernel, which keeps 31 messages and drops more
/// silently, keeps few; the daemon's thread empties it. A client that sends faster than it is served fills it
/// up, and then loses what the kernel drops.
class UhidInbox final : private WorkItem,
                        public UhidReader::Inbox,
                        public std::enable_shared_from_this<UhidInbox> {
  public:
    /// Messages that may wait.
    static constexpr size_t limit = 1024;
    /// Messages that are served before the run loop's other sources get their turn.
    static constexpr size_t servedPerTurn = 64;

    /// Serves the device, on the daemon's thread.
    class Listener {
      public:
        virtual void received(std::span<const uint8_t> message) = 0;
        /// There has been more than may wait.
        virtual void overflowed() = 0;
        /// There is room again after the inbox was full.
        virtual void hasRoom() = 0;
        /// The kernel serves the device no more. Called once, and last.
        virtual void ended() = 0;

      protected:
        ~Listener() = default;
    };

    /// On the daemon's thread. The descriptor does not block, and stays open until close().
    UhidInbox(int descriptor, Listener &listener);
    ~UhidInbox() override = default;

    [[nodiscard]] int descriptor() const noexcept override { return descriptor_; }
    [[nodiscard]] bool drain() override;
    /// Nothing is read and nobody is called any more. On the daemon's thread.
    void close();

  private:
    enum class Intake { message, interruption, nothing, end, noRoom };

    [[nodiscard]] Intake takeIn();
    /// Has the daemon's thread serve what waits, unless it is about to.
    void post() noexcept;
    void run() override;
    void discard() noexcept override;
    void serve();
    void serveEnd();
    [[nodiscard]] std::optional<Data> next();

    const int descriptor_;
    const std::shared_ptr<Thread> thread_; ///< The daemon's.
    Listener *listener_;                   ///< Null once closed. Used on the daemon's thread.
    bool hasToldEnd_ = false;              ///< Likewise.

    std::mutex mutex_; ///< Guards the rest.
    std::deque<Data> messages_;
    std::shared_ptr<UhidInbox> posted_; ///< This, while the daemon's thread has it to serve.
    bool isFull_ = false;
    bool hasOverflowed_ = false;
    bool hasEnded_ = false;
    bool isClosed_ = false;
};

} // namespace moxel::daemon
