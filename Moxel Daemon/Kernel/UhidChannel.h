// A virtual device in the kernel: serves the requests that the kernel passes on, and sends input.
#pragma once

#include "Moxel Daemon/Bus/Channel.h"
#include "Moxel Daemon/Kernel/UhidClosings.h"
#include "Moxel Daemon/Kernel/UhidInbox.h"
#include "Moxel Daemon/Kernel/UhidMaker.h"
#include "Moxel Daemon/Kernel/UhidMessages.h"
#include "Moxel Daemon/Kernel/UhidReader.h"
#include "Moxel Daemon/Protocol/LogQuota.h"
#include "Platform/Linux/Descriptor.h"
#include "Platform/RunLoop.h"

#include <chrono>
#include <deque>
#include <memory>
#include <string>

namespace moxel::daemon {

/// The kernel speaks for all clients: it tells neither who they are nor how many, only that the first one has
/// opened the device and that the last one has closed it. It keeps 31 messages for this side and drops more
/// silently, so a thread of the publisher's reads them as they come. It keeps 63 input reports for each
/// client and drops more silently, so that input goes out in bursts with pauses in which clients can read;
/// and it drops those that come before it is done with a new device, which it does not tell.
///
/// Lives on the publisher's thread.
class UhidChannel final : public Channel, private UhidInbox::Listener {
  public:
    using Clock = std::chrono::steady_clock;

    static constexpr size_t burstReports = 32;
    static constexpr std::chrono::milliseconds burstPause{4};
    /// Input reports that may wait.
    static constexpr size_t queueLimit = 32768;
    /// How long input waits after the device has been opened first.
    static constexpr std::chrono::milliseconds settlingTime{10};
    /// The kernel gives every device a driver much sooner, if it has one.
    static constexpr std::chrono::seconds driverPatience{1};

    UhidChannel(std::shared_ptr<RunLoop> runLoop, std::shared_ptr<UhidReader> reader,
                std::shared_ptr<UhidClosings> closings, std::shared_ptr<const UhidMaker> maker,
                std::string name, ChannelHandler &handler);
    ~UhidChannel() override;
    UhidChannel(const UhidChannel &) = delete;
    UhidChannel &operator=(const UhidChannel &) = delete;

    /// Makes the device, now or when an earlier one of its name has been closed. The error's code is
    /// BusFolder::alreadyPublished when there is one of that name, or one on its way.
    [[nodiscard]] Result<void> start(const Data &createMessage);

    /// Reports are dropped until somebody has opened the device.
    size_t sendInput(std::span<const uint8_t> report) override;
    size_t openCount() const override { return isOpen_ ? 1 : 0; }
    /// Never known.
    bool isConnectedTo(int32_t) const override { return false; }
    size_t queuedBytes() const override { return input_.size() * uhidInputReportSize; }

  private:
    void received(std::span<const uint8_t> message) override;
    void overflowed() override;
    void hasRoom() override { reader_->goOn(*inbox_); }
    void ended() override;

    [[nodiscard]] Result<void> makeDevice(const Data &createMessage);
    void serve(const UhidEvent &event);
    void stopped();
    void opened();
    void closed();
    void serveReport(const UhidEvent &event);
    void settle();
    void sendWaiting();
    [[nodiscard]] bool write(const Data &message);

    std::shared_ptr<RunLoop> runLoop_;
    std::shared_ptr<UhidReader> reader_;
    std::shared_ptr<UhidClosings> closings_;
    std::shared_ptr<const UhidMaker> maker_;
    Descriptor device_; ///< Empty until it is made.
    std::string name_;
    ChannelHandler &handler_;
    std::shared_ptr<UhidInbox> inbox_;
    LogQuota senseless_;
    LogQuota overflow_;
    Peer peer_;
    bool waitsForName_ = false;
    bool isOpen_ = false;
    bool hasBeenOpen_ = false;
    bool refusesWrites_ = false; ///< Logged once.
    RunLoopSource driverTimer_;  ///< Empty once the device has its driver.

    std::deque<Data> input_; ///< Messages that wait for the next burst.
    Clock::time_point burstEnds_{};
    size_t sentInBurst_ = 0;
    bool droppedInput_ = false;
    RunLoopSource pause_;

    const std::shared_ptr<bool> isAlive_ = std::make_shared<bool>(true);
};

} // namespace moxel::daemon
