// The cached console state, refreshed by logind's changes.
#include "Platform/Linux/SessionMonitor.h"

#include "Platform/Linux/Guard.h"
#include "Platform/Linux/LoginSession.h"
#include "Platform/NotificationCenter.h"
#include "Platform/SystemSession.h"

#include <chrono>
#include <utility>

namespace moxel {

namespace {

int64_t now() {
    const auto time = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::nanoseconds>(time).count();
}

constexpr int64_t attemptInterval = 1'000'000'000;

} // namespace

SessionMonitor &SessionMonitor::instance() {
    // Never destroyed: threads may ask until the process is gone.
    static auto &monitor = *new SessionMonitor;
    return monitor;
}

bool SessionMonitor::isFresh() const {
    if (!monitored_.load(std::memory_order_acquire))
        return now() < nextAttempt_.load(std::memory_order_acquire);
    return watches_.load(std::memory_order_acquire) > 0;
}

std::optional<bool> SessionMonitor::onConsole() {
    if (!isFresh()) {
        std::unique_lock lock(mutex_);
        if (!isFresh() && (!monitor_.isStarted() || monitor_.hasChanges()))
            refresh(std::move(lock));
    }
    const auto answer = answer_.load(std::memory_order_acquire);
    if (answer == Answer::none)
        return std::nullopt;
    return answer == Answer::yes;
}

void SessionMonitor::refresh(std::unique_lock<std::mutex> lock) {
    // Changes are forgotten before the files are read: what changes meanwhile is reported again.
    monitor_.flush();
    const bool monitored = monitor_.isStarted() || monitor_.start();
    if (!monitored && watches_.load(std::memory_order_acquire) == 0)
        monitor_.stop();
    const auto session = readLoginSession();
    const auto onConsole = session ? session->onConsole : std::nullopt;
    answer_.store(!onConsole ? Answer::none : (*onConsole ? Answer::yes : Answer::no),
                  std::memory_order_release);
    nextAttempt_.store(now() + attemptInterval, std::memory_order_release);
    monitored_.store(monitored, std::memory_order_release);
    if (!onConsole)
        return;
    if (lastKnown_.has_value() && lastKnown_ != onConsole)
        changes_.push_back(*onConsole);
    lastKnown_ = onConsole;
    postChanges(lock);
}

void SessionMonitor::postChanges(std::unique_lock<std::mutex> &lock) {
    if (posting_) // by another thread, or further up this one: it goes on with ours
        return;
    posting_ = true;
    while (!changes_.empty()) {
        const bool active = changes_.front();
        changes_.pop_front();
        lock.unlock();
        guarded("a session notification", [active] {
            Notification notification;
            notification.name =
                active ? sessionDidBecomeActiveNotification : sessionDidResignActiveNotification;
            NotificationCenter::defaultCenter().post(notification);
        });
        lock.lock();
    }
    posting_ = false;
}

std::optional<SessionDescription> systemSession() { return readLoginSession(); }

std::optional<bool> systemSessionOnConsole() { return SessionMonitor::instance().onConsole(); }

Result<RunLoopSource> SessionMonitor::attach(RunLoop &runLoop) {
    std::unique_lock lock(mutex_);
    auto source = runLoop.watchDescriptor(monitor_.descriptor(), RunLoop::Descriptor::readable,
                                          [this](RunLoop::Readiness) { refresh(std::unique_lock(mutex_)); });
    if (source) {
        watches_.fetch_add(1, std::memory_order_acq_rel);
        refresh(std::move(lock));
    }
    return source;
}

void SessionMonitor::detach() {
    const std::lock_guard lock(mutex_);
    if (watches_.fetch_sub(1, std::memory_order_acq_rel) > 1)
        return;
    nextAttempt_.store(INT64_MIN, std::memory_order_release);
    monitored_.store(false, std::memory_order_release);
    monitor_.stop();
}

Result<std::unique_ptr<SessionWatch>> SessionWatch::start(RunLoop &runLoop) {
    auto source = SessionMonitor::instance().attach(runLoop);
    if (!source)
        return source.error();
    return std::unique_ptr<SessionWatch>(new SessionWatch(std::move(*source)));
}

SessionWatch::~SessionWatch() {
    source_.reset(); // before its descriptor is closed
    SessionMonitor::instance().detach();
}

} // namespace moxel
