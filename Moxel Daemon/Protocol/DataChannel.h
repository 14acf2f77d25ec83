// What all channels of the daemon have in common: requests are logged, and refused where a fault says so.
#pragma once

#include "Moxel Daemon/Bus/Channel.h"
#include "Moxel Daemon/Journal.h"
#include "Moxel Daemon/Protocol/Faults.h"
#include "Moxel Daemon/Protocol/LogQuota.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace moxel::daemon {

/// What channels share with the daemon that they belong to. Lives on the daemon's thread, but for the
/// journal.
struct ChannelServices {
    Journal &journal;
    const Faults &faults;
    size_t inputReportSize = 0;            ///< Input reports are padded to this size.
    std::function<void()> peersChanged{};  ///< Someone connected, opened, closed or left.
    std::function<void()> queuesChanged{}; ///< More or less waits to be sent.
};

/// Lives on the daemon's thread.
class DataChannel : public ChannelHandler {
  public:
    using Clock = std::chrono::steady_clock;

    explicit DataChannel(ChannelServices &services) : services_(services) {}
    DataChannel(const DataChannel &) = delete;
    DataChannel &operator=(const DataChannel &) = delete;

    [[nodiscard]] Result<void> publish(Publisher &publisher, const DeviceDescription &device);
    void withdraw() { channel_.reset(); }
    [[nodiscard]] bool isPublished() const noexcept { return channel_ != nullptr; }
    [[nodiscard]] const std::string &name() const noexcept { return name_; }

    /// When somebody last opened or closed it, or when it was made.
    [[nodiscard]] Clock::time_point lastUse() const noexcept { return lastUse_; }

    /// Sends an input report, padded, to all who have the channel open; returns their number.
    size_t sendInput(Data report);
    [[nodiscard]] size_t openCount() const { return channel_ ? channel_->openCount() : 0; }
    [[nodiscard]] size_t connectionCount() const noexcept { return connectionCount_; }
    [[nodiscard]] size_t queuedBytes() const { return channel_ ? channel_->queuedBytes() : 0; }
    [[nodiscard]] bool isConnectedTo(int32_t processID) const {
        return channel_ && channel_->isConnectedTo(processID);
    }

  protected:
    [[nodiscard]] ChannelServices &services() const noexcept { return services_; }
    [[nodiscard]] const Faults &faults() const noexcept { return services_.faults; }

    /// 0 but for dedicated channels.
    [[nodiscard]] virtual uint64_t channelID() const { return 0; }
    [[nodiscard]] virtual bool refusesOpen() const { return false; }
    /// A report whose tag is the channel's own. Content that makes no sense is logged, not refused: the
    /// transport did its work.
    virtual Reply handleReport(const Peer &peer, uint8_t reportID, std::span<const uint8_t> payload) = 0;
    virtual Reply handleRead(uint8_t reportID) = 0;
    /// Connections were opened or closed.
    virtual void openCountChanged() {}

    /// Logs that a client sent something that makes no sense.
    void complain(const std::string &what);

  private:
    void connected(const Peer &peer) override;
    void disconnected(const Peer &peer) override;
    Reply open(const Peer &peer) override;
    void closed(const Peer &peer) override;
    Reply setReport(const Peer &peer, HIDReportType type, uint8_t reportID,
                    std::span<const uint8_t> report) override;
    Reply getReport(const Peer &peer, HIDReportType type, uint8_t reportID, size_t capacity) override;
    bool answersRequests() const override { return !faults().unresponsive; }
    void queuesShrank() override { services_.queuesChanged(); }

    [[nodiscard]] Reply serveReport(const Peer &peer, const ReceivedReport &report, bool isWhole);

    ChannelServices &services_;
    std::unique_ptr<Channel> channel_;
    std::string name_;
    LogQuota complaints_;
    size_t connectionCount_ = 0;
    Clock::time_point lastUse_ = Clock::now();
};

} // namespace moxel::daemon
