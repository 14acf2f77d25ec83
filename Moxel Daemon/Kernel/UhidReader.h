// Reads what the kernel tells of all virtual devices as soon as it is told.
#pragma once

#include "Platform/Linux/Descriptor.h"
#include "Platform/Result.h"
#include "Platform/Thread.h"

#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <optional>

namespace moxel::daemon {

/// One thread for all devices of a publisher, whatever the daemon's thread is busy with. Any thread, but
/// destroyed on none of its own.
class UhidReader {
  public:
    /// Where one device's messages go to.
    class Inbox {
      public:
        virtual ~Inbox() = default;

        [[nodiscard]] virtual int descriptor() const noexcept = 0;
        /// Takes in all that the kernel has, as far as there is room. True when more may come. On the
        /// reader's thread; an exception, which loses nothing, is one for want of memory.
        [[nodiscard]] virtual bool drain() = 0;
    };

    /// How long after an inbox had no memory it is asked again.
    static constexpr std::chrono::milliseconds shortagePause{100};

    static Result<std::shared_ptr<UhidReader>> start();
    ~UhidReader();
    UhidReader(const UhidReader &) = delete;
    UhidReader &operator=(const UhidReader &) = delete;

    /// Fills the inbox from now on.
    [[nodiscard]] Result<void> add(const std::shared_ptr<Inbox> &inbox);
    /// Goes on filling an inbox that was full.
    void goOn(const Inbox &inbox) noexcept;
    /// Only then may the inbox's descriptor be closed, and the inbox before.
    void remove(const Inbox &inbox) noexcept;

  private:
    using Clock = std::chrono::steady_clock;
    struct Entry {
        std::shared_ptr<Inbox> inbox;
        bool lacksMemory = false; ///< Its last drain() failed.
    };

    UhidReader(Descriptor poll, Descriptor stop);
    void run();
    void drain(int descriptor) noexcept;
    void noteShortage(int descriptor, bool lacksMemory) noexcept;
    [[nodiscard]] int pauseLeft() const noexcept;
    void drainAfterPause() noexcept;
    [[nodiscard]] int nextLackingMemory(int descriptor) noexcept;

    const Descriptor poll_;
    const Descriptor stop_;                      ///< Readable once the thread is to end.
    std::optional<Clock::time_point> pauseEnds_; ///< Of those that lack memory. On the reader's thread.
    std::mutex mutex_;
    std::map<int, Entry> entries_; ///< By descriptor. Guarded by the mutex.
    std::shared_ptr<Thread> thread_;
};

} // namespace moxel::daemon
