#include "Platform/Linux/UserSpaceBus.h"

#include "Platform/Linux/Alarm.h"
#include "Platform/Linux/BusFolder.h"
#include "Platform/Linux/HIDBusObservers.h"
#include "Platform/Linux/PresenceConnection.h"
#include "Platform/Log.h"
#include "Platform/LogText.h"

#include <map>
#include <mutex>
#include <optional>
#include <utility>

namespace moxel {

namespace {

constexpr std::chrono::seconds rescanPause{1};
/// Each takes two descriptors of the process.
constexpr size_t deviceLimit = 4096;

} // namespace

/// Lives on the service thread.
class UserSpaceBus::Watcher final : public PresenceConnection::Owner {
  public:
    using Clock = PresenceConnection::Clock;

    static Result<std::unique_ptr<Watcher>> create(const std::string &folder, RunLoop &runLoop) {
        auto watcher = std::unique_ptr<Watcher>(new Watcher(folder, runLoop));
        Result<Alarm> alarm = Alarm::create(runLoop, [raw = watcher.get()] { raw->alarmRang(); });
        if (!alarm.ok())
            return alarm.error();
        watcher->alarm_.emplace(*std::move(alarm));
        watcher->folder_.rescan();
        return watcher;
    }

    void addObserver(std::weak_ptr<HIDBusObserver> observer) {
        if (const auto listener = observer.lock()) {
            for (const auto &[identity, connection] : connections_) {
                if (connection->entry())
                    listener->entryArrived(connection->entry());
            }
        }
        observers_.add(std::move(observer));
    }

  private:
    Watcher(const std::string &folder, RunLoop &runLoop)
        : runLoop_(runLoop),
          folder_(
              folder, runLoop, [this](BusSocket socket) { found(std::move(socket)); },
              [this] { rescanLater(); }) {}

    void found(BusSocket socket) {
        const FileIdentity identity = socket.identity();
        if (connections_.contains(identity))
            return;
        if (connections_.size() >= deviceLimit) {
            if (!std::exchange(limitLogged_, true))
                logLine(LogLevel::error, "Error: HID bus folder " + printableText(folder_.path()) +
                                             " holds too many devices; " + printableText(socket.path()) +
                                             " and others are not used");
            return;
        }
        auto connection = std::make_unique<PresenceConnection>(std::move(socket), runLoop_, *this);
        if (connection->begin())
            connections_.emplace(identity, std::move(connection));
    }

    void rescanLater() {
        rescanAt_ = Clock::now() + rescanPause;
        wakeBy(*rescanAt_);
    }

    void alarmRang() {
        const auto now = Clock::now();
        std::erase_if(connections_, [now](const auto &each) { return !each.second->timeHasPassed(now); });
        if (!rescanAt_)
            return;
        if (now < *rescanAt_) {
            wakeBy(*rescanAt_);
            return;
        }
        rescanAt_.reset();
        folder_.rescan();
    }

    void deviceArrived(PresenceConnection &connection) override {
        observers_.tell(&HIDBusObserver::entryArrived, connection.entry());
    }

    void connectionEnded(PresenceConnection &connection) override {
        // Outlives the connection. NOLINTNEXTLINE(performance-unnecessary-copy-initialization)
        const std::shared_ptr<UserSpaceBusEntry> entry = connection.entry();
        connections_.erase(connection.identity());
        if (!entry)
            return;
        entry->drop(); // Ends every wait for the device.
        observers_.tell(&HIDBusObserver::entryLeft, entry);
    }

    void shortageOccurred(const Error &error) override { folder_.shortageOccurred(error); }

    void wakeBy(Clock::time_point time) override { alarm_->ringBy(time); }

    RunLoop &runLoop_;
    std::optional<Alarm> alarm_; ///< Set from creation on.
    std::optional<Clock::time_point> rescanAt_;
    BusFolder folder_;
    std::map<FileIdentity, std::unique_ptr<PresenceConnection>> connections_;
    bool limitLogged_ = false;
    HIDBusObservers observers_;
};

Result<std::shared_ptr<HIDBus>> UserSpaceBus::shared() {
    struct Buses {
        std::mutex mutex;
        std::map<std::string, std::weak_ptr<UserSpaceBus>> byFolder;
    };
    static auto &buses = *new Buses; // Never destroyed: threads may use it while the process exits.

    const std::string folder = BusFolder::standardPath();
    const std::lock_guard lock(buses.mutex);
    if (const auto found = buses.byFolder.find(folder); found != buses.byFolder.end()) {
        if (auto bus = found->second.lock())
            return std::shared_ptr<HIDBus>(bus);
    }
    Result<std::shared_ptr<UserSpaceBus>> bus = create(folder);
    if (!bus.ok())
        return bus.error();
    std::erase_if(buses.byFolder, [](const auto &each) { return each.second.expired(); });
    buses.byFolder[folder] = *bus;
    return std::shared_ptr<HIDBus>(*bus);
}

Result<std::shared_ptr<UserSpaceBus>> UserSpaceBus::create(const std::string &folder) {
    Result<std::shared_ptr<ServiceThread>> services = ServiceThread::lease();
    if (!services.ok())
        return services.error();
    // Before the watcher, which ends on the service thread only with the bus.
    const std::shared_ptr<UserSpaceBus> bus(new UserSpaceBus(*std::move(services)));
    Result<std::unique_ptr<Watcher>> watcher = Error{"The service thread has ended"};
    const auto start = [&] { watcher = Watcher::create(folder, bus->services_->runLoop()); };
    bus->services_->thread().perform(start, Thread::Wait::untilDone);
    if (!watcher.ok())
        return watcher.error();
    bus->watcher_ = *std::move(watcher);
    return bus;
}

UserSpaceBus::UserSpaceBus(std::shared_ptr<ServiceThread> services) : services_(std::move(services)) {}

UserSpaceBus::~UserSpaceBus() {
    services_->thread().perform([this] { watcher_.reset(); }, Thread::Wait::untilDone);
}

void UserSpaceBus::addObserver(std::weak_ptr<HIDBusObserver> observer) {
    services_->thread().perform([watcher = watcher_.get(), observer = std::move(observer)]() mutable {
        watcher->addObserver(std::move(observer));
    });
}

} // namespace moxel
