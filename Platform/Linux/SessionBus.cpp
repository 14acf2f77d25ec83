// A session-bus connection over sd-bus that never waits without limit.
#include "Platform/Linux/SessionBus.h"

#include "Platform/Linux/Deadline.h"

#include <cerrno>

namespace moxel {

namespace {

// Errors that a new connection may cure: the bus went away, or the process forked.
bool isLostConnection(int error) {
    return error == -ECONNRESET || error == -ENOTCONN || error == -EPIPE || error == -ESHUTDOWN ||
           error == -ECHILD;
}

} // namespace

Result<void> SessionBus::emit(const BusSignal &signal, std::chrono::milliseconds limit) {
    const Deadline deadline = std::chrono::steady_clock::now() + limit;
    std::unique_lock lock(mutex_);
    if (!turnEnds_.wait_until(lock, deadline, [this] { return !busy_; }))
        return systemError("Cannot reach the session bus", ETIMEDOUT);
    busy_ = true;
    lock.unlock();

    const bool connected = bus_ != nullptr;
    int result = emitOnOneConnection(signal, deadline);
    if (connected && isLostConnection(result))
        result = emitOnOneConnection(signal, deadline);

    lock.lock();
    busy_ = false;
    lock.unlock();
    turnEnds_.notify_one();
    if (result < 0)
        return systemError("Cannot send on the session bus", -result);
    return {};
}

int SessionBus::emitOnOneConnection(const BusSignal &signal, Deadline deadline) {
    int result = connect();
    if (result >= 0)
        result = send(signal);
    if (result >= 0)
        result = flush(deadline);
    if (result < 0 && result != -EILSEQ)
        bus_.reset();
    return result;
}

int SessionBus::connect() {
    if (bus_)
        return 0;
    sd_bus *opened = nullptr;
    const int result = sd_bus_open_user(&opened);
    if (result >= 0)
        bus_.reset(opened);
    return result;
}

int SessionBus::send(const BusSignal &signal) {
    sd_bus_message *made = nullptr;
    int result = sd_bus_message_new_signal(bus_.get(), &made, signal.path.c_str(), signal.interface.c_str(),
                                           signal.member.c_str());
    const std::unique_ptr<sd_bus_message, decltype(&sd_bus_message_unref)> message(made,
                                                                                   &sd_bus_message_unref);
    if (result >= 0 &&
        sd_bus_message_append(message.get(), "ss", signal.first.c_str(), signal.second.c_str()) < 0)
        result = -EILSEQ;
    if (result >= 0)
        result = sd_bus_send(bus_.get(), message.get(), nullptr);
    return result;
}

// sd_bus_flush() would wait for ever.
int SessionBus::flush(Deadline deadline) {
    for (;;) {
        int result = 0;
        do {
            result = sd_bus_process(bus_.get(), nullptr);
        } while (result > 0 && microsecondsUntil(deadline) > 0);
        if (result < 0)
            return result;

        uint64_t unsent = 0;
        result = sd_bus_get_n_queued_write(bus_.get(), &unsent);
        if (result < 0)
            return result;
        if (sd_bus_is_ready(bus_.get()) > 0 && unsent == 0)
            return 0;
        if (sd_bus_is_open(bus_.get()) <= 0)
            return -ECONNRESET;

        const uint64_t left = microsecondsUntil(deadline);
        if (left == 0)
            return -ETIMEDOUT;
        result = sd_bus_wait(bus_.get(), left);
        if (result < 0 && result != -EINTR)
            return result;
    }
}

} // namespace moxel
