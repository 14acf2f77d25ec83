#include "Moxel Daemon/Kernel/UhidChannel.h"

#include "Moxel Daemon/Bus/BusFolder.h"
#include "Platform/Log.h"
#include "Platform/Thread.h"

#include <atomic>
#include <cerrno>
#include <unistd.h>
#include <utility>

namespace moxel::daemon {

namespace {

/// Unique in the process, and so for the publisher.
uint64_t newConnection() {
    static std::atomic<uint64_t> last{0};
    return ++last;
}

} // namespace

UhidChannel::UhidChannel(std::shared_ptr<RunLoop> runLoop, std::shared_ptr<UhidReader> reader,
                         std::shared_ptr<UhidClosings> closings, std::shared_ptr<const UhidMaker> maker,
                         std::string name, ChannelHandler &handler)
    : runLoop_(std::move(runLoop)),
      reader_(std::move(reader)),
      closings_(std::move(closings)),
      maker_(std::move(maker)),
      name_(std::move(name)),
      handler_(handler) {}

UhidChannel::~UhidChannel() {
    if (waitsForName_)
        closings_->forget(name_);
    if (inbox_) {
        inbox_->close();
        reader_->remove(*inbox_);
    }
    if (device_)
        closings_->close(std::move(device_), name_);
}

// ------------------------------------------------------------------------------------------ The beginning

Result<void> UhidChannel::start(const Data &createMessage) {
    const auto begin = [this, alive = std::weak_ptr(isAlive_), createMessage] {
        if (alive.expired())
            return;
        waitsForName_ = false;
        if (Result<void> made = makeDevice(createMessage); !made.ok())
            logLine(LogLevel::error, "Error: " + made.error().message);
    };
    switch (closings_->await(name_, [thread = Thread::current(), begin] { thread->perform(begin); })) {
    case UhidClosings::Name::isFree:
        return makeDevice(createMessage);
    case UhidClosings::Name::isComing:
        waitsForName_ = true;
        return {};
    case UhidClosings::Name::isPromised:
        break;
    }
    return Error{name_ + " is on its way already", BusFolder::alreadyPublished};
}

Result<void> UhidChannel::makeDevice(const Data &createMessage) {
    Result<Descriptor> device = maker_->make(name_, createMessage);
    if (!device.ok())
        return device.error();
    device_ = *std::move(device);
    Result<RunLoopSource> timer = runLoop_->addTimer(driverPatience, RunLoop::Seconds(0), [this] {
        logLine(LogLevel::error, "Error: " + name_ +
                                     ": the kernel has no driver for the device, so that no client sees it; "
                                     "\"modprobe hid-generic\" loads one");
        driverTimer_.reset();
    });
    if (!timer.ok())
        return timer.error();
    driverTimer_ = std::move(*timer);
    UhidInbox::Listener &listener = *this;
    inbox_ = std::make_shared<UhidInbox>(device_.get(), listener);
    return reader_->add(inbox_);
}

// ------------------------------------------------------------------------------------------ From the kernel

void UhidChannel::received(std::span<const uint8_t> message) {
    if (const std::optional<UhidEvent> event = parseUhidEvent(message))
        serve(*event);
    else
        senseless_.log("Error: " + name_ + ": a message of the kernel makes no sense");
}

void UhidChannel::overflowed() {
    overflow_.log("Error: " + name_ +
                  ": clients send faster than they are served; what the kernel cannot keep is lost");
}

void UhidChannel::ended() {
    driverTimer_.reset();
    logLine(LogLevel::error, "Error: " + name_ + ": the kernel does not serve the device any more");
}

void UhidChannel::serve(const UhidEvent &event) {
    switch (event.kind) {
    case UhidEvent::Kind::opened:
        opened();
        break;
    case UhidEvent::Kind::closed:
        closed();
        break;
    case UhidEvent::Kind::stopped:
        closed();
        stopped();
        break;
    case UhidEvent::Kind::setReport:
    case UhidEvent::Kind::getReport:
        serveReport(event);
        break;
    case UhidEvent::Kind::started:
        driverTimer_.reset();
        break;
    case UhidEvent::Kind::other:
        break;
    }
}

/// It starts and stops at once when no node is left for it.
void UhidChannel::stopped() {
    logLine(LogLevel::error, "Error: " + name_ +
                                 ": the kernel's driver has left the device, so that no client sees it; the "
                                 "machine has 64 hidraw nodes, which may all be taken");
}

void UhidChannel::opened() {
    if (std::exchange(isOpen_, true))
        return;
    if (!std::exchange(hasBeenOpen_, true))
        settle();
    peer_.connection = newConnection();
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

/// The next burst has its place after a while.
void UhidChannel::settle() {
    burstEnds_ = Clock::now() + settlingTime;
    sentInBurst_ = burstReports;
}

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
