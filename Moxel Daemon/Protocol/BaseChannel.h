// The base channel of a user, on which clients ask for channels of their own.
#pragma once

#include "Moxel Daemon/Protocol/DataChannel.h"

#include <cstdint>
#include <string>

namespace moxel::daemon {

/// Lives on the daemon's thread.
class BaseChannel final : public DataChannel {
  public:
    /// Told of what clients ask for.
    class Delegate {
      public:
        virtual void createChannel(uint64_t channelID, const Peer &peer) = 0;
        virtual void terminateChannel(uint64_t channelID) = 0;

      protected:
        ~Delegate() = default;
    };

    /// The name of a user's base channel.
    static std::string nameForUser(uint32_t user);

    BaseChannel(ChannelServices &services, Delegate &delegate) : DataChannel(services), delegate_(delegate) {}

  private:
    bool refusesOpen() const override { return faults().refuseBaseOpen; }
    Reply handleReport(const Peer &peer, uint8_t reportID, std::span<const uint8_t> payload) override;
    Reply handleRead(uint8_t reportID) override;

    Delegate &delegate_;
};

} // namespace moxel::daemon
