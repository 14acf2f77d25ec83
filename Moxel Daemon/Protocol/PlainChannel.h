// A device that takes every report and does nothing.
#pragma once

#include "Moxel Daemon/Protocol/DataChannel.h"

namespace moxel::daemon {

/// Lives on the daemon's thread.
class PlainChannel final : public DataChannel {
  public:
    using DataChannel::DataChannel;

  private:
    Reply handleReport(const Peer &, uint8_t, std::span<const uint8_t>) override { return {}; }
    Reply handleRead(uint8_t) override { return {HIDStatus::error, {}}; }
};

} // namespace moxel::daemon
