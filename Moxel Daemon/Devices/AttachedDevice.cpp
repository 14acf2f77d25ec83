#include "Moxel Daemon/Devices/AttachedDevice.h"

#include "Platform/Log.h"

#include <algorithm>
#include <utility>

namespace moxel::daemon {

namespace {

using Clock = std::chrono::steady_clock;

/// Events read before the run loop's other sources get their turn.
constexpr int eventsPerTurn = 256;

} // namespace

AttachedDevice::AttachedDevice(RunLoop &runLoop, std::unique_ptr<InputReader> reader, AxisSettings settings,
                               Listener &listener)
    : runLoop_(runLoop),
      reader_(std::move(reader)),
      axes_(reader_->description().capabilities, reader_->description().ranges, settings),
      buttons_(reader_->description().capabilities, reader_->description().pressed),
      listener_(listener) {}

Result<void> AttachedDevice::start() {
    Result<RunLoopSource> events =
        runLoop_.watchDescriptor(reader_->descriptor(), RunLoop::Descriptor::readable,
                                 [this](RunLoop::Readiness readiness) { read(readiness); });
    if (!events.ok())
        return events.error();
    events_ = std::move(*events);
    return {};
}

void AttachedDevice::read(RunLoop::Readiness readiness) {
    for (int taken = 0; taken < eventsPerTurn; ++taken) {
        input_event event{};
        const InputReader::Outcome outcome = reader_->next(event);
        if (outcome == InputReader::Outcome::event) {
            take(event);
            continue;
        }
        // A descriptor that has hung up stays ready for ever.
        if (outcome == InputReader::Outcome::gone || readiness.hangUp) {
            events_.reset();
            nextTurn_.reset();
            restTimer_.reset();
            listener_.deviceIsGone(*this); // The end of this object.
        }
        return;
    }
    if (reader_->hasMore())
        readOn();
}

/// The rest need not make the descriptor ready.
void AttachedDevice::readOn() {
    Result<RunLoopSource> turn = runLoop_.addTimer(RunLoop::Seconds(0), RunLoop::Seconds(0), [this] {
        nextTurn_.reset();
        read({});
    });
    if (turn.ok())
        nextTurn_ = std::move(*turn);
    else
        logLine(LogLevel::error, "Error: events wait for the next one: " + turn.error().message);
}

void AttachedDevice::take(const input_event &event) {
    if (event.type != EV_SYN) {
        axes_.take(event);
        buttons_.take(event);
    } else if (event.code == SYN_REPORT) {
        endReport();
    } else if (event.code == SYN_DROPPED) {
        axes_.eventsWereLost();
    }
}

/// Clients under load may lose a motion that waits together with buttons, but never the last of what waits.
/// So the motion comes last.
void AttachedDevice::endReport() {
    if (buttons_.endReport())
        listener_.buttonsChanged(*this);
    if (axes_.endReport(Clock::now()))
        listener_.axesMoved(*this);
    if (!restTimer_)
        awaitRest();
}

void AttachedDevice::awaitRest() {
    const std::optional<AxisMapping::Time> due = axes_.restDue();
    if (!due)
        return;
    const RunLoop::Seconds delay = *due - Clock::now();
    Result<RunLoopSource> timer =
        runLoop_.addTimer(std::max(delay, RunLoop::Seconds(0)), RunLoop::Seconds(0), [this] {
            restTimer_.reset();
            rest(Clock::now());
            awaitRest();
        });
    if (timer.ok()) {
        restTimer_ = std::move(*timer);
        return;
    }
    logLine(LogLevel::error, "Error: axes are at rest at once: " + timer.error().message);
    rest(AxisMapping::Time::max());
}

void AttachedDevice::rest(AxisMapping::Time now) {
    if (axes_.restSilentAxes(now))
        listener_.axesMoved(*this);
}

} // namespace moxel::daemon
