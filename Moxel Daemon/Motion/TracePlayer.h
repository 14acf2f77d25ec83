// Plays a trace in its time.
#pragma once

#include "Moxel Daemon/Motion/EventSink.h"
#include "Moxel Daemon/Motion/Trace.h"
#include "Platform/RunLoop.h"

#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace moxel::daemon {

/// Steps are queued with append(), before or while the trace plays; end() tells that no more will come. Times
/// count from start(). A step that is late because it was queued late, which happens with traces that are
/// written while they play, moves all later ones.
///
/// Lives on the run loop's thread.
class TracePlayer {
  public:
    /// Called once, when the last step has been played; `problem` is empty unless the trace cannot go on.
    using WhenOver = std::function<void(const std::string &problem)>;

    /// `speed`: 2 plays twice as fast.
    TracePlayer(RunLoop &runLoop, EventSink &sink, double speed, WhenOver whenOver);

    void append(TraceStep step);
    void end();
    /// Like end(), but the trace is not whole.
    void fail(const std::string &problem);
    void start();
    [[nodiscard]] bool hasStarted() const noexcept { return hasStarted_; }

    /// Called whenever a queued step has been taken up.
    void setWhenTaken(std::function<void()> whenTaken) { whenTaken_ = std::move(whenTaken); }
    [[nodiscard]] size_t queuedSteps() const noexcept { return queue_.size(); }

  private:
    using Time = std::chrono::nanoseconds; ///< Since start(), in the trace's own speed.

    struct Frame {
        std::shared_ptr<const TraceBlock> block;
        uint32_t remaining = 1; ///< Rounds to go, this one included; 0 for ever.
        Time origin{0};         ///< When the round began.
        size_t next = 0;
    };

    void advance();
    /// Plays what is due first; false when it is not due yet, or there is nothing.
    [[nodiscard]] bool playNext(Time now);
    [[nodiscard]] bool playFrame(Frame &frame, Time now);
    [[nodiscard]] bool playQueued(Time now);
    void play(const TraceStep &step, Time due);
    [[nodiscard]] bool waitUntil(Time due);
    [[nodiscard]] Time now() const;
    void finish();

    RunLoop &runLoop_;
    EventSink &sink_;
    double speed_;
    WhenOver whenOver_;
    std::function<void()> whenTaken_;
    std::chrono::steady_clock::time_point start_;
    bool hasStarted_ = false;
    bool isPlaying_ = false;
    bool isStarved_ = false; ///< Waits for steps to be queued.
    bool noMoreComes_ = false;
    std::string problem_;
    Time lateness_{0};
    std::deque<TraceStep> queue_;
    std::vector<Frame> frames_; ///< Repeats under way, the outermost first.
    RunLoopSource timer_;
};

} // namespace moxel::daemon
