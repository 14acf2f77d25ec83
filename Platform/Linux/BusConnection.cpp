#include "Platform/Linux/BusConnection.h"

#include "Platform/Linux/BusMessage.h"
#include "Platform/Linux/UserSpaceBusEntry.h"
#include "Platform/Log.h"
#include "Platform/LogText.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/uio.h>

namespace moxel {

namespace {

using Clock = BusConnection::Clock;
using hidbus::Operation;

/// Waits for `events` of a connection. The status is success when they came (or the connection broke, which
/// its next use tells).
HIDStatus await(const UserSpaceBusEntry &entry, int descriptor, short events, Clock::time_point deadline) {
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        pollfd watched[2] = {{descriptor, events, 0}, {entry.presence(), 0, 0}};
        const int ready = ::poll(watched, 2, static_cast<int>(std::max<decltype(left)>(left, 0)));
        if (ready < 0 && errno != EINTR)
            return HIDStatus::error;
        if (ready > 0)
            return watched[0].revents != 0 ? HIDStatus::success : HIDStatus::noDevice;
        if (left <= 0)
            return HIDStatus::timedOut;
    }
}

void logBrokenRule(const UserSpaceBusEntry &entry, const std::string &rule) {
    logLine(LogLevel::error, "Error: HID device " + printableText(entry.socket().path()) + " sent " + rule +
                                 ", which drops the connection");
}

/// The next datagram of a connection, parsed; its bytes are in `buffer`.
HIDStatus receive(const UserSpaceBusEntry &entry, int descriptor, BusBuffer &buffer,
                  Clock::time_point deadline, BusMessage &message) {
    for (;;) {
        const BusReceipt receipt = receiveBusDatagram(descriptor, buffer);
        if (receipt.kind == BusReceipt::Kind::hangUp)
            return HIDStatus::noDevice;
        if (receipt.kind == BusReceipt::Kind::datagram) {
            const Result<BusMessage> parsed = parseBusMessage(buffer, receipt.sentSize);
            if (parsed.ok()) {
                message = *parsed;
                return HIDStatus::success;
            }
            logBrokenRule(entry, parsed.error().message);
            return HIDStatus::error;
        }
        if (const HIDStatus status = await(entry, descriptor, POLLIN, deadline); status != HIDStatus::success)
            return status;
    }
}

HIDStatus send(const UserSpaceBusEntry &entry, int descriptor, const BusRequest &request,
               Clock::time_point deadline) {
    hidbus::MessageHeader header{static_cast<uint8_t>(request.operation),
                                 static_cast<uint8_t>(request.reportType), request.reportID, 0,
                                 request.capacity};
    iovec parts[2] = {{&header, sizeof header},
                      {const_cast<uint8_t *>(request.payload.data()), request.payload.size()}};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    for (;;) {
        if (::sendmsg(descriptor, &message, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0)
            return HIDStatus::success;
        if (errno == EPIPE || errno == ECONNRESET || errno == ENOTCONN)
            return HIDStatus::noDevice;
        if (errno == EINTR)
            continue;
        if (errno != EAGAIN)
            return HIDStatus::error;
        if (const HIDStatus status = await(entry, descriptor, POLLOUT, deadline);
            status != HIDStatus::success)
            return status;
    }
}

/// connect() that waits, while the publisher's queue is full, until `deadline` at most.
HIDStatus connectSocket(const UserSpaceBusEntry &entry, int descriptor, Clock::time_point deadline) {
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::microseconds>(deadline - Clock::now()).count();
        if (left <= 0)
            return HIDStatus::timedOut;
        const timeval limit{static_cast<time_t>(left / 1'000'000),
                            static_cast<suseconds_t>(left % 1'000'000)};
        if (::setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) != 0)
            return HIDStatus::error;
        switch (const int error = entry.socket().connect(descriptor)) {
        case 0:
            return HIDStatus::success;
        case EINTR:
        case EAGAIN:
            break;
        case ECONNREFUSED:
        case ENOENT:
            return HIDStatus::noDevice;
        case EACCES:
        case EPERM:
            return HIDStatus::notPermitted;
        default:
            logLine(LogLevel::error, "Error: " + systemError("Cannot connect to HID device " +
                                                                 printableText(entry.socket().path()),
                                                             error)
                                                     .message);
            return HIDStatus::error;
        }
    }
}

