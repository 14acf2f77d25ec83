// Storage slot 1 of one client: what it holds, and which of the announced blocks want an acknowledgement.
#pragma once

#include "Moxel Common/Protocol/WireLayouts.h"
#include "Moxel Daemon/Protocol/ClientRequests.h"

#include <chrono>
#include <optional>
#include <span>

namespace moxel::daemon {

/// A raw block of the full slice size is either a whole message, whose sender waits for no acknowledgement,
/// or a slice of a longer one, whose sender waits; the wire does not tell which.
enum class FullBlock {
    isSlice,   ///< Acknowledge it: a sender that waits in vain loses its message.
    isMessage, ///< Do not: an acknowledgement that nobody waits for is taken for that of the next request.
};

/// Blocks that a client waits for the acknowledgement of: every request by name, but of registrations only
/// those that are made again; slices of a raw message, that is full blocks (see FullBlock) and the shorter
/// block that follows a full one in time and ends the message. A lone short raw block has none.
///
/// Lives on the daemon's thread.
class RequestInbox {
  public:
    using Clock = std::chrono::steady_clock;

    /// Largest slice of a raw message.
    static constexpr size_t fullBlockSize = 2042;

    /// `sliceTimeout`: how soon the next slice of a message must follow.
    RequestInbox(FullBlock fullBlock, std::chrono::milliseconds sliceTimeout)
        : fullBlock_(fullBlock), sliceTimeout_(sliceTimeout) {}

    /// The client writes the slot.
    void store(std::span<const uint8_t> block) { stored_.emplace(block.begin(), block.end()); }

    /// The client tells of what it wrote, which empties the slot. Absent when the slot does not hold that
    /// much.
    [[nodiscard]] std::optional<ReceivedRequest> take(const wire::RequestAnnouncement &announcement,
                                                      Clock::time_point now);

  private:
    [[nodiscard]] bool wantsAcknowledgement(ReceivedRequest &request, Clock::time_point now);

    FullBlock fullBlock_;
    std::chrono::milliseconds sliceTimeout_;
    std::optional<Data> stored_;
    std::optional<Clock::time_point> messageGoesOnUntil_;
};

} // namespace moxel::daemon
