// A device of the user-space bus as one manager holds it.
#pragma once

#include "Platform/Linux/BusConnection.h"
#include "Platform/Linux/HIDBus.h"
#include "Platform/Linux/UserSpaceBusEntry.h"

#include <atomic>
#include <memory>

namespace moxel {

/// Small until it is used, because every manager holds an object for every matching device. Input comes over
/// one connection, watched on the host's run loop; requests go over a second one, so that whoever waits for a
/// reply takes no input from the loop.
class UserSpaceBusDevice final : public HIDBusDevice,
                                 public std::enable_shared_from_this<UserSpaceBusDevice> {
  public:
    UserSpaceBusDevice(std::shared_ptr<const UserSpaceBusEntry> entry, std::shared_ptr<HIDDeviceHost> host);
    ~UserSpaceBusDevice() override;
    UserSpaceBusDevice(const UserSpaceBusDevice &) = delete;
    UserSpaceBusDevice &operator=(const UserSpaceBusDevice &) = delete;

    [[nodiscard]] std::optional<HIDProperty> property(std::string_view key) const override;
    [[nodiscard]] std::optional<std::string> registryEntryName() const override;
    [[nodiscard]] std::string description() const override;

    HIDStatus open() override;
    HIDStatus close() override;
    HIDStatus setReport(HIDReportType type, uint8_t reportID, std::span<const uint8_t> report) override;
    HIDStatus getReport(HIDReportType type, uint8_t reportID, std::span<uint8_t> buffer,
                        size_t &length) override;
    void registerInputReportCallback(std::span<uint8_t> buffer, InputReportCallback callback,
                                     void *context) override;

    void leave() override;
    void unschedule() override;

  private:
    struct Channel;
    using InputConnection = std::shared_ptr<BusConnection>;

    Channel &channel();
    [[nodiscard]] bool hasLeft() const noexcept;
    BusAnswer request(const BusRequest &request, std::span<uint8_t> replyPayload);

    // The rest is for the host's thread.
    [[nodiscard]] bool watch(const InputConnection &connection);
    void unwatch(const InputConnection &connection) noexcept;
    void deliverInput();
    [[nodiscard]] bool deliverOne(Channel &channel, const InputConnection &connection);
    void inputEnded(const InputConnection &connection);
    void inputClosed(const InputConnection &connection);
    void reportEnd();

    const std::shared_ptr<const UserSpaceBusEntry> entry_;
    const std::shared_ptr<HIDDeviceHost> host_;
    std::atomic<Channel *> channel_{nullptr}; ///< Owned; made when it is first needed.
    std::atomic<bool> left_{false};           ///< Set on the host's thread.
    bool scheduled_ = true;                   ///< On the host's thread.
};

} // namespace moxel
