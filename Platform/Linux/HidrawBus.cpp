#include "Platform/Linux/HidrawBus.h"

#include "Platform/Linux/Alarm.h"
#include "Platform/Linux/Guard.h"
#include "Platform/Linux/HidrawEntry.h"
#include "Platform/Linux/HidrawNode.h"
#include "Platform/Linux/Inotify.h"
#include "Platform/Thread.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <sys/inotify.h>
#include <systemd/sd-device.h>
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

/// Lives on the service thread.
class HidrawBus::Watcher {
  public:
    static Result<std::unique_ptr<Watcher>> create(RunLoop &runLoop) {
        auto watcher = std::unique_ptr<Watcher>(new Watcher);
        if (const Result<void> started = watcher->start(runLoop); !started.ok())
            return started.error();
        return watcher;
    }

    void addObserver(std::weak_ptr<HIDBusObserver> observer) {
        if (const auto listener = observer.lock()) {
            for (const auto &[name, node] : nodes_) {
                if (node.isReady && !node.entry->hasLeft())
                    listener->entryArrived(node.entry);
                if (node.isRefused)
                    listener->entryRefused(node.entry);
            }
        }
        const auto isGone = [](const auto &each) { return each.expired(); };
        std::erase_if(observers_, isGone);
        const auto isSame = [&](const auto &each) {
            return !each.owner_before(observer) && !observer.owner_before(each);
        };
        if (std::ranges::none_of(observers_, isSame))
            observers_.push_back(std::move(observer));
    }

  private:
    using Clock = Alarm::Clock;

    struct Node {
        std::shared_ptr<HidrawEntry> entry;
        Clock::time_point waitsUntil; ///< For its rights.
        bool isReady = false;
        bool isRefused = false;
        bool wasReported = false; ///< As arrived, to whoever observed then.
    };
    struct MonitorCloser {
        void operator()(sd_device_monitor *monitor) const { sd_device_monitor_unref(monitor); }
    };

    Watcher() = default;

    /// Everything is watched before it is listed, so that no change is missed.
    [[nodiscard]] Result<void> start(RunLoop &runLoop) {
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
    void listenToUdev() {
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

    static int udevReports(sd_device_monitor *, sd_device *device, void *context) noexcept {
        guarded("the report of a HID device", [device, context] {
            const char *name = nullptr;
            if (sd_device_get_sysname(device, &name) >= 0 && isHidrawName(name))
                static_cast<Watcher *>(context)->review(name);
        });
        return 0;
    }

    void nodesHaveChanged() {
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

    void reviewAllNowOrLater() {
        listIsDue_ = !reviewAll().ok();
        if (listIsDue_)
            alarm_->ringBy(Clock::now() + retryPause);
    }

    Result<void> reviewAll() {
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
    void review(const std::string &name) {
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
                tell(&HIDBusObserver::entryLeft, entry);
        }
        if (!found)
            return;
        if (known == nodes_.end())
            known = nodes_.emplace(name, Node{makeEntry(name, *std::move(found)), Clock::now() + rightsPause})
                        .first;
        settle(known->second);
    }

    std::shared_ptr<HidrawEntry> makeEntry(const std::string &name, HidrawNode node) {
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

    void alarmRings() {
        if (listIsDue_)
            reviewAllNowOrLater();
        const std::set<std::string> unread = std::exchange(unread_, {});
        for (const std::string &name : unread)
            review(name);
        for (auto &[name, node] : nodes_)
            settle(node);
    }

    /// Takes a device once its rights are what they will be.
    void settle(Node &node) {
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
            tell(&HIDBusObserver::entryRefused, node.entry);
        }
    }

    /// Who has the device open keeps it when the rights go; others find it when they are back.
    void settleAgain(Node &node, bool mayBeUsed) {
        node.isReady = mayBeUsed;
        node.isRefused = !mayBeUsed;
        if (mayBeUsed && node.entry->takeFailure())
            reportAgain(node);
    }

    void reportAgain(Node &node) {
        if (!node.isReady)
            return;
        node.wasReported = true;
        tell(&HIDBusObserver::entryArrived, node.entry);
    }

    void tell(void (HIDBusObserver::*what)(const HIDBusEntryReference &),
              const std::shared_ptr<HidrawEntry> &entry) {
        for (const auto &observer : observers_) {
            if (const auto listener = observer.lock())
                ((*listener).*what)(entry);
        }
    }

    std::optional<Alarm> alarm_;     ///< Set from creation on.
    std::optional<Inotify> inotify_; ///< Likewise.
    RunLoopSource source_;
    std::unique_ptr<sd_device_monitor, MonitorCloser> monitor_; ///< Null where udev cannot be heard.
    std::map<std::string, Node> nodes_;
    std::set<std::string> unread_; ///< Names that could not be looked at.
    bool listIsDue_ = false;       ///< The names could not be listed.
    const std::shared_ptr<bool> isAlive_ = std::make_shared<bool>(true);
    std::vector<std::weak_ptr<HIDBusObserver>> observers_;
};

Result<std::shared_ptr<HIDBus>> HidrawBus::shared() {
    struct Shared {
        std::mutex mutex;
        std::weak_ptr<HidrawBus> bus;
    };
    static auto &shared = *new Shared; // Never destroyed: threads may use it while the process exits.

    const char *choice = ::secure_getenv("MOXEL_HIDRAW");
    if (choice != nullptr && std::string_view(choice) == "off")
        return std::shared_ptr<HIDBus>();
    const std::lock_guard lock(shared.mutex);
    if (auto bus = shared.bus.lock())
        return std::shared_ptr<HIDBus>(bus);
    Result<std::shared_ptr<HidrawBus>> bus = create();
    if (!bus.ok())
        return bus.error();
    shared.bus = *bus;
    return std::shared_ptr<HIDBus>(*bus);
}

Result<std::shared_ptr<HidrawBus>> HidrawBus::create() {
    Result<std::shared_ptr<ServiceThread>> services = ServiceThread::lease();
    if (!services.ok())
        return services.error();
    // Before the watcher, which ends on the service thread only with the bus.
    std::shared_ptr<HidrawBus> bus(new HidrawBus(*std::move(services)));
    Result<std::unique_ptr<Watcher>> watcher = Error{"The service thread has ended"};
    const auto start = [&] { watcher = Watcher::create(bus->services_->runLoop()); };
    bus->services_->thread().perform(start, Thread::Wait::untilDone);
    if (!watcher.ok())
        return watcher.error();
    bus->watcher_ = *std::move(watcher);
    return bus;
}

HidrawBus::HidrawBus(std::shared_ptr<ServiceThread> services) : services_(std::move(services)) {}

HidrawBus::~HidrawBus() {
    services_->thread().perform([this] { watcher_.reset(); }, Thread::Wait::untilDone);
}

void HidrawBus::addObserver(std::weak_ptr<HIDBusObserver> observer) {
    services_->thread().perform([watcher = watcher_.get(), observer = std::move(observer)]() mutable {
        watcher->addObserver(std::move(observer));
    });
}

} // namespace moxel
