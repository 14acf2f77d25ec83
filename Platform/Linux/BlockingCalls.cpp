#include "Platform/Linux/BlockingCalls.h"

#include "Platform/Linux/SignalBlock.h"
#include "Platform/Thread.h"

#include <cerrno>
#include <utility>

namespace moxel {

/// A call's turn: the next one may be made once this is gone, whatever has become of the call.
class BlockingCalls::Turn {
  public:
    /// With the line's mutex held.
    Turn(std::shared_ptr<Line> line, std::shared_ptr<bool> isOver)
        : line_(std::move(line)), isOver_(std::move(isOver)) {
        line_->isBusy = true;
    }
    ~Turn() {
        const std::lock_guard done(line_->mutex);
        line_->isBusy = false;
        *isOver_ = true;
        line_->changed.notify_all();
    }
    Turn(const Turn &) = delete;
    Turn &operator=(const Turn &) = delete;

  private:
    const std::shared_ptr<Line> line_;
    const std::shared_ptr<bool> isOver_; ///< Guarded as isBusy.
};

Result<void> BlockingCalls::make(std::function<void()> call, Clock::time_point deadline) {
    const auto tooLate = [] { return systemError("A call to the kernel", ETIMEDOUT); };
    const auto isOver = std::make_shared<bool>(false);
    std::unique_lock lock(line_->mutex);
    if (!line_->changed.wait_until(lock, deadline, [this] { return !line_->isBusy; }))
        return tooLate();
    auto turn = std::make_shared<Turn>(line_, isOver);
    lock.unlock();

    // What the call owns goes before its turn does.
    auto work = [turn = std::move(turn), call = std::move(call)]() mutable {
        call();
        call = nullptr;
        turn.reset();
    };
    Result<std::shared_ptr<Thread>> thread = [&work] {
        const SignalBlock block;
        return Thread::start("moxel-blocking", std::move(work));
    }();
    if (!thread.ok())
        return thread.error();
    lock.lock();
    const bool inTime = line_->changed.wait_until(lock, deadline, [&] { return *isOver; });
    lock.unlock();
    if (!inTime) {
        thread.value()->detach();
        return tooLate();
    }
    thread.value()->join();
    return {};
}

} // namespace moxel
