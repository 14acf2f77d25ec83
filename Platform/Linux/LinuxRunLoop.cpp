#include "LinuxRunLoop.h"

#include "Platform/Linux/Descriptor.h"
#include "Platform/Linux/Guard.h"
#include "Platform/Log.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <unistd.h>
#include <utility>

namespace moxel {

namespace {

constexpr uint64_t forever = UINT64_MAX;
/// Sources that one dispatch() runs at most, so that work which posts more work cannot hold the caller.
constexpr int sourcesPerDispatch = 256;
/// For so long, or for the time it may wait, a dispatch() begins what is due: a handler may take seconds.
constexpr std::chrono::milliseconds dispatchTime{100};

/// Not-a-number counts as 0.
double bounded(RunLoop::Seconds seconds) {
    return seconds.count() > 0 ? std::min(seconds.count(), 1e9) : 0.0;
}

timespec toTimespec(RunLoop::Seconds seconds) {
    const double limited = bounded(seconds);
    const double whole = std::floor(limited);
    return {static_cast<time_t>(whole), static_cast<long>((limited - whole) * 1e9)};
}

uint64_t toMicroseconds(RunLoop::Seconds seconds) {
    return static_cast<uint64_t>(std::ceil(bounded(seconds) * 1e6));
}

} // namespace

// ------------------------------------------------------------------------------------------ Sources

/// What sd-event calls back. Counted, because a source may be destroyed inside its own callback.
class RunLoopSource::Implementation {
  public:
    struct Target {
        RunLoop::DescriptorCallback callback;
        std::shared_ptr<int> ran;
        bool alive = true;
    };

    Implementation() = default;
    Implementation(const Implementation &) = delete;
    Implementation &operator=(const Implementation &) = delete;
    ~Implementation() {
        if (target)
            target->alive = false;
        sd_event_source_disable_unref(source);
        delete reference;
        if (timer >= 0)
            ::close(timer);
    }

    static int isReady(sd_event_source *, int, uint32_t events, void *context) noexcept {
        const std::shared_ptr<Target> target = *static_cast<std::shared_ptr<Target> *>(context);
        if (!target->alive)
            return 0;
        ++*target->ran;
        RunLoop::Readiness readiness;
        readiness.readable = (events & EPOLLIN) != 0;
        readiness.writable = (events & EPOLLOUT) != 0;
        readiness.hangUp = (events & (EPOLLHUP | EPOLLERR)) != 0;
        guarded("a run-loop source", [&] { target->callback(readiness); });
        return 0;
    }

