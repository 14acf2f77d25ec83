#include "Moxel Daemon/Kernel/UhidReader.h"

#include "Platform/Linux/Guard.h"
#include "Platform/Linux/SignalBlock.h"

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

Result<void> UhidReader::add(const std::shared_ptr<UhidInbox> &inbox) {
    const int descriptor = inbox->descriptor();
    epoll_event event = eventFor(descriptor, interest);
    const std::lock_guard lock(mutex_);
    inboxes_[descriptor] = inbox;
    if (::epoll_ctl(poll_.get(), EPOLL_CTL_ADD, descriptor, &event) == 0)
        return {};
    const int error = errno;
    inboxes_.erase(descriptor);
    return systemError("Cannot wait for the kernel", error);
}

void UhidReader::goOn(const UhidInbox &inbox) noexcept {
    epoll_event event = eventFor(inbox.descriptor(), interest);
    (void)::epoll_ctl(poll_.get(), EPOLL_CTL_MOD, inbox.descriptor(), &event);
}

void UhidReader::remove(const UhidInbox &inbox) noexcept {
    const std::lock_guard lock(mutex_);
    const auto found = inboxes_.find(inbox.descriptor());
    if (found == inboxes_.end() || found->second.get() != &inbox)
        return;
    (void)::epoll_ctl(poll_.get(), EPOLL_CTL_DEL, inbox.descriptor(), nullptr);
    inboxes_.erase(found);
}

void UhidReader::run() {
    std::array<epoll_event, 16> events{};
    for (;;) {
        const int count = ::epoll_wait(poll_.get(), events.data(), static_cast<int>(events.size()), -1);
        for (int index = 0; index < count; ++index) {
            const int descriptor = events[static_cast<size_t>(index)].data.fd;
            if (descriptor == stop_.get())
                return;
            drain(descriptor);
        }
    }
}

void UhidReader::drain(int descriptor) {
    std::shared_ptr<UhidInbox> inbox;
    {
        const std::lock_guard lock(mutex_);
        const auto found = inboxes_.find(descriptor);
        if (found == inboxes_.end())
            return; // Removed meanwhile.
        inbox = found->second;
    }
    bool mayHaveMore = true; // Also when memory has run out.
    guarded("reading from the kernel", [&] { mayHaveMore = inbox->drain(); });
    if (mayHaveMore)
        goOn(*inbox);
}

} // namespace moxel::daemon
