// The connection that stands for a device of the user-space bus: made, it is the device's arrival; hung up,
// its removal.
#pragma once

#include "Platform/Linux/BusConnection.h"
#include "Platform/Linux/BusSocket.h"
#include "Platform/Linux/Descriptor.h"
#include "Platform/Linux/UserSpaceBusEntry.h"
#include "Platform/RunLoop.h"

#include <chrono>
#include <memory>
#include <optional>
#include <string>

namespace moxel {

/// Waits for nobody: a publisher that does not answer is tried again a few times, then ignored. Lives on its
/// run loop's thread.
class PresenceConnection {
  public:
    using Clock = std::chrono::steady_clock;

    class Owner {
      public:
        virtual ~Owner() = default;
        virtual void deviceArrived(PresenceConnection &connection) = 0;
        /// The connection has ended, before or after the device's arrival; it is for the owner to destroy.
        virtual void connectionEnded(PresenceConnection &connection) = 0;
        /// Descriptors or memory are used up.
        virtual void shortageOccurred(const Error &error) = 0;
        /// Asks for a call of timeHasPassed() at `time` or later.
        virtual void wakeBy(Clock::time_point time) = 0;
    };

    PresenceConnection(BusSocket socket, RunLoop &runLoop, Owner &owner);
    ~PresenceConnection() = default;
    PresenceConnection(const PresenceConnection &) = delete;
    PresenceConnection &operator=(const PresenceConnection &) = delete;

    /// False when there is no device to be had; the owner then destroys the connection.
    [[nodiscard]] bool begin();
    /// As begin().
    [[nodiscard]] bool timeHasPassed(Clock::time_point now);

    [[nodiscard]] FileIdentity identity() const noexcept { return socket_->identity(); }
    /// Null until the device has arrived.
    [[nodiscard]] const std::shared_ptr<UserSpaceBusEntry> &entry() const noexcept { return entry_; }

  private:
    [[nodiscard]] bool tryLater(const std::string &reason);
    void setDeadline(Clock::duration limit);
    void refuse(const std::string &reason) const;
    void readable();
    void propertiesReceived(const BusBuffer &datagram, size_t sentSize);

    const std::shared_ptr<const BusSocket> socket_;
    RunLoop &runLoop_;
    Owner &owner_;
    Clock::duration pause_;                     ///< Before the next attempt.
    std::optional<Clock::time_point> deadline_; ///< Of the pause, or of the wait for the properties.
    Descriptor descriptor_;                     ///< Until the entry holds it.
    std::shared_ptr<UserSpaceBusEntry> entry_;
    RunLoopSource source_; ///< Empty during a pause.
};

} // namespace moxel
