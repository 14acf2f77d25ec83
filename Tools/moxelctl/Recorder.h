// Takes a session's events on the library's thread, where none is lost, and writes them to a trace.
#pragma once

#include "ClientSession.h"
#include "DevicePreferences.h"
#include "Event.h"
#include "Platform/Thread.h"
#include "TraceFile.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace moxel::tool {

/// Lives on the main thread, whose run loop does the writing; outlives the session that calls its handlers.
class Recorder {
  public:
    explicit Recorder(TraceFile &file) : file_(file), mainThread_(Thread::current()) {}

    /// For a session that this thread begins.
    [[nodiscard]] Handlers handlers();

    /// Ends the trace where it has got to.
    void finish();

    [[nodiscard]] uint64_t count() const noexcept { return count_; }
    /// "12 events: 2 added, 10 motion".
    [[nodiscard]] std::string summary() const;

  private:
    using Clock = std::chrono::steady_clock;

    /// Events that may wait for the main thread.
    static constexpr int waitingLimit = 100'000;

    void take(Event event); // On the library's thread.
    void write(const Event &event);
    void noteDevice(const Event &event);

    TraceFile &file_;
    const std::shared_ptr<Thread> mainThread_;
    const Clock::time_point began_ = Clock::now();
    std::atomic<int> waiting_{0};
    std::atomic<uint64_t> lost_{0};
    DevicePreferences preferences_;
    uint32_t device_ = kMoxelDefaultDeviceID; ///< The current one, when an event last came.
    uint32_t productID_ = 0;                  ///< Of the device that the trace has named; 0 for none.
    uint64_t count_ = 0;
    std::map<std::string, uint64_t> counts_;
};

} // namespace moxel::tool