/// Reads the first message of a connection, which must say what the device said when it arrived.
HIDStatus receiveProperties(const UserSpaceBusEntry &entry, int descriptor, Clock::time_point deadline) {
    BusBuffer buffer;
    BusMessage message;
    if (const HIDStatus status = receive(entry, descriptor, buffer, deadline, message);
        status != HIDStatus::success)
        return status;
    const Result<BusDeviceProperties> properties = parseBusProperties(message);
    if (properties.ok() && *properties == entry.properties())
        return HIDStatus::success;
    logBrokenRule(entry, properties.ok() ? "other properties than before" : properties.error().message);
    return HIDStatus::error;
}

} // namespace

BusReceipt receiveBusDatagram(int descriptor, BusBuffer &buffer) noexcept {
    // A reset says that the other end left something unread. It is told once, ahead of what is still queued
    // here.
    bool wasReset = false;
    for (;;) {
        const ssize_t size = ::recv(descriptor, buffer.data(), buffer.size(), MSG_DONTWAIT | MSG_TRUNC);
        if (size > 0)
            return {BusReceipt::Kind::datagram, static_cast<size_t>(size)};
        if (size == 0)
            return {BusReceipt::Kind::hangUp, 0};
        if (errno == EAGAIN)
            return {BusReceipt::Kind::nothing, 0};
        if (errno != EINTR && (errno != ECONNRESET || std::exchange(wasReset, true)))
            return {BusReceipt::Kind::hangUp, 0};
    }
}

HIDStatus BusConnection::connect(const UserSpaceBusEntry &entry, Clock::time_point deadline) {
    Descriptor descriptor(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    if (!descriptor) {
        logLine(LogLevel::error,
                "Error: " + systemError("Cannot make a socket for a HID device", errno).message);
        return HIDStatus::error;
    }
    HIDStatus status = connectSocket(entry, descriptor.get(), deadline);
    if (status != HIDStatus::success)
        return status;
    if (const Result<void> checked = checkPublisher(descriptor.get()); !checked.ok()) {
        logLine(LogLevel::error, "Error: HID device " + printableText(entry.socket().path()) +
                                     " is not used: " + checked.error().message);
        return HIDStatus::notPermitted;
    }
    status = receiveProperties(entry, descriptor.get(), deadline);
    if (status == HIDStatus::success)
        descriptor_ = std::move(descriptor);
    return status;
}

BusAnswer BusConnection::perform(const UserSpaceBusEntry &entry, const BusRequest &request,
                                 std::span<uint8_t> replyPayload, Clock::time_point deadline) {
    HIDStatus status = send(entry, descriptor_.get(), request, deadline);
    BusBuffer buffer;
    BusMessage reply;
    do {
        if (status == HIDStatus::success)
            status = receive(entry, descriptor_.get(), buffer, deadline, reply);
        if (status != HIDStatus::success)
            return {status, false, 0};
        if (Clock::now() > deadline) // Input may come without end.
            status = HIDStatus::timedOut;
    } while (request.operation == Operation::close && reply.operation == Operation::input);
    if (reply.operation != request.operation || reply.payload.size() > request.capacity) {
        logBrokenRule(entry, "a reply that does not fit its request");
        return {HIDStatus::error, false, 0};
    }
    status = replyStatus(reply);
    const size_t length = status == HIDStatus::success ? reply.payload.size() : 0;
    std::copy_n(reply.payload.begin(), length, replyPayload.begin());
    return {status, true, length};
}

bool BusConnection::isQuiet() const noexcept {
    uint8_t byte = 0;
    return ::recv(descriptor_.get(), &byte, sizeof byte, MSG_DONTWAIT | MSG_PEEK) < 0 && errno == EAGAIN;
}

} // namespace moxel
