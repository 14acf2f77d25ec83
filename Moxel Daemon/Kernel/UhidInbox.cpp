#include "Moxel Daemon/Kernel/UhidInbox.h"

#include <cerrno>
#include <linux/uhid.h>
#include <poll.h>
#include <unistd.h>
#include <utility>

namespace moxel::daemon {

UhidInbox::UhidInbox(int descriptor, Listener &listener)
    : descriptor_(descriptor), thread_(Thread::current()), listener_(&listener) {}

void UhidInbox::close() {
    listener_ = nullptr;
    const std::lock_guard lock(mutex_);
    isClosed_ = true;
    messages_.clear();
}

// ------------------------------------------------------------------------------------------ Taking in

bool UhidInbox::drain() {
    for (;;) {
        const Intake intake = takeIn();
        if (intake != Intake::nothing && intake != Intake::interruption)
            post();
        if (intake == Intake::end || intake == Intake::noRoom)
            return false;
        if (intake == Intake::nothing)
            return true;
    }
}

/// Locked for one message at a time, so that the daemon's thread never waits for a flood.
UhidInbox::Intake UhidInbox::takeIn() {
    const std::lock_guard lock(mutex_);
    if (isClosed_ || hasEnded_)
        return Intake::end;
    if (messages_.size() >= limit) {
        isFull_ = true;
        pollfd waiting{descriptor_, POLLIN, 0};
        hasOverflowed_ = hasOverflowed_ || ::poll(&waiting, 1, 0) > 0;
        return Intake::noRoom;
    }
    // The room comes first: for want of it later, what has been read would be lost.
    Data &message = messages_.emplace_back(sizeof(uhid_event));
    const ssize_t size = ::read(descriptor_, message.data(), message.size());
    const int error = errno;
    if (size > 0) {
        message.resize(static_cast<size_t>(size));
        message.shrink_to_fit();
        return Intake::message;
    }
    messages_.pop_back();
    if (size < 0 && error == EINTR)
        return Intake::interruption;
    if (size < 0 && error == EAGAIN)
        return Intake::nothing;
    hasEnded_ = true;
    return Intake::end;
}

// ------------------------------------------------------------------------------------------ Serving

void UhidInbox::post() noexcept {
    {
        const std::lock_guard lock(mutex_);
        if (isClosed_ || posted_)
            return;
        posted_ = shared_from_this();
    }
    (void)thread_->post(*this);
}

void UhidInbox::discard() noexcept {
    std::shared_ptr<UhidInbox> self;
    const std::lock_guard lock(mutex_);
    self.swap(posted_);
}

void UhidInbox::run() {
    /// Whatever happens meanwhile, the rest is served later.
    struct Rest {
        ~Rest() {
            const bool waits = [this] {
                const std::lock_guard lock(inbox->mutex_);
                return !inbox->messages_.empty();
            }();
            if (waits)
                inbox->post();
        }
        std::shared_ptr<UhidInbox> inbox;
    } rest;
    {
        const std::lock_guard lock(mutex_);
        rest.inbox = std::move(posted_);
    }
    serve();
}

void UhidInbox::serve() {
    for (size_t served = 0; served < servedPerTurn && listener_ != nullptr; ++served) {
        const std::optional<Data> message = next();
        if (!message)
            break;
        listener_->received(*message);
    }
    if (listener_ != nullptr)
        serveEnd();
}

void UhidInbox::serveEnd() {
    bool overflowed = false;
    bool hasRoom = false;
    bool ended = false;
    {
        const std::lock_guard lock(mutex_);
        overflowed = std::exchange(hasOverflowed_, false);
        hasRoom = isFull_ && messages_.size() <= limit / 2;
        isFull_ = isFull_ && !hasRoom;
        ended = hasEnded_ && messages_.empty();
    }
    if (overflowed)
        listener_->overflowed();
    if (hasRoom)
        listener_->hasRoom();
    if (ended && !std::exchange(hasToldEnd_, true))
        listener_->ended();
}

std::optional<Data> UhidInbox::next() {
    const std::lock_guard lock(mutex_);
    if (messages_.empty())
        return std::nullopt;
    std::optional<Data> message(std::move(messages_.front()));
    messages_.pop_front();
    return message;
}

} // namespace moxel::daemon
