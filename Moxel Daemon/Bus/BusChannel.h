// A device on the user-space bus: takes its clients' connections and keeps the rules for them.
#pragma once

#include "Moxel Daemon/Bus/BusConnection.h"
#include "Moxel Daemon/Bus/BusPublisher.h"

#include <memory>
#include <vector>

namespace moxel::daemon {

/// Lives on the publisher's thread.
class BusChannel final : public Channel, private BusConnection::Owner {
  public:
    BusChannel(std::shared_ptr<BusServices> services, PublishedSocket socket, Data properties,
               ChannelHandler &handler);

    [[nodiscard]] Result<void> start();

    size_t sendInput(std::span<const uint8_t> report) override;
    size_t openCount() const override;
    bool isConnectedTo(int32_t processID) const override;
    size_t queuedBytes() const override;

  private:
    /// Ended connections are removed when the outermost call that uses connections returns.
    class Use;

    void acceptConnections();
    void turnAway();
    void admit(Descriptor socket);
    void received(BusConnection &connection, const BusRequest &request) override;
    [[nodiscard]] Reply answer(BusConnection &connection, const BusRequest &request);
    [[nodiscard]] bool processHasOpened(int32_t processID) const;
    void removeEnded();

    std::shared_ptr<BusServices> services_;
    PublishedSocket socket_;
    Data properties_;
    ChannelHandler &handler_;
    RunLoopSource source_;
    std::vector<std::unique_ptr<BusConnection>> connections_;
    int uses_ = 0;
};

} // namespace moxel::daemon
