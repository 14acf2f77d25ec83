// The channel of one client: its registration, its requests, and everything that the daemon sends it.
#pragma once

#include "Moxel Common/Protocol/WireLayouts.h"
#include "Moxel Daemon/Exports/ButtonActions.h"
#include "Moxel Daemon/Options.h"
#include "Moxel Daemon/Protocol/DataChannel.h"
#include "Moxel Daemon/Protocol/DataOutbox.h"
#include "Moxel Daemon/Protocol/EventFilter.h"
#include "Moxel Daemon/Protocol/MessageJoiner.h"
#include "Moxel Daemon/Protocol/RequestInbox.h"
#include "Platform/RunLoop.h"

#include <chrono>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace moxel::daemon {

/// Lives on the daemon's thread.
class DedicatedChannel final : public DataChannel, public std::enable_shared_from_this<DedicatedChannel> {
  public:
    class Delegate {
      public:
        /// A client identifier that nobody has; 0 when all are taken.
        [[nodiscard]] virtual uint16_t newClientID() = 0;
        /// `isAgain`: it was registered on this channel before.
        virtual void clientRegistered(DedicatedChannel &channel, bool isAgain) = 0;
        /// Notes in `exports` what a registered application has exported.
        [[nodiscard]] virtual Result<void> serveExport(const ApplicationRecord &application,
                                                       const ExportRequest &request,
                                                       ClientExports &exports) = 0;

      protected:
        ~Delegate() = default;
    };

    static std::string nameForID(uint64_t channelID);

    DedicatedChannel(ChannelServices &services, Delegate &delegate, const Options &options, RunLoop &runLoop,
                     uint64_t channelID, int32_t processID);
    ~DedicatedChannel() override;

    uint64_t channelID() const override { return description_.channelID; }
    [[nodiscard]] const ClientDescription &description() const noexcept { return description_; }

    /// What the client's actions make of exactly these buttons being down, one bit each.
    [[nodiscard]] std::vector<ActionEvent> buttonsChanged(uint32_t buttons) {
        return buttonActions_.buttonsChanged(buttons);
    }
    /// True when the client wants the record and has the channel open.
    bool sendState(MoxelStateRecord record);
    [[nodiscard]] Result<void> sendDictionary(const Dictionary &dictionary, bool wantsAnswer,
                                              size_t packetSize);
    /// False when too much waits for the client already.
    [[nodiscard]] bool sendPacket(OutgoingPacket packet) { return outbox_.send({std::move(packet)}); }
    /// True while a message is on its way to the client.
    [[nodiscard]] bool isSending() const noexcept { return !outbox_.isIdle(); }
    void askToRegisterAgain();
    void queryStoredData();

  private:
    bool refusesOpen() const override { return faults().refuseDedicatedOpen; }
    Reply handleReport(const Peer &peer, uint8_t reportID, std::span<const uint8_t> payload) override;
    Reply handleRead(uint8_t reportID) override;
    void openCountChanged() override;

    [[nodiscard]] std::function<void()> handleControl(std::span<const uint8_t> payload);
    void handlePacketAcknowledgement();
    void handleRequest(const wire::MxControlPacket &packet);
    void handleApplicationInfo(std::span<const uint8_t> payload);
    void serve(const ReceivedRequest &request);
    void registerClient(const RegistrationRequest &request);
    void takeExport(const ExportRequest &request);
    void answerRegistration();
    void acknowledge();
    void sendAcknowledgement();

    /// Now when the delay is zero; never once the channel is gone.
    void perform(std::chrono::milliseconds delay, void (DedicatedChannel::*action)());
    void describe();

    Delegate &delegate_;
    RunLoop &runLoop_;
    ClientDescription description_;
    EventFilter filter_;
    ButtonActions buttonActions_;
    RequestInbox inbox_;
    MessageJoiner joiner_;
    DataOutbox outbox_;
};

} // namespace moxel::daemon
