// The process's D-Bus connection to the bus of the user's session.
#pragma once

#include "Platform/Result.h"

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <systemd/sd-bus.h>

namespace moxel {

/// A signal with two text arguments.
struct BusSignal {
    std::string path;
    std::string interface;
    std::string member;
    std::string first;
    std::string second;
};

/// Connects when it first sends, keeps the connection, and makes a new one when the bus has gone meanwhile.
/// Any thread.
class SessionBus {
  public:
    /// Returns when the bus's socket has taken the signal. Takes at most `limit`, waiting for other senders
    /// included; a connection that does not take the signal in that time is given up, signal and all. EILSEQ
    /// stands for arguments that are not text to the bus.
    Result<void> emit(const BusSignal &signal, std::chrono::milliseconds limit);

  private:
    using Deadline = std::chrono::steady_clock::time_point;
    struct Closer {
        void operator()(sd_bus *bus) const { sd_bus_close_unref(bus); }
    };

    // These are for the thread that has the turn. Negative errno values are errors.
    int emitOnOneConnection(const BusSignal &signal, Deadline deadline);
    int connect();
    int send(const BusSignal &signal);
    int flush(Deadline deadline);

    std::mutex mutex_;
    std::condition_variable turnEnds_;
    bool busy_ = false;                   // guarded by mutex_
    std::unique_ptr<sd_bus, Closer> bus_; // of the thread that has the turn
};

} // namespace moxel
