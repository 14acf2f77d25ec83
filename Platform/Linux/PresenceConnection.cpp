#include "Platform/Linux/PresenceConnection.h"

#include "Platform/Linux/BusMessage.h"
#include "Platform/Linux/Shortage.h"
#include "Platform/Log.h"
#include "Platform/LogText.h"

#include <cerrno>
#include <sys/socket.h>
#include <utility>

namespace moxel {

namespace {

constexpr std::chrono::seconds propertiesLimit{1};
constexpr std::chrono::milliseconds firstPause{10};
/// Pauses double; ten of them fit below.
constexpr std::chrono::seconds longestPause{6};

} // namespace

PresenceConnection::PresenceConnection(BusSocket socket, RunLoop &runLoop, Owner &owner)
    : socket_(std::make_shared<BusSocket>(std::move(socket))),
      runLoop_(runLoop),
      owner_(owner),
      pause_(firstPause) {}

bool PresenceConnection::begin() {
    Descriptor descriptor(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!descriptor) {
        owner_.shortageOccurred(systemError("Cannot make a socket", errno));
        return false;
    }
    int error = EINTR;
    while (error == EINTR)
        error = socket_->connect(descriptor.get());
    if (error == EAGAIN)
        return tryLater("its publisher accepts no connections");
    if (error == ECONNREFUSED || error == ENOENT || error == EPROTOTYPE)
        return false; // A stale file, one that is gone, or a socket of another kind.
    if (isShortage(error)) {
        owner_.shortageOccurred(systemError("Cannot connect to a device", error));
        return false;
    }
    if (error != 0) {
        refuse(systemError("it cannot be connected to", error).message);
        return false;
    }
    if (const Result<void> checked = checkPublisher(descriptor.get()); !checked.ok()) {
        refuse(checked.error().message);
        return false;
    }
    Result<RunLoopSource> source = runLoop_.watchDescriptor(descriptor.get(), RunLoop::Descriptor::readable,
                                                            [this](RunLoop::Readiness) { readable(); });
    if (!source.ok()) {
        owner_.shortageOccurred(source.error());
        return false;
    }
    descriptor_ = std::move(descriptor);
    source_ = *std::move(source);
    setDeadline(propertiesLimit);
    return true;
}

bool PresenceConnection::tryLater(const std::string &reason) {
    source_.reset();
    descriptor_.reset();
    if (pause_ > longestPause) {
        refuse(reason);
        return false;
    }
    setDeadline(pause_);
    pause_ *= 2;
    return true;
}

void PresenceConnection::setDeadline(Clock::duration limit) {
    deadline_ = Clock::now() + limit;
    owner_.wakeBy(*deadline_);
}

bool PresenceConnection::timeHasPassed(Clock::time_point now) {
    if (!deadline_)
        return true;
    if (now < *deadline_) {
        owner_.wakeBy(*deadline_);
        return true;
    }
    deadline_.reset();
    return source_ ? tryLater("its publisher sent no PROPERTIES message within a second") : begin();
}

void PresenceConnection::refuse(const std::string &reason) const {
    logLine(LogLevel::error,
            "Error: HID device " + printableText(socket_->path()) + " is not used: " + reason);
}

void PresenceConnection::readable() {
    BusBuffer datagram;
    const int descriptor = entry_ ? entry_->presence() : descriptor_.get();
    const BusReceipt receipt = receiveBusDatagram(descriptor, datagram);
    if (receipt.kind == BusReceipt::Kind::nothing)
        return;
    if (receipt.kind == BusReceipt::Kind::datagram && !entry_) {
        propertiesReceived(datagram, receipt.sentSize);
        return;
    }
    if (receipt.kind == BusReceipt::Kind::datagram)
        refuse("it sent a second message on a connection that asked for none");
    owner_.connectionEnded(*this);
}

void PresenceConnection::propertiesReceived(const BusBuffer &datagram, size_t sentSize) {
    const Result<BusMessage> message = parseBusMessage(datagram, sentSize);
    Result<BusDeviceProperties> properties =
        message.ok() ? parseBusProperties(*message) : Result<BusDeviceProperties>(message.error());
    if (!properties.ok()) {
        refuse("it sent " + properties.error().message);
        owner_.connectionEnded(*this);
        return;
    }
    deadline_.reset();
    entry_ = std::make_shared<UserSpaceBusEntry>(socket_, std::move(descriptor_), *std::move(properties));
    owner_.deviceArrived(*this);
}

} // namespace moxel