    sd_event_source *source = nullptr;
    std::shared_ptr<Target> target;
    std::shared_ptr<Target> *reference = nullptr; ///< What sd-event holds.
    int timer = -1;
};

RunLoopSource::RunLoopSource() noexcept = default;
RunLoopSource::RunLoopSource(std::unique_ptr<Implementation> implementation) noexcept
    : implementation_(std::move(implementation)) {}
RunLoopSource::~RunLoopSource() = default;
RunLoopSource::RunLoopSource(RunLoopSource &&) noexcept = default;
RunLoopSource &RunLoopSource::operator=(RunLoopSource &&) noexcept = default;
void RunLoopSource::reset() noexcept { implementation_.reset(); }

// ------------------------------------------------------------------------------------------ Life

LinuxRunLoop::LinuxRunLoop(std::shared_ptr<WorkQueue> queue) : queue_(std::move(queue)) {}

LinuxRunLoop::~LinuxRunLoop() { detach(); }

Result<std::shared_ptr<LinuxRunLoop>> LinuxRunLoop::create(std::shared_ptr<WorkQueue> queue) {
    auto loop = std::make_shared<LinuxRunLoop>(std::move(queue));
    if (const int result = sd_event_default(&loop->event_); result < 0)
        return systemError("Cannot make a run loop", -result);
    const int wake = loop->queue_->wakeDescriptor();
    if (wake < 0)
        return systemError("Cannot make a run loop's wake descriptor", errno);
    if (const int result =
            sd_event_add_io(loop->event_, &loop->postedWork_, wake, EPOLLIN, postedWorkIsReady, loop.get());
        result < 0)
        return systemError("Cannot watch a run loop's wake descriptor", -result);
    return loop;
}

void LinuxRunLoop::detach() noexcept {
    delayed_.clear();
    postedWork_ = sd_event_source_disable_unref(postedWork_);
    event_ = sd_event_unref(event_);
}

// ------------------------------------------------------------------------------------------ Running

int LinuxRunLoop::postedWorkIsReady(sd_event_source *, int, uint32_t, void *context) noexcept {
    auto *loop = static_cast<LinuxRunLoop *>(context);
    const std::shared_ptr<int> ran = loop->ran_;
    loop->turnIsOurs_ = true; // Set first: the work may end the loop.
    *ran += loop->queue_->runPosted(loop->beginsUntil());
    return 0;
}

int LinuxRunLoop::runOnce(uint64_t timeoutMicroseconds) noexcept {
    return event_ ? sd_event_run(event_, timeoutMicroseconds) : -ESHUTDOWN;
}

void LinuxRunLoop::run() {
    while (!takeStop()) {
        if (const int result = runOnce(forever); result < 0) {
            logLine(LogLevel::error, systemError("Error: the run loop failed", -result).message);
            return;
        }
    }
}

bool LinuxRunLoop::runOneSource(Seconds limit) {
    const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(Seconds(bounded(limit)));
    const int before = *ran_;
    while (!takeStop()) {
        const Seconds left = std::max(Seconds(0), Seconds(deadline - Clock::now()));
        const int result = runOnce(toMicroseconds(left));
        if (*ran_ != before)
            return true;
        if (result <= 0)
            return false;
    }
    return false;
}

void LinuxRunLoop::stop() noexcept {
    stopped_.store(true);
    queue_->wake();
}

int LinuxRunLoop::descriptor() const noexcept { return event_ ? sd_event_get_fd(event_) : -1; }

int LinuxRunLoop::dispatch(int timeoutMilliseconds) noexcept {
    const auto deadline = Clock::now() + std::chrono::milliseconds(std::max(timeoutMilliseconds, 0));
    const auto outer = std::exchange(dispatch_, Dispatch{deadline, std::nullopt});
    const int result = runWhatIsDue(timeoutMilliseconds);
    dispatch_ = outer;
    return result;
}

int LinuxRunLoop::runWhatIsDue(int timeoutMilliseconds) noexcept {
    const auto timeLeft = [&] {
        return timeoutMilliseconds < 0
                   ? forever
                   : toMicroseconds(std::max(Seconds(0), Seconds(dispatch_->deadline - Clock::now())));
    };
    const int before = *ran_;
    int foreign = 0; // Sources of the application on the same sd-event loop.
    for (int round = 0; round < sourcesPerDispatch; ++round) {
        const int counted = *ran_;
        const bool hasRun = counted - before + foreign > 0; // A wake-up without work does not end the wait.
        if (hasRun && Clock::now() >= beginsUntil())
            break;
        turnIsOurs_ = false;
        const int result = runOnce(hasRun ? 0 : timeLeft());
        if (result < 0)
            return *ran_ - before + foreign > 0 ? *ran_ - before + foreign : result;
        if (result == 0)
            break;
        foreign += *ran_ == counted && !turnIsOurs_ ? 1 : 0;
    }
    return *ran_ - before + foreign;
}

LinuxRunLoop::Clock::time_point LinuxRunLoop::beginsUntil() noexcept {
    if (!dispatch_)
        return Clock::time_point::max();
    if (!dispatch_->beginsUntil)
        dispatch_->beginsUntil = std::max(dispatch_->deadline, Clock::now() + dispatchTime);
    return *dispatch_->beginsUntil;
}

// ------------------------------------------------------------------------------------------ Adding sources

Result<RunLoopSource> LinuxRunLoop::watchDescriptor(int descriptor, Descriptor interest,
                                                    DescriptorCallback callback) {
    if (!event_)
        return Error{"The run loop's thread has ended", ESHUTDOWN};
    auto implementation = std::make_unique<RunLoopSource::Implementation>();
    implementation->target = std::make_shared<RunLoopSource::Implementation::Target>();
    implementation->target->callback = std::move(callback);
    implementation->target->ran = ran_;
    implementation->reference = new std::shared_ptr(implementation->target);
    const uint32_t events = interest == Descriptor::readable ? EPOLLIN : EPOLLOUT;
    if (const int result = sd_event_add_io(event_, &implementation->source, descriptor, events,
                                           RunLoopSource::Implementation::isReady, implementation->reference);
        result < 0)
        return systemError("Cannot watch a descriptor", -result);
    return RunLoopSource(std::move(implementation));
}

void LinuxRunLoop::setInterest(RunLoopSource &source, bool readable, bool writable) {
    if (source.implementation_)
        sd_event_source_set_io_events(source.implementation_->source,
                                      (readable ? EPOLLIN : 0U) | (writable ? EPOLLOUT : 0U));
}

Result<RunLoopSource> LinuxRunLoop::addTimer(Seconds delay, Seconds interval, Callback callback) {
    // A timer is a descriptor of its own rather than an sd-event timer, because those are armed only while
    // sd-event runs: a caller that polls the loop's descriptor would miss them.
    moxel::Descriptor timer(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
    if (!timer)
        return systemError("Cannot make a timer", errno);
    itimerspec times{};
    times.it_value = toTimespec(delay);
    times.it_interval = toTimespec(interval);
    if (times.it_value.tv_sec == 0 && times.it_value.tv_nsec == 0)
        times.it_value.tv_nsec = 1; // Zero would disarm it.
    auto expired = [descriptor = timer.get(), callback = std::move(callback)](Readiness) {
        uint64_t expirations;
        if (::read(descriptor, &expirations, sizeof expirations) == sizeof expirations)
            callback();
    };
    Result<RunLoopSource> source = watchDescriptor(timer.get(), Descriptor::readable, std::move(expired));
    if (source.ok() && ::timerfd_settime(timer.get(), 0, &times, nullptr) < 0)
        return systemError("Cannot set a timer", errno);
    if (source.ok())
        source->implementation_->timer = timer.release();
    return source;
}

Result<void> LinuxRunLoop::performAfterDelay(Seconds delay, Callback callback) {
    const auto position = delayed_.emplace(delayed_.end());
    auto perform = [this, position, callback = std::move(callback)] {
        const RunLoopSource finished = std::move(*position);
        delayed_.erase(position);
        callback();
    };
    Result<RunLoopSource> timer = addTimer(delay, Seconds(0), std::move(perform));
    if (!timer.ok()) {
        delayed_.erase(position);
        return timer.error();
    }
    *position = std::move(*timer);
    return {};
}

} // namespace moxel
