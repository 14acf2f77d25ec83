#include "Platform/Linux/HidrawBus.h"

#include "Platform/Thread.h"

#include <cstdlib>
#include <mutex>
#include <string_view>
#include <utility>

namespace moxel {

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
    Result<std::unique_ptr<HidrawWatcher>> watcher = Error{"The service thread has ended"};
    const auto start = [&] { watcher = HidrawWatcher::create(bus->services_->runLoop()); };
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
