// A daemon that runs inside the process, on a thread of its own.
#pragma once

#include "Moxel Daemon/Bus/Channel.h"
#include "Moxel Daemon/Journal.h"
#include "Moxel Daemon/Motion/Movement.h"
#include "Moxel Daemon/Motion/Trace.h"
#include "Moxel Daemon/Observation.h"
#include "Moxel Daemon/Options.h"
#include "Moxel Daemon/Protocol/DataOutbox.h"
#include "Platform/Result.h"
#include "Platform/Thread.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace moxel::daemon {

class DaemonCore;

struct DictionaryOptions {
    bool wantsAnswer = true;                      ///< Ask the client to acknowledge each packet.
    size_t packetSize = DataOutbox::payloadLimit; ///< Payload bytes of a packet, at most.
};

struct PlayOptions {
    bool loop = false;
    bool waitForClient = false; ///< Begin when a client is registered.
    double speed = 1;           ///< 2 plays twice as fast.
};

/// Any thread, except that it must not be used on its own thread (in Options::whenTraceEnds). Waiting calls
/// return as soon as what they wait for is there.
///
/// A client is named by its client identifier, `allClients` stands for every registered one. A channel is
/// named by its channel identifier, `baseChannel` stands for the base channel.
class Daemon {
  public:
    using Timeout = std::chrono::milliseconds;

    static constexpr uint16_t allClients = 0;
    static constexpr uint64_t baseChannel = 0;

    /// Returns when the base channel is published. The error carries BusFolder::alreadyPublished when another
    /// daemon serves the user in that folder.
    static Result<std::unique_ptr<Daemon>> start(Options options = {});
    /// Takes all channels away and ends the thread.
    ~Daemon();
    Daemon(const Daemon &) = delete;
    Daemon &operator=(const Daemon &) = delete;

    /// The kernel's device when the channels are the kernel's.
    [[nodiscard]] const std::string &busFolder() const noexcept { return busFolder_; }
    [[nodiscard]] const std::string &baseChannelName() const noexcept { return baseChannelName_; }

    // ---------------------------------------------------------------------------------------- Looking

    [[nodiscard]] Observation observe() const;
    [[nodiscard]] std::vector<ClientDescription> clients() const;
    [[nodiscard]] std::optional<ClientDescription> client(uint16_t clientID) const;

    /// False when the time is up. The predicate must not call the daemon.
    [[nodiscard]] bool waitUntil(const Journal::Predicate &predicate, Timeout timeout) const;
    /// The first client that fits; by default the first registered one.
    [[nodiscard]] std::optional<ClientDescription> waitForClient(
        Timeout timeout, const std::function<bool(const ClientDescription &)> &fits =
                             [](const ClientDescription &client) { return client.registered; }) const;
    /// The report with that sequence number, if it is still kept.
    [[nodiscard]] std::optional<ReceivedReport> waitForReport(uint64_t sequence, Timeout timeout) const;
    /// The first report that fits, among those from the sequence number `from` on.
    [[nodiscard]] std::optional<ReceivedReport>
    waitForReport(const std::function<bool(const ReceivedReport &)> &fits, Timeout timeout,
                  uint64_t from = 0) const;
    /// The first request that fits.
    [[nodiscard]] std::optional<ReceivedRequest>
    waitForRequest(const std::function<bool(const ReceivedRequest &)> &fits, Timeout timeout) const;
    /// The first whole raw message that fits; by default the first one.
    [[nodiscard]] std::optional<ReceivedMessage> waitForMessage(
        Timeout timeout,
        const std::function<bool(const ReceivedMessage &)> &fits = [](const auto &) { return true; }) const;

    // ---------------------------------------------------------------------------------------- Sending

    /// Returns the number of clients that get the record: those that want it by their masks. `client` of the
    /// record is filled in.
    size_t sendState(uint16_t clientID, const MoxelStateRecord &record);
    /// The same for many records in one go; returns the number of records that were sent. See
    /// waitUntilQueued() for how to keep many from becoming too many.
    size_t sendStates(uint16_t clientID, std::span<const MoxelStateRecord> records);
    /// Fails when there is no such client or too much waits for it.
    Result<void> sendDictionary(uint16_t clientID, const Dictionary &dictionary,
                                DictionaryOptions options = {});
    /// Places a packet of any content in storage slot 0 and announces it with any size.
    Result<void> sendPacket(uint16_t clientID, const OutgoingPacket &packet);
    /// Sends a report of any content, its identifier first, past all masks. Returns the number of connections
    /// that get it.
    size_t sendInputReport(uint64_t channelID, std::span<const uint8_t> report);
    size_t requestReRegistration(uint16_t clientID);
    size_t queryStoredData(uint16_t clientID);

    /// Waits until at most `bytes` wait for the slowest client; false when the time is up.
    [[nodiscard]] bool waitUntilQueued(size_t bytes, Timeout timeout) const;

    // ------------------------------------------------------------------------------------- Devices, faults

    void setFaults(const Faults &faults);
    [[nodiscard]] Faults faults() const;

    void removeBaseChannel();
    Result<void> publishBaseChannel();
    /// Publishes a dedicated channel that nobody asked for.
    Result<void> publishChannel(uint64_t channelID);
    /// False when there is none of that identifier.
    bool removeChannel(uint64_t channelID);
    /// Publishes a device of any description, which logs the reports that it gets; returns its number.
    Result<uint64_t> publishDevice(const DeviceDescription &device);
    bool removeDevice(uint64_t number);

    // ---------------------------------------------------------------------------------------- Motion

    /// Plays a trace instead of what was played before. Observation::traceIsOver tells the end.
    Result<void> playTrace(const TraceBlock &trace, PlayOptions options = {});
    /// The same while it is being read; the descriptor must stay open until the trace is over.
    Result<void> playTraceFrom(int descriptor, PlayOptions options = {});
    Result<void> startMovement(double rate = Movement::defaultRate);
    void stopMotion();

  private:
    Daemon(Options options, std::string busFolder, std::string baseChannelName);

    [[nodiscard]] Result<void> run();
    [[nodiscard]] Result<std::unique_ptr<Publisher>> makePublisher() const;
    /// Runs a function with the core on the daemon's thread and waits for its result.
    template <class Function>
    auto call(Function &&function) const;

    Options options_;
    std::string busFolder_;
    std::string baseChannelName_;
    Journal journal_;
    std::shared_ptr<Thread> thread_;
    std::shared_ptr<RunLoop> runLoop_;
    DaemonCore *core_ = nullptr; ///< Lives on the daemon's thread, as long as its run loop runs.
};

} // namespace moxel::daemon
