// Storage slot 0 of one client: messages on their way to it, packet by packet.
#pragma once

#include "Moxel Daemon/Archive/Value.h"
#include "Moxel Daemon/Protocol/Faults.h"
#include "Platform/Result.h"
#include "Platform/RunLoop.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <vector>

namespace moxel::daemon {

/// A packet as it lies in the slot, and how the client is told of it.
struct OutgoingPacket {
    Data bytes;
    uint16_t announcedSize = 0;
    bool wantsAnswer = false;
};

/// Cuts an archive into packets of at most `packetSize` payload bytes.
[[nodiscard]] std::vector<OutgoingPacket> packetsOf(const Data &archive, size_t packetSize, bool wantsAnswer,
                                                    const Faults &faults);

/// A packet stays in the slot until the client has read it and, where it was asked to, has acknowledged it.
/// A client that does not read a packet in time loses the message; one that only does not acknowledge gets
/// the next packet.
///
/// Lives on the daemon's thread.
class DataOutbox {
  public:
    using Announce = std::function<void(uint16_t size, bool wantsAnswer)>;
    /// isIdle() may have changed.
    using Changed = std::function<void()>;

    /// Largest payload of a packet.
    static constexpr size_t payloadLimit = 2042;
    /// Bytes of packets that may wait for one client.
    static constexpr size_t queueLimit = size_t{8} << 20;

    DataOutbox(RunLoop &runLoop, std::chrono::milliseconds timeout, Announce announce, Changed changed = {})
        : runLoop_(runLoop),
          timeout_(timeout),
          announce_(std::move(announce)),
          changed_(std::move(changed)) {}

    /// False when too much waits already.
    [[nodiscard]] bool send(std::vector<OutgoingPacket> message);

    /// What the slot holds; absent when it is empty. After the answer has gone out, call wasRead().
    [[nodiscard]] std::optional<Data> content();
    void wasRead();
    void wasAcknowledged();

    [[nodiscard]] bool isIdle() const noexcept { return !current_; }

  private:
    void next();
    void timedOut();

    RunLoop &runLoop_;
    std::chrono::milliseconds timeout_;
    Announce announce_;
    Changed changed_;
    std::deque<std::vector<OutgoingPacket>> messages_; ///< The first one without the packets that were sent.
    size_t queuedBytes_ = 0;
    size_t nextPacket_ = 0; ///< Of the first message.
    std::optional<OutgoingPacket> current_;
    bool isRead_ = false;
    RunLoopSource timer_;
};

} // namespace moxel::daemon
