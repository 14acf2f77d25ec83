#include "Platform/Linux/UserSpaceBusDevice.h"

#include "Platform/Log.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <sys/socket.h>
#include <utility>

namespace moxel {

namespace {

using hidbus::Operation;

constexpr std::chrono::seconds requestLimit{1};
/// Reports that one wake-up delivers at most, so that a flood leaves the loop to others as well.
constexpr int reportsPerWakeUp = 64;

} // namespace

/// What a device needs once it is used.
struct UserSpaceBusDevice::Channel {
    std::mutex openMutex; ///< Held through open() and close().

    std::mutex requestMutex; ///< Held through a request.
    BusConnection requests;  ///< Under requestMutex.

    std::mutex inputMutex; ///< Never held while waiting or calling back. Guards the next four.
    InputConnection input; ///< Set while the device is open. Whoever takes it out is the only one to read it.
    std::span<uint8_t> buffer;
    InputReportCallback callback = nullptr;
    void *context = nullptr;

    // On the host's thread.
    InputConnection watched;
    RunLoopSource source;

    [[nodiscard]] InputConnection currentInput() {
        const std::lock_guard lock(inputMutex);
        return input;
    }
};

UserSpaceBusDevice::UserSpaceBusDevice(std::shared_ptr<const UserSpaceBusEntry> entry,
                                       std::shared_ptr<HIDDeviceHost> host)
    : entry_(std::move(entry)), host_(std::move(host)) {}

UserSpaceBusDevice::~UserSpaceBusDevice() { delete channel_.load(); }

UserSpaceBusDevice::Channel &UserSpaceBusDevice::channel() {
    if (Channel *made = channel_.load())
        return *made;
    auto fresh = std::make_unique<Channel>();
    Channel *made = nullptr;
    return channel_.compare_exchange_strong(made, fresh.get()) ? *fresh.release() : *made;
}

bool UserSpaceBusDevice::hasLeft() const noexcept { return left_ || entry_->hasLeft(); }

// ------------------------------------------------------------------------------------------ Identity

std::optional<HIDProperty> UserSpaceBusDevice::property(std::string_view key) const {
    return entry_->property(key);
}

std::optional<std::string> UserSpaceBusDevice::registryEntryName() const { return entry_->properties().name; }

std::string UserSpaceBusDevice::description() const { return entry_->properties().descriptionOf(*this); }

// ------------------------------------------------------------------------------------------ Open and close

HIDStatus UserSpaceBusDevice::open() {
    Channel &channel = this->channel();
    const std::lock_guard one(channel.openMutex);
    if (hasLeft())
        return HIDStatus::noDevice;
    if (channel.currentInput())
        return HIDStatus::success;
    const auto deadline = BusConnection::Clock::now() + requestLimit;
    const auto connection = std::make_shared<BusConnection>();
    HIDStatus status = connection->connect(*entry_, deadline);
    if (status == HIDStatus::success)
        status = connection->perform(*entry_, {.operation = Operation::open}, {}, deadline).status;
    if (status != HIDStatus::success)
        return status;
    {
        const std::lock_guard lock(channel.inputMutex);
        if (left_)
            return HIDStatus::noDevice;
        channel.input = connection;
    }
    if (!host_->thread().isCurrent()) {
        host_->thread().perform([self = shared_from_this(), connection] {
            if (!self->watch(connection))
                self->inputEnded(connection);
        });
        return HIDStatus::success;
    }
    if (watch(connection))
        return HIDStatus::success;
    const std::lock_guard lock(channel.inputMutex);
    channel.input.reset();
    return HIDStatus::error;
}

HIDStatus UserSpaceBusDevice::close() {
    Channel &channel = this->channel();
    const std::lock_guard one(channel.openMutex);
    InputConnection connection;
    {
        const std::lock_guard lock(channel.inputMutex);
        connection.swap(channel.input);
    }
    if (!connection)
        return hasLeft() ? HIDStatus::noDevice : HIDStatus::notOpen;
    const auto deadline = BusConnection::Clock::now() + requestLimit;
    const HIDStatus status =
        connection->perform(*entry_, {.operation = Operation::close}, {}, deadline).status;
    // The loop's thread may keep the descriptor a little longer; the publisher need not wait for that.
    ::shutdown(connection->descriptor(), SHUT_RDWR);
    // A request that is under way drops its connection itself.
    if (const std::unique_lock lock(channel.requestMutex, std::try_to_lock); lock)
        channel.requests.reset();
    if (host_->thread().isCurrent())
        unwatch(connection);
    host_->thread().perform([self = shared_from_this(), connection] { self->inputClosed(connection); });
    return status;
}

// ------------------------------------------------------------------------------------------ Requests

HIDStatus UserSpaceBusDevice::setReport(HIDReportType type, uint8_t reportID,
                                        std::span<const uint8_t> report) {
    if (report.size() > hidbus::payloadLimit)
        return HIDStatus::badArgument;
    return request({Operation::setReport, type, reportID, 0, report}, {}).status;
}

HIDStatus UserSpaceBusDevice::getReport(HIDReportType type, uint8_t reportID, std::span<uint8_t> buffer,
                                        size_t &length) {
    length = 0;
    if (buffer.empty())
        return HIDStatus::badArgument;
    const auto capacity = static_cast<uint16_t>(std::min(buffer.size(), hidbus::payloadLimit));
    const BusAnswer answer = request({Operation::getReport, type, reportID, capacity, {}}, buffer);
    length = answer.length;
    return answer.status;
}

BusAnswer UserSpaceBusDevice::request(const BusRequest &request, std::span<uint8_t> replyPayload) {
    Channel &channel = this->channel();
    const std::lock_guard one(channel.requestMutex);
    if (hasLeft())
        return {HIDStatus::noDevice};
    if (!channel.currentInput())
        return {HIDStatus::notOpen};
    const auto deadline = BusConnection::Clock::now() + requestLimit;
    if (channel.requests && !channel.requests.isQuiet())
        channel.requests.reset();
    if (!channel.requests) {
        if (const HIDStatus status = channel.requests.connect(*entry_, deadline);
            status != HIDStatus::success)
            return {status};
    }
    const BusAnswer answer = channel.requests.perform(*entry_, request, replyPayload, deadline);
    if (!answer.isReply || !channel.currentInput())
        channel.requests.reset();
    return answer;
}

// ------------------------------------------------------------------------------------------ Input

void UserSpaceBusDevice::registerInputReportCallback(std::span<uint8_t> buffer, InputReportCallback callback,
                                                     void *context) {
    Channel &channel = this->channel();
    const std::lock_guard lock(channel.inputMutex);
    channel.buffer = buffer;
    channel.callback = callback;
    channel.context = context;
}

/// True when there is nothing wrong; the connection may have been closed or replaced meanwhile.
bool UserSpaceBusDevice::watch(const InputConnection &connection) {
    Channel &channel = this->channel();
    if (!scheduled_ || channel.watched == connection || channel.currentInput() != connection)
        return true;
    Result<RunLoopSource> source =
        host_->runLoop()->watchDescriptor(connection->descriptor(), RunLoop::Descriptor::readable,
                                          [this](RunLoop::Readiness) { deliverInput(); });
    if (!source.ok()) {
        logLine(LogLevel::error, "Error: no input from " + description() + ": " + source.error().message);
        return false;
    }
    channel.source = *std::move(source);
    channel.watched = connection;
    return true;
}

void UserSpaceBusDevice::unwatch(const InputConnection &connection) noexcept {
    Channel &channel = this->channel();
    if (channel.watched != connection)
        return;
    channel.source.reset();
    channel.watched.reset();
}

void UserSpaceBusDevice::deliverInput() {
    const auto self = shared_from_this(); // A callback may drop all other references.
    Channel &channel = this->channel();
    const InputConnection connection = channel.watched;
    for (int report = 0; report < reportsPerWakeUp; ++report) {
        if (!deliverOne(channel, connection))
            return;
    }
}

/// True when there may be more.
bool UserSpaceBusDevice::deliverOne(Channel &channel, const InputConnection &connection) {
    std::unique_lock lock(channel.inputMutex);
    if (channel.input != connection) {
        lock.unlock();
        inputClosed(connection);
        return false;
    }
    BusBuffer datagram;
    const BusReceipt receipt = receiveBusDatagram(connection->descriptor(), datagram);
    if (receipt.kind == BusReceipt::Kind::nothing)
        return false;
    if (receipt.kind == BusReceipt::Kind::hangUp) {
        lock.unlock();
        inputEnded(connection);
        return false;
    }
    const Result<BusMessage> message = parseBusMessage(datagram, receipt.sentSize);
    if (!message.ok() || message->operation != Operation::input) {
        lock.unlock();
        logLine(LogLevel::error,
                "Error: " + description() + " is removed because it sent " +
                    (message.ok() ? "a message that is not INPUT" : message.error().message));
        entry_->drop();
        inputEnded(connection);
        return false;
    }
    if (channel.callback == nullptr || channel.buffer.empty())
        return true;
    const auto report = message->payload;
    const size_t length = std::min(report.size(), channel.buffer.size());
    std::memcpy(channel.buffer.data(), report.data(), length);
    const auto callback = channel.callback;
    void *const context = channel.context;
    uint8_t *const buffer = channel.buffer.data();
    lock.unlock();
    callback(context, HIDStatus::success, this, HIDReportType::input, report[0], buffer, length);
    return channel.watched == connection; // The callback may have closed or unscheduled the device.
}

/// The device's side has ended the connection.
void UserSpaceBusDevice::inputEnded(const InputConnection &connection) {
    Channel &channel = this->channel();
    {
        const std::lock_guard lock(channel.inputMutex);
        if (channel.input == connection) {
            left_ = true;
            channel.input.reset();
        }
    }
    inputClosed(connection);
}

/// The connection is no longer the device's input, from whatever side it was ended.
void UserSpaceBusDevice::inputClosed(const InputConnection &connection) {
    unwatch(connection);
    if (left_)
        reportEnd();
}

// ------------------------------------------------------------------------------------------ The end

void UserSpaceBusDevice::leave() {
    left_ = true;
    const InputConnection input = channel_.load() ? channel().currentInput() : nullptr;
    if (!input) {
        reportEnd();
        return;
    }
    // Nothing more can be queued now; what is there is delivered before the end is read and reported.
    ::shutdown(input->descriptor(), SHUT_RDWR);
    if (!watch(input))
        inputEnded(input);
}

void UserSpaceBusDevice::unschedule() {
    scheduled_ = false;
    if (Channel *channel = channel_.load()) {
        channel->source.reset();
        channel->watched.reset();
    }
}

void UserSpaceBusDevice::reportEnd() {
    if (std::exchange(scheduled_, false))
        host_->deviceEnded(*this);
}

} // namespace moxel
