// The daemon proper: its channels, its clients, and what it plays to them.
#pragma once

#include "Moxel Daemon/Bus/Channel.h"
#include "Moxel Daemon/Daemon.h"
#include "Moxel Daemon/Devices/DeviceSource.h"
#include "Moxel Daemon/Exports/ExportDesk.h"
#include "Moxel Daemon/Journal.h"
#include "Moxel Daemon/Motion/EventSink.h"
#include "Moxel Daemon/Motion/Movement.h"
#include "Moxel Daemon/Motion/TracePlayer.h"
#include "Moxel Daemon/Motion/TraceStream.h"
#include "Moxel Daemon/Options.h"
#include "Moxel Daemon/Protocol/BaseChannel.h"
#include "Moxel Daemon/Protocol/DedicatedChannel.h"
#include "Moxel Daemon/Protocol/PlainChannel.h"
#include "Platform/RunLoop.h"

#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace moxel::daemon {

/// Lives on the daemon's thread. What it plays is in DaemonCoreMotion.cpp.
class DaemonCore final : private BaseChannel::Delegate,
                         private DedicatedChannel::Delegate,
                         private EventSink {
  public:
    DaemonCore(const Options &options, std::string baseChannelName, std::unique_ptr<Publisher> publisher,
               std::shared_ptr<RunLoop> runLoop, Journal &journal);
    DaemonCore(const DaemonCore &) = delete;
    DaemonCore &operator=(const DaemonCore &) = delete;

    [[nodiscard]] Result<void> start();

    size_t sendStates(uint16_t clientID, std::span<const MoxelStateRecord> records);
    [[nodiscard]] Result<void> sendDictionary(uint16_t clientID, const Dictionary &dictionary,
                                              const DictionaryOptions &options);
    [[nodiscard]] Result<void> sendPacket(uint16_t clientID, const OutgoingPacket &packet);
    size_t sendInputReport(uint64_t channelID, std::span<const uint8_t> report);
    size_t requestReRegistration(uint16_t clientID);
    size_t queryStoredData(uint16_t clientID);

    void setFaults(const Faults &faults);
    [[nodiscard]] const Faults &faults() const noexcept { return faults_; }

    [[nodiscard]] Result<void> publishBase();
    void removeBase();
    [[nodiscard]] Result<void> publishChannel(uint64_t channelID, int32_t processID);
    bool removeChannel(uint64_t channelID);
    [[nodiscard]] Result<uint64_t> publishDevice(const DeviceDescription &device);
    bool removeDevice(uint64_t number);

    [[nodiscard]] Result<void> playTrace(const TraceBlock &trace, const PlayOptions &options);
    [[nodiscard]] Result<void> playTraceFrom(int descriptor, const PlayOptions &options);
    [[nodiscard]] Result<void> startMovement(double rate);
    void stopMotion();

  private:
    // What clients do
    void createChannel(uint64_t channelID, const Peer &peer) override;
    void terminateChannel(uint64_t channelID) override;
    uint16_t newClientID() override;
    void clientRegistered(DedicatedChannel &channel, bool isAgain) override;
    [[nodiscard]] Result<void> serveExport(const ApplicationRecord &application, const ExportRequest &request,
                                           ClientExports &exports) override;

    // What input devices, traces and movement do
    void happen(const TraceEvent &event) override;
    void sendDeviceState(uint16_t command, int16_t parameter = 0, int32_t value = 0);
    void sendApplicationEvent(const ApplicationEvent &event);
    /// Tells each client which of its actions the buttons press and release now.
    void pressActions();

    /// Runs work on this thread after what is under way, unless the daemon ends first.
    void later(std::function<void()> work) const;
    [[nodiscard]] std::function<void()> unlessEnded(std::function<void()> work) const;
    void peersChanged();
    void reviewPeers();
    void watchUse(uint64_t channelID);
    void reviewUse(DedicatedChannel &channel);
    void noteQueues();
    [[nodiscard]] DedicatedChannel *channel(uint64_t channelID) const;
    /// Calls back for the registered clients that an identifier names; returns their number.
    size_t forClients(uint16_t clientID, const std::function<void(DedicatedChannel &)> &act) const;
    void preparePlayer(const PlayOptions &options);
    void startPlayerWhenReady();

    const Options &options_;
    std::string baseChannelName_;
    std::shared_ptr<RunLoop> runLoop_;
    Journal &journal_;
    Faults faults_;
    ExportDesk exports_;
    ChannelServices services_;
    std::unique_ptr<Publisher> publisher_;
    BaseChannel base_;
    std::vector<std::shared_ptr<DedicatedChannel>> channels_;
    /// Channels whose owners cannot be told, and whether somebody looks soon if they are still in use.
    std::map<uint64_t, bool> unowned_;
    std::map<uint64_t, std::unique_ptr<PlainChannel>> devices_;
    uint64_t lastDevice_ = 0;
    uint16_t lastClientID_ = 0;

    MoxelStateRecord device_{};                  ///< The device's last state.
    std::unique_ptr<DeviceSource> inputDevices_; ///< Null when none are wanted.
    std::unique_ptr<Movement> movement_;
    std::unique_ptr<TracePlayer> player_;
    std::unique_ptr<TraceStream> stream_; ///< Feeds the player.
    bool playerWaitsForClient_ = false;

    bool reviewIsDue_ = false;
    std::shared_ptr<bool> isAlive_ = std::make_shared<bool>(true);
};

} // namespace moxel::daemon
