#include "Moxel Daemon/Kernel/UhidChannel.h"

#include "Platform/Log.h"

#include <array>
#include <cerrno>
#include <unistd.h>
#include <utility>

namespace moxel::daemon {

UhidChannel::UhidChannel(std::shared_ptr<RunLoop> runLoop, Descriptor device, std::string name,
                         ChannelHandler &handler)
    : runLoop_(std::move(runLoop)), device_(std::move(device)), name_(std::move(name)), handler_(handler) {}

Result<void> UhidChannel::start(const Data &createMessage) {
    const ssize_t size = ::write(device_.get(), createMessage.data(), createMessage.size());
    if (size < 0)
        return systemError("The kernel refuses the device " + name_, errno);
    Result<RunLoopSource> source =
        runLoop_->watchDescriptor(device_.get(), RunLoop::Descriptor::readable,
                                  [this](RunLoop::Readiness readiness) { kernelIsReady(readiness); });
    if (!source.ok())
        return source.error();
    source_ = std::move(*source);
    return {};
}

// ------------------------------------------------------------------------------------------ From the kernel

void UhidChannel::kernelIsReady(RunLoop::Readiness readiness) {
    drain();
    if (readiness.hangUp || isBroken_)
        source_.reset(); // It would be ready for ever.
    serveReceived();
}

/// Reads all that the kernel has.
void UhidChannel::drain() {
    std::array<uint8_t, sizeof(uhid_event)> buffer{};
    for (;;) {
        const ssize_t size = ::read(device_.get(), buffer.data(), buffer.size());
        if (size > 0) {
            received_.emplace_back(buffer.begin(), buffer.begin() + size);
        } else if (size == 0 || (errno != EINTR && errno != EAGAIN)) {
            if (!std::exchange(isBroken_, true))
                logLine(LogLevel::error,
                        "Error: " + name_ + ": the kernel does not serve the device any more");
            return;
        } else if (errno == EAGAIN) {
            return;
        }
    }
}

void UhidChannel::serveReceived() {
    if (std::exchange(isServing_, true))
        return;
    while (!received_.empty()) {
        const Data message = std::move(received_.front());
        received_.pop_front();
        if (const std::optional<UhidEvent> event = parseUhidEvent(message))
            serve(*event);
        else
            logLine(LogLevel::error, "Error: " + name_ + ": a message of the kernel makes no sense");
        drain(); // Serving one may have taken long.
    }
    isServing_ = false;
}

void UhidChannel::serve(const UhidEvent &event) {
    switch (event.kind) {
    case UhidEvent::Kind::opened:
        opened();
        break;
    case UhidEvent::Kind::closed:
    case UhidEvent::Kind::stopped:
        closed();
        break;
    case UhidEvent::Kind::setReport:
    case UhidEvent::Kind::getReport:
        serveReport(event);
        break;
    case UhidEvent::Kind::started:
    case UhidEvent::Kind::other:
        break;
    }
}

void UhidChannel::opened() {
    if (std::exchange(isOpen_, true))
        return;
    ++peer_.connection;
    handler_.connected(peer_);
    // The kernel has let the client in; whether the handler would cannot be told to anyone.
    const Reply reply = handler_.open(peer_);
    if (reply.then)
        reply.then();
}

void UhidChannel::closed() {
    if (!std::exchange(isOpen_, false))
        return;
    const bool hadInput = !input_.empty();
    input_.clear();
    handler_.closed(peer_);
    handler_.disconnected(peer_);
    if (hadInput)
        handler_.queuesShrank();
}

void UhidChannel::serveReport(const UhidEvent &event) {
    const bool isRead = event.kind == UhidEvent::Kind::getReport;
    const Reply reply = isRead
                            ? handler_.getReport(peer_, event.reportType, event.reportID, UHID_DATA_MAX - 1)
                            : handler_.setReport(peer_, event.reportType, event.reportID, event.report);
    if (!handler_.answersRequests())
        return;
    if (event.request) {
        const Data message = isRead
                                 ? uhidGetReply(*event.request, event.reportID, reply.status, reply.content)
                                 : uhidSetReply(*event.request, reply.status);
        (void)write(message);
    }
    if (reply.then)
        reply.then();
}

// ------------------------------------------------------------------------------------------ To the kernel

size_t UhidChannel::sendInput(std::span<const uint8_t> report) {
    if (!isOpen_)
        return 0;
    if (input_.size() >= queueLimit) {
        if (!std::exchange(droppedInput_, true))
            logLine(LogLevel::error, "Error: " + name_ + ": too much input waits, more is dropped");
        return 0;
    }
    input_.push_back(uhidInputMessage(report));
    if (!pause_)
        sendWaiting();
    return 1;
}

void UhidChannel::sendWaiting() {
    const auto now = Clock::now();
    if (now >= burstEnds_) {
        burstEnds_ = now + burstPause;
        sentInBurst_ = 0;
    }
    for (; !input_.empty() && sentInBurst_ < burstReports; ++sentInBurst_) {
        (void)write(input_.front());
        input_.pop_front();
    }
    pause_.reset();
    if (input_.empty()) {
        droppedInput_ = false;
        return;
    }
    Result<RunLoopSource> pause = runLoop_->addTimer(burstEnds_ - now, RunLoop::Seconds(0), [this] {
        sendWaiting();
        handler_.queuesShrank();
    });
    if (pause.ok())
        pause_ = std::move(*pause);
    else
        logLine(LogLevel::error, "Error: " + name_ + ": input waits for more: " + pause.error().message);
}

bool UhidChannel::write(const Data &message) {
    ssize_t size = 0;
    do {
        size = ::write(device_.get(), message.data(), message.size());
    } while (size < 0 && errno == EINTR);
    if (size >= 0)
        return true;
    if (!std::exchange(refusesWrites_, true))
        logLine(LogLevel::error,
                "Error: " + systemError(name_ + ": the kernel takes nothing", errno).message);
    return false;
}

} // namespace moxel::daemon
