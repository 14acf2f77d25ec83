// A device of the kernel that has a hidraw node, as one manager holds it.
#pragma once

#include "Platform/Linux/BlockingCalls.h"
#include "Platform/Linux/Descriptor.h"
#include "Platform/Linux/HIDBus.h"
#include "Platform/Linux/HidrawEntry.h"

#include <atomic>
#include <memory>
#include <mutex>

namespace moxel {

/// The node is opened when the device is. While the device's driver owes an answer to whomever, the kernel
/// keeps everyone waiting who opens or closes any hidraw node, for seconds: such calls are made aside.
class HidrawDevice final : public HIDBusDevice, public std::enable_shared_from_this<HidrawDevice> {
  public:
    HidrawDevice(std::shared_ptr<const HidrawEntry> entry, std::shared_ptr<HIDDeviceHost> host);

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
    bool awaitsNewArrival() const noexcept override { return openingFailed_; }

  private:
    using Handle = std::shared_ptr<Descriptor>;
    enum class Read { report, nothing, end };
    /// A report on its way to or from the kernel, shared with a call that may be left to itself.
    struct Exchange;

    [[nodiscard]] bool hasLeft() const noexcept { return left_ || entry_->hasLeft(); }
    [[nodiscard]] Handle currentHandle();
    HIDStatus openNode(Handle &handle);
    [[nodiscard]] int openAside(Descriptor &descriptor);
    void openingHasFailed(int error);
    HIDStatus exchange(const std::shared_ptr<Exchange> &exchange);
    [[nodiscard]] HIDStatus statusOf(int error, const Descriptor *handle) const;

    // The rest is for the host's thread.
    [[nodiscard]] bool watch(const Handle &handle);
    void unwatch(const Handle &handle) noexcept;
    void deliverInput(bool isOver);
    [[nodiscard]] Read deliverOne(const Handle &handle);
    void inputEnded(const Handle &handle);
    void inputFailed(const Handle &handle);
    void inputClosed(const Handle &handle);
    void reportEnd();

    const std::shared_ptr<const HidrawEntry> entry_;
    const std::shared_ptr<HIDDeviceHost> host_;
    std::atomic<bool> left_{false};          ///< Set on the host's thread.
    std::atomic<bool> openingFailed_{false}; ///< The last time.

    std::mutex openMutex_;    ///< Held through open() and close().
    std::mutex requestMutex_; ///< Held through a request.
    BlockingCalls requests_;

    std::mutex inputMutex_; ///< Never held while waiting or calling back. Guards the next four.
    Handle handle_;         ///< Set while the device is open.
    std::span<uint8_t> buffer_;
    InputReportCallback callback_ = nullptr;
    void *context_ = nullptr;

    // On the host's thread.
    bool scheduled_ = true;
    Handle watched_;
    RunLoopSource source_;
};

} // namespace moxel
