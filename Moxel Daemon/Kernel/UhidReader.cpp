#include "Moxel Daemon/Kernel/UhidReader.h"

#include "Platform/Linux/SignalBlock.h"
#include "Platform/Log.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <utility>

namespace moxel::daemon {

namespace {

/// Told of once; then the descriptor waits until it is asked for again, so that a full inbox costs no time.
constexpr uint32_t interest = EPOLLIN | EPOLLONESHOT;

epoll_event eventFor(int descriptor, uint32_t events) {
    epoll_event event{};
    event.events = events;
    event.data.fd = descriptor;
    return event;
}

} // namespace

Result<std::shared_ptr<UhidReader>> UhidReader::start() {
    Descriptor poll(::epoll_create1(EPOLL_CLOEXEC));
    Descriptor stop(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!poll || !stop)
        return systemError("Cannot wait for the kernel", errno);
    epoll_event event = eventFor(stop.get(), EPOLLIN);
    if (::epoll_ctl(poll.get(), EPOLL_CTL_ADD, stop.get(), &event) != 0)
        return systemError("Cannot wait for the kernel", errno);
    std::shared_ptr<UhidReader> reader(new UhidReader(std::move(poll), std::move(stop)));
    const SignalBlock block;
    Result<std::shared_ptr<Thread>> thread =
        Thread::start("moxeld-uhid", [self = reader.get()] { self->run(); });
    if (!thread.ok())
        return thread.error();
    reader->thread_ = std::move(*thread);
    return reader;
}

UhidReader::UhidReader(Descriptor poll, Descriptor stop) : poll_(std::move(poll)), stop_(std::move(stop)) {}

UhidReader::~UhidReader() {
    if (!thread_)
        return;
    (void)::eventfd_write(stop_.get(), 1);
    thread_->join();
}

Result<void> UhidReader::add(const std::shared_ptr<Inbox> &inbox) {
    const int descriptor = inbox->descriptor();
    epoll_event event = eventFor(descriptor, interest);
    const std::lock_guard lock(mutex_);
    entries_[descriptor] = {inbox};
    if (::epoll_ctl(poll_.get(), EPOLL_CTL_ADD, descriptor, &event) == 0)
        return {};
    const int error = errno;
    entries_.erase(descriptor);
    return systemError("Cannot wait for the kernel", error);
}

void UhidReader::goOn(const Inbox &inbox) noexcept {
    epoll_event event = eventFor(inbox.descriptor(), interest);
    (void)::epoll_ctl(poll_.get(), EPOLL_CTL_MOD, inbox.descriptor(), &event);
}

void UhidReader::remove(const Inbox &inbox) noexcept {
    const std::lock_guard lock(mutex_);
    const auto found = entries_.find(inbox.descriptor());
    if (found == entries_.end() || found->second.inbox.get() != &inbox)
        return;
    (void)::epoll_ctl(poll_.get(), EPOLL_CTL_DEL, inbox.descriptor(), nullptr);
    entries_.erase(found);
}

// ------------------------------------------------------------------------------------------ Reading

void UhidReader::run() {
    std::array<epoll_event, 16> events{};
    for (;;) {
        const int count =
            ::epoll_wait(poll_.get(), events.data(), static_cast<int>(events.size()), pauseLeft());
        for (int index = 0; index < count; ++index) {
            const int descriptor = events[static_cast<size_t>(index)].data.fd;
            if (descriptor == stop_.get())
                return;
            drain(descriptor);
        }
        drainAfterPause();
    }
}

void UhidReader::drain(int descriptor) noexcept {
    std::shared_ptr<Inbox> inbox;
    {
        const std::lock_guard lock(mutex_);
        const auto found = entries_.find(descriptor);
        if (found == entries_.end())
            return; // Removed meanwhile.
        inbox = found->second.inbox;
    }
    try {
        const bool mayHaveMore = inbox->drain();
        noteShortage(descriptor, false);
        if (mayHaveMore)
            goOn(*inbox);
    } catch (...) {
        noteShortage(descriptor, true);
    }
}

// ------------------------------------------------------------------------------------------ Shortage

/// Without memory of its own. Asked again at once, who lacks memory would keep the processor and the log
/// busy.
void UhidReader::noteShortage(int descriptor, bool lacksMemory) noexcept {
    const bool isFirst = nextLackingMemory(-1) < 0;
    if (lacksMemory && !pauseEnds_)
        pauseEnds_ = Clock::now() + shortagePause;
    {
        const std::lock_guard lock(mutex_);
        if (const auto found = entries_.find(descriptor); found != entries_.end())
            found->second.lacksMemory = lacksMemory;
    }
    if (lacksMemory && isFirst)
        logLine(LogLevel::error,
                "Error: what the kernel tells of its devices waits: there is no memory for it");
}

/// In milliseconds, as epoll_wait() wants it.
int UhidReader::pauseLeft() const noexcept {
    if (!pauseEnds_)
        return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*pauseEnds_ - Clock::now()).count();
    return static_cast<int>(std::max<decltype(left)>(left, 0));
}

void UhidReader::drainAfterPause() noexcept {
    if (!pauseEnds_ || Clock::now() < *pauseEnds_)
        return;
    pauseEnds_.reset();
    for (int descriptor = nextLackingMemory(-1); descriptor >= 0; descriptor = nextLackingMemory(descriptor))
        drain(descriptor);
}

/// The first one behind `descriptor`; negative when there is none.
int UhidReader::nextLackingMemory(int descriptor) noexcept {
    const std::lock_guard lock(mutex_);
    for (auto entry = entries_.upper_bound(descriptor); entry != entries_.end(); ++entry)
        if (entry->second.lacksMemory)
            return entry->first;
    return -1;
}

} // namespace moxel::daemon
