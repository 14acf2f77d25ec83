// Joins the slices of one client's raw messages.
#pragma once

#include "Moxel Daemon/Protocol/ClientRequests.h"
#include "Platform/RunLoop.h"

#include <chrono>
#include <cstddef>
#include <functional>

namespace moxel::daemon {

/// A message that an application sent as bytes of its own.
struct ReceivedMessage {
    uint64_t channelID = 0;
    uint16_t clientID = 0; ///< 0 before the registration.
    Data bytes;
    size_t slices = 0; ///< Blocks that it came in.
};

/// A message ends with a block that nothing may follow, with the next block that does not go on with it, or
/// when its next slice does not follow in time.
///
/// Lives on the daemon's thread.
class MessageJoiner {
  public:
    /// Bytes that are held together; what is longer is handed on in parts.
    static constexpr size_t messageLimit = size_t{8} << 20;

    using WhenComplete = std::function<void(ReceivedMessage)>;

    MessageJoiner(RunLoop &runLoop, std::chrono::milliseconds timeout, WhenComplete whenComplete)
        : runLoop_(runLoop), timeout_(timeout), whenComplete_(std::move(whenComplete)) {}

    /// Takes the next block, a raw one or a request by name.
    void take(const ReceivedRequest &block);
    /// Nothing more will come.
    void finish();

  private:
    void waitForNextSlice();

    RunLoop &runLoop_;
    std::chrono::milliseconds timeout_;
    WhenComplete whenComplete_;
    ReceivedMessage message_;
    RunLoopSource timer_;
};

} // namespace moxel::daemon
