#include "Platform/Linux/Alarm.h"

#include <cerrno>
#include <cstdint>
#include <sys/timerfd.h>
#include <utility>

namespace moxel {

Alarm::Alarm(Descriptor timer) noexcept : timer_(std::move(timer)) {}

Result<Alarm> Alarm::create(RunLoop &runLoop, RunLoop::Callback callback) {
    Alarm alarm(Descriptor(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)));
    if (!alarm.timer_)
        return systemError("Cannot make a timer", errno);
    alarm.due_ = std::make_shared<std::optional<Clock::time_point>>();
    auto rang = [timer = alarm.timer_.get(), due = alarm.due_,
                 callback = std::move(callback)](RunLoop::Readiness) {
        uint64_t expirations = 0;
        if (::read(timer, &expirations, sizeof expirations) != sizeof expirations)
            return;
        due->reset();
        callback();
    };
    Result<RunLoopSource> source =
        runLoop.watchDescriptor(alarm.timer_.get(), RunLoop::Descriptor::readable, std::move(rang));
    if (!source.ok())
        return source.error();
    alarm.source_ = *std::move(source);
    return alarm;
}

void Alarm::ringBy(Clock::time_point time) noexcept {
    if (*due_ && **due_ <= time)
        return;
    *due_ = time;
    const auto sinceEpoch = std::chrono::nanoseconds(time.time_since_epoch()).count();
    constexpr int64_t second = 1'000'000'000;
    itimerspec times{};
    times.it_value.tv_sec = static_cast<time_t>(sinceEpoch / second);
    times.it_value.tv_nsec = static_cast<long>(sinceEpoch % second);
    ::timerfd_settime(timer_.get(), TFD_TIMER_ABSTIME, &times, nullptr);
}

} // namespace moxel
