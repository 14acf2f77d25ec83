#include "Platform/Linux/BlockingCalls.h"

#include "Platform/Linux/SignalBlock.h"
#include "Platform/Thread.h"

#include <cerrno>
#include <utility>

namespace moxel {

Result<void> BlockingCalls::make(std::function<void()> call, Clock::time_point deadline) {
    const auto tooLate = [] { return systemError("A call to the kernel", ETIMEDOUT); };
    std::unique_lock lock(line_->mutex);
    if (!line_->changed.wait_until(lock, deadline, [this] { return !line_->isBusy; }))
        return tooLate();
    line_->isBusy = true;
    lock.unlock();

    const auto hasReturned = std::make_shared<bool>(false); // Guarded as isBusy.
    auto work = [line = line_, call = std::move(call), hasReturned]() mutable {
        call();
        call = nullptr;
        const std::lock_guard done(line->mutex);
        line->isBusy = false;
        *hasReturned = true;
        line->changed.notify_all();
    };
    Result<std::shared_ptr<Thread>> thread = [&work] {
        const SignalBlock block;
        return Thread::start("moxel-blocking", std::move(work));
    }();
    lock.lock();
    if (!thread.ok()) {
        line_->isBusy = false;
        line_->changed.notify_all();
        return thread.error();
    }
    const bool inTime = line_->changed.wait_until(lock, deadline, [&] { return *hasReturned; });
    lock.unlock();
    if (!inTime) {
        thread.value()->detach();
        return tooLate();
    }
    thread.value()->join();
    return {};
}

} // namespace moxel
