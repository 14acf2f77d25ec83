#include "Moxel Daemon/Bus/BusConnection.h"

#include "Platform/Log.h"

#include <array>
#include <cerrno>
#include <sys/socket.h>

namespace moxel::daemon {

namespace {

/// Requests served before other connections get their turn.
constexpr int requestsPerTurn = 64;

bool wouldBlock(int error) { return error == EAGAIN || error == EWOULDBLOCK; }

} // namespace

BusConnection::BusConnection(Descriptor socket, const Peer &peer, Owner &owner)
    : socket_(std::move(socket)), peer_(peer), owner_(owner) {}

Result<void> BusConnection::start(RunLoop &runLoop, const Data &properties,
                                  RunLoop::DescriptorCallback serve) {
    Result<RunLoopSource> source =
        runLoop.watchDescriptor(socket_.get(), RunLoop::Descriptor::readable, std::move(serve));
    if (!source.ok())
        return source.error();
    runLoop_ = &runLoop;
    source_ = std::move(*source);
    send(properties);
    return {};
}

void BusConnection::serveReadiness(RunLoop::Readiness readiness) {
    if (readiness.writable && !hasEnded())
        flush();
    if (readiness.readable)
        receive();
    else if (readiness.hangUp)
        end();
}

void BusConnection::receive() {
    // One byte more than the longest message, and the true size besides.
    std::array<uint8_t, hidbus::messageLimit + 1> buffer;
    for (int served = 0; served < requestsPerTurn && !hasEnded(); ++served) {
        const ssize_t size = ::recv(socket_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT | MSG_TRUNC);
        if (size < 0 && (wouldBlock(errno) || errno == EINTR))
            return;
        if (size <= 0) {
            end();
            return;
        }
        const Result<BusRequest> request = parseBusRequest(buffer, static_cast<size_t>(size));
        if (!request.ok()) {
            drop(request.error().message);
            return;
        }
        owner_.received(*this, *request);
    }
}

void BusConnection::send(const Data &message) {
    if (hasEnded())
        return;
    if (queue_.empty() && transmit(message) != Sent::later)
        return;
    const size_t cost = message.size() + messageOverhead;
    if (cost > queueLimit - queuedBytes_) {
        drop("it does not read what is sent to it");
        return;
    }
    if (queue_.empty())
        runLoop_->setInterest(source_, true, true);
    queue_.push_back(message);
    queuedBytes_ += cost;
}

BusConnection::Sent BusConnection::transmit(const Data &message) {
    while (::send(socket_.get(), message.data(), message.size(), MSG_DONTWAIT | MSG_NOSIGNAL) < 0) {
        const int error = errno;
        if (error == EINTR)
            continue;
        if (wouldBlock(error))
            return Sent::later;
        if (error == EPIPE || error == ECONNRESET)
            end();
        else
            drop(systemError("sending to it failed", error).message);
        return Sent::never;
    }
    return Sent::whole;
}

void BusConnection::flush() {
    while (!queue_.empty() && transmit(queue_.front()) == Sent::whole) {
        queuedBytes_ -= queue_.front().size() + messageOverhead;
        queue_.pop_front();
        shrunk_ = true;
    }
    if (queue_.empty() && !hasEnded())
        runLoop_->setInterest(source_, true, false);
}

void BusConnection::end() {
    source_.reset();
    socket_.reset();
    shrunk_ = shrunk_ || !queue_.empty();
    queue_.clear();
    queuedBytes_ = 0;
}

void BusConnection::drop(const std::string &reason) {
    logLine(LogLevel::error,
            "Error: process " + std::to_string(peer_.processID) + " is dropped from the bus: " + reason);
    end();
}

} // namespace moxel::daemon
