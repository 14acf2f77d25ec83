#include "Moxel Daemon/Motion/TracePlayer.h"

#include <algorithm>
#include <utility>

namespace moxel::daemon {

namespace {

/// Steps played before the run loop's other sources get their turn.
constexpr int stepsPerTurn = 256;

} // namespace

TracePlayer::TracePlayer(RunLoop &runLoop, EventSink &sink, double speed, WhenOver whenOver)
    : runLoop_(runLoop), sink_(sink), speed_(speed > 0 ? speed : 1), whenOver_(std::move(whenOver)) {}

void TracePlayer::append(TraceStep step) {
    queue_.push_back(std::move(step));
    if (isPlaying_ && isStarved_)
        advance();
}

void TracePlayer::end() {
    noMoreComes_ = true;
    if (isPlaying_ && isStarved_)
        advance();
}

void TracePlayer::fail(const std::string &problem) {
    problem_ = problem;
    end();
}

void TracePlayer::start() {
    start_ = std::chrono::steady_clock::now();
    hasStarted_ = true;
    isPlaying_ = true;
    advance();
}

TracePlayer::Time TracePlayer::now() const {
    const std::chrono::duration<double, std::nano> passed = std::chrono::steady_clock::now() - start_;
    return Time(static_cast<Time::rep>(passed.count() * speed_));
}

void TracePlayer::advance() {
    timer_.reset();
    for (int played = 0; played < stepsPerTurn; ++played)
        if (!playNext(now()))
            return;
    // The next one is due as well, but others shall have their turn.
    (void)waitUntil(now());
}

bool TracePlayer::playNext(Time now) {
    if (!isPlaying_)
        return false;
    if (!frames_.empty())
        return playFrame(frames_.back(), now);
    if (!queue_.empty())
        return playQueued(now);
    isStarved_ = true;
    if (noMoreComes_)
        finish();
    return false;
}

bool TracePlayer::playFrame(Frame &frame, Time now) {
    const TraceBlock &block = *frame.block;
    const bool roundIsOver = frame.next == block.steps.size();
    const Time due = frame.origin + (roundIsOver ? block.duration : block.steps[frame.next].at);
    if (due > now)
        return waitUntil(due);
    if (!roundIsOver) {
        const std::shared_ptr<const TraceBlock> keptBlock = frame.block; // Playing may add a frame.
        const size_t index = frame.next++;
        play(keptBlock->steps[index], due);
        return true;
    }
    if (frame.remaining == 1) {
        frames_.pop_back();
        return true;
    }
    frame.remaining -= frame.remaining == 0 ? 0 : 1;
    frame.origin = due;
    frame.next = 0;
    return true;
}

bool TracePlayer::playQueued(Time now) {
    if (isStarved_)
        lateness_ = std::max(lateness_, now - queue_.front().at);
    isStarved_ = false;
    const Time due = queue_.front().at + lateness_;
    if (due > now)
        return waitUntil(due);
    const TraceStep step = std::move(queue_.front());
    queue_.pop_front();
    if (whenTaken_)
        whenTaken_();
    play(step, due);
    return true;
}

void TracePlayer::play(const TraceStep &step, Time due) {
    if (const auto *repeat = std::get_if<TraceRepeat>(&step.what))
        frames_.push_back({repeat->block, repeat->count, due, 0});
    else
        sink_.happen(std::get<TraceEvent>(step.what));
}

/// Comes back when it is time; false, because there is nothing to play before.
bool TracePlayer::waitUntil(Time due) {
    const std::chrono::duration<double, std::nano> delay = due - now();
    Result<RunLoopSource> timer =
        runLoop_.addTimer(std::max(RunLoop::Seconds(0), RunLoop::Seconds(delay / speed_)),
                          RunLoop::Seconds(0), [this] { advance(); });
    if (timer.ok()) {
        timer_ = std::move(*timer);
    } else {
        problem_ = timer.error().message;
        finish();
    }
    return false;
}

void TracePlayer::finish() {
    isPlaying_ = false;
    if (whenOver_)
        whenOver_(problem_);
}

} // namespace moxel::daemon
