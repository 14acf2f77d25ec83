// One client's connection to a device on the bus: its requests in, replies and input out, never blocking.
#pragma once

#include "Moxel Daemon/Bus/BusMessages.h"
#include "Platform/Linux/Descriptor.h"
#include "Platform/RunLoop.h"

#include <cstddef>
#include <deque>
#include <string>

namespace moxel::daemon {

/// Lives on the publisher's thread. A connection that ended stays inert until its owner destroys it.
class BusConnection {
  public:
    /// Bytes that may wait for a client that does not read; each message counts with what it costs to keep.
    static constexpr size_t queueLimit = size_t{4} << 20;
    static constexpr size_t messageOverhead = 64;

    class Owner {
      public:
        virtual void received(BusConnection &connection, const BusRequest &request) = 0;

      protected:
        ~Owner() = default;
    };

    BusConnection(Descriptor socket, const Peer &peer, Owner &owner);

    /// Begins to serve the client, with the device's properties. `serve` is called when the socket is ready;
    /// it calls serveReadiness().
    [[nodiscard]] Result<void> start(RunLoop &runLoop, const Data &properties,
                                     RunLoop::DescriptorCallback serve);
    void serveReadiness(RunLoop::Readiness readiness);

    /// Sends one message, at once or later. A client that leaves too much unread is dropped.
    void send(const Data &message);

    [[nodiscard]] const Peer &peer() const noexcept { return peer_; }
    [[nodiscard]] bool isOpen() const noexcept { return isOpen_; }
    void setOpen(bool isOpen) noexcept { isOpen_ = isOpen; }
    [[nodiscard]] bool hasEnded() const noexcept { return !socket_; }
    [[nodiscard]] size_t queuedBytes() const noexcept { return queuedBytes_; }
    /// True once after messages have left the queue.
    [[nodiscard]] bool takeShrunk() noexcept { return std::exchange(shrunk_, false); }

  private:
    enum class Sent { whole, later, never };

    void receive();
    [[nodiscard]] Sent transmit(const Data &message);
    void flush();
    void end();
    void drop(const std::string &reason);

    Descriptor socket_;
    Peer peer_;
    Owner &owner_;
    RunLoop *runLoop_ = nullptr;
    RunLoopSource source_; ///< Destroyed before the socket that it watches.
    bool isOpen_ = false;
    std::deque<Data> queue_;
    size_t queuedBytes_ = 0;
    bool shrunk_ = false;
};

} // namespace moxel::daemon
