// A virtual device in the kernel: serves the requests that the kernel passes on, and sends input.
#pragma once

#include "Moxel Daemon/Bus/Channel.h"
#include "Moxel Daemon/Kernel/UhidMessages.h"
#include "Platform/Linux/Descriptor.h"
#include "Platform/RunLoop.h"

#include <chrono>
#include <deque>
#include <memory>
#include <string>

namespace moxel::daemon {

/// The kernel speaks for all clients: it tells neither who they are nor how many, only that the first one has
/// opened the device and that the last one has closed it. It keeps 31 messages for this side and drops more
/// silently, so they are all read before the first is served. It keeps 63 input reports for each client and
/// drops more silently, so that input goes out in bursts with pauses in which clients can read.
///
/// Lives on the publisher's thread.
class UhidChannel final : public Channel {
  public:
    using Clock = std::chrono::steady_clock;

    static constexpr size_t burstReports = 32;
    static constexpr std::chrono::milliseconds burstPause{4};
    /// Input reports that may wait.
    static constexpr size_t queueLimit = 32768;

    UhidChannel(std::shared_ptr<RunLoop> runLoop, Descriptor device, std::string name,
                ChannelHandler &handler);
    ~UhidChannel() override = default;
    UhidChannel(const UhidChannel &) = delete;
    UhidChannel &operator=(const UhidChannel &) = delete;

    [[nodiscard]] Result<void> start(const Data &createMessage);

    /// Reports are dropped until somebody has opened the device.
    size_t sendInput(std::span<const uint8_t> report) override;
    size_t openCount() const override { return isOpen_ ? 1 : 0; }
    /// Never known.
    bool isConnectedTo(int32_t) const override { return false; }
    size_t queuedBytes() const override { return input_.size() * uhidInputReportSize; }

  private:
    void kernelIsReady(RunLoop::Readiness readiness);
    void drain();
    void serveReceived();
    void serve(const UhidEvent &event);
    void opened();
    void closed();
    void serveReport(const UhidEvent &event);
    void sendWaiting();
    [[nodiscard]] bool write(const Data &message);

    std::shared_ptr<RunLoop> runLoop_;
    Descriptor device_;
    std::string name_;
    ChannelHandler &handler_;
    Peer peer_;
    bool isOpen_ = false;
    bool isServing_ = false;
    bool isBroken_ = false;      ///< Nothing more can be read.
    bool refusesWrites_ = false; ///< Logged once.
    std::deque<Data> received_;

    std::deque<Data> input_; ///< Messages that wait for the next burst.
    Clock::time_point burstEnds_{};
    size_t sentInBurst_ = 0;
    bool droppedInput_ = false;
    RunLoopSource pause_;
    RunLoopSource source_; ///< Destroyed before the device that it watches.
};

} // namespace moxel::daemon
