// The user-space HID bus: devices are sockets in a folder, published by other processes.
#pragma once

#include "Platform/Linux/HIDBus.h"
#include "Platform/Linux/ServiceThread.h"
#include "Platform/Result.h"

#include <memory>
#include <string>

namespace moxel {

/// Watches one folder for all managers of the process, on the service thread. Any thread.
class UserSpaceBus final : public HIDBus {
  public:
    /// The bus in the standard folder; it exists while somebody holds it.
    static Result<std::shared_ptr<HIDBus>> shared();

    ~UserSpaceBus() override;
    UserSpaceBus(const UserSpaceBus &) = delete;
    UserSpaceBus &operator=(const UserSpaceBus &) = delete;

    void addObserver(std::weak_ptr<HIDBusObserver> observer) override;

  private:
    class Watcher;

    explicit UserSpaceBus(std::shared_ptr<ServiceThread> services);
    static Result<std::shared_ptr<UserSpaceBus>> create(const std::string &folder);

    const std::shared_ptr<ServiceThread> services_;
    std::unique_ptr<Watcher> watcher_; ///< Lives on the service thread.
};

} // namespace moxel
