#include "Platform/Linux/HidrawWatcher.h"

#include "Platform/Linux/Guard.h"
#include "Platform/Thread.h"

#include <chrono>
#include <sys/inotify.h>
#include <utility>
#include <vector>

namespace moxel {

namespace {

/// How long a new node may wait for its rights before it is taken, or reported, as it is.
constexpr std::chrono::seconds rightsPause{1};
/// How long after a look that failed the next one comes.
constexpr std::chrono::seconds retryPause{1};
constexpr const char *nodeFolder = "/dev";
/// Nodes come and go, and get their rights. The kernel makes and removes them itself, with udev or without.
constexpr uint32_t nodeEvents = IN_CREATE | IN_DELETE | IN_MOVED_TO | IN_MOVED_FROM | IN_ATTRIB;
constexpr int readsPerWakeUp = 16;

} // namespace

Result<std::unique_ptr<HidrawWatcher>> HidrawWatcher::create(RunLoop &runLoop) {
    auto watcher = std::unique_ptr<HidrawWatcher>(new HidrawWatcher);
    if (const Result<void> started = watcher->start(runLoop); !started.ok())
        return started.error();
    return watcher;
}

void HidrawWatcher::addObserver(std::weak_ptr<HIDBusObserver> observer) {
    if (const auto listener = observer.lock()) {
        for (const auto &[name, node] : nodes_) {
            if (node.isReady && !node.entry->hasLeft())
                listener->entryArrived(node.entry);
            if (node.isRefused)
                listener->entryRefused(node.entry);
        }
    }
    observers_.add(std::move(observer));
}

/// Everything is watched before it is listed, so that no change is missed.
Result<void> HidrawWatcher::start(RunLoop &runLoop) {
    Result<Alarm> alarm = Alarm::create(runLoop, [this] { alarmRings(); });
    if (!alarm.ok())
        return alarm.error();
    alarm_.emplace(*std::move(alarm));
    Result<Inotify> inotify = Inotify::create();
    if (!inotify.ok())
        return inotify.error();
    inotify_.emplace(*std::move(inotify));
    if (const Result<int> watch = inotify_->add(nodeFolder, nodeEvents); !watch.ok())
        return watch.error();
    Result<RunLoopSource> source =
        runLoop.watchDescriptor(inotify_->descriptor(), RunLoop::Descriptor::readable,
                                [this](RunLoop::Readiness) { nodesHaveChanged(); });
    if (!source.ok())
        return source.error();
    source_ = *std::move(source);
    listenToUdev();
    return reviewAll();
}

/// Udev says when it is done with a device. Without udev, or where a sandbox keeps its news away, the
/// pause for rights serves.
void HidrawWatcher::listenToUdev() {
    sd_device_monitor *monitor = nullptr;
    if (sd_device_monitor_new(&monitor) < 0)
        return;
    monitor_.reset(monitor);
    const bool listens =
        sd_device_monitor_filter_add_match_subsystem_devtype(monitor, "hidraw", nullptr) >= 0 &&
        sd_device_monitor_attach_event(monitor, nullptr) >= 0 && // This thread's run loop.
        sd_device_monitor_start(monitor, udevReports, this) >= 0;
    if (!listens)
        monitor_.reset();
}

int HidrawWatcher::udevReports(sd_device_monitor *, sd_device *device, void *context) noexcept {
    guarded("the report of a HID device", [device, context] {
        const char *name = nullptr;
        if (sd_device_get_sysname(device, &name) >= 0 && isHidrawName(name))
            static_cast<HidrawWatcher *>(context)->review(name);
    });
    return 0;
}

void HidrawWatcher::nodesHaveChanged() {
    bool missedSome = false;
    const auto take = [&](const InotifyEvent &event) {
        missedSome = missedSome || event.watch < 0;
        if (isHidrawName(event.name))
            review(std::string(event.name));
    };
    for (int reads = 0; reads < readsPerWakeUp && inotify_->read(take); ++reads) {
    }
    if (missedSome)
        reviewAllNowOrLater();
}

void HidrawWatcher::reviewAllNowOrLater() {
    listIsDue_ = !reviewAll().ok();
    if (listIsDue_)
        alarm_->ringBy(Clock::now() + retryPause);
}

Result<void> HidrawWatcher::reviewAll() {
    Result<std::vector<std::string>> names = hidrawNames();
    if (!names.ok())
        return names.error();
    for (const auto &[name, node] : nodes_)
        names->push_back(name);
    for (const std::string &name : *names)
        review(name);
    return {};
}

/// Looks at what stands under a name now.
void HidrawWatcher::review(const std::string &name) {
    Result<std::optional<HidrawNode>> read = readHidrawNode(name);
    if (!read.ok()) { // It stays what it was until it can be looked at.
        unread_.insert(name);
        alarm_->ringBy(Clock::now() + retryPause);
        return;
    }
    unread_.erase(name);
    std::optional<HidrawNode> &found = *read;
    auto known = nodes_.find(name);
    if (known != nodes_.end() && (!found || found->sysPath != known->second.entry->node().sysPath)) {
        const std::shared_ptr<HidrawEntry> entry = std::move(known->second.entry);
        const bool wasReported = known->second.wasReported;
        nodes_.erase(known);
        known = nodes_.end();
        entry->leave();
        if (wasReported)
            observers_.tell(&HIDBusObserver::entryLeft, entry);
    }
    if (!found)
        return;
    if (known == nodes_.end())
        known =
            nodes_.emplace(name, Node{makeEntry(name, *std::move(found)), Clock::now() + rightsPause}).first;
    settle(known->second);
}

std::shared_ptr<HidrawEntry> HidrawWatcher::makeEntry(const std::string &name, HidrawNode node) {
    const auto here = [thread = Thread::current(), alive = std::weak_ptr(isAlive_)](auto work) {
        thread->perform([alive, work] {
            if (!alive.expired()) // The watcher ends on this thread.
                work();
        });
    };
    HidrawEntry::Requests requests;
    requests.announceAgain = [this, here, name, path = node.sysPath] {
        here([this, name, path] {
            const auto found = nodes_.find(name);
            if (found != nodes_.end() && found->second.entry->node().sysPath == path)
                reportAgain(found->second);
        });
    };
    requests.lookAgain = [this, here] { here([this] { alarm_->ringBy(Clock::now() + retryPause); }); };
    return std::make_shared<HidrawEntry>(std::move(node), std::move(requests));
}

void HidrawWatcher::alarmRings() {
    if (listIsDue_)
        reviewAllNowOrLater();
    const std::set<std::string> unread = std::exchange(unread_, {});
    for (const std::string &name : unread)
        review(name);
    for (auto &[name, node] : nodes_)
        settle(node);
}

/// Takes a device once its rights are what they will be.
void HidrawWatcher::settle(Node &node) {
    const bool mayBeUsed = checkRights(node.entry->node()).ok();
    const bool waits = Clock::now() < node.waitsUntil;
    if (node.isReady) {
        settleAgain(node, mayBeUsed);
    } else if (mayBeUsed && (!waits || hasFinalRights(node.entry->node()))) {
        node.isReady = true;
        node.isRefused = false;
        reportAgain(node);
    } else if (waits) {
        alarm_->ringBy(node.waitsUntil);
    } else if (!std::exchange(node.isRefused, true)) {
        observers_.tell(&HIDBusObserver::entryRefused, node.entry);
    }
}

/// Who has the device open keeps it when the rights go; others find it when they are back.
void HidrawWatcher::settleAgain(Node &node, bool mayBeUsed) {
    node.isReady = mayBeUsed;
    node.isRefused = !mayBeUsed;
    if (mayBeUsed && node.entry->takeFailure())
        reportAgain(node);
}

void HidrawWatcher::reportAgain(Node &node) {
    if (!node.isReady)
        return;
    node.wasReported = true;
    observers_.tell(&HIDBusObserver::entryArrived, node.entry);
}

} // namespace moxel
