// Tells when logind has changed what it says about sessions and users.
#pragma once

#include "Platform/Linux/Descriptor.h"

#include <array>
#include <memory>

#include <sys/types.h>
#include <systemd/sd-login.h>

namespace moxel {

/// One thread at a time.
class LoginMonitor {
  public:
    /// Begins to look; false while logind's folders are not there or the system is short of resources.
    [[nodiscard]] bool start();
    [[nodiscard]] bool isStarted() const { return session_ != nullptr; }
    /// Closes everything.
    void stop();

    /// Polls readable when something has changed; stays the same until stop(), while the monitor starts and
    /// ends by itself. Made on first use; -1 when the system has no descriptor left.
    [[nodiscard]] int descriptor();
    [[nodiscard]] bool hasChanges();
    /// Forgets the changes reported so far; ends the monitor when logind's folders have gone.
    void flush();

  private:
    struct Closer {
        void operator()(sd_login_monitor *monitor) const { sd_login_monitor_unref(monitor); }
    };
    using Monitor = std::unique_ptr<sd_login_monitor, Closer>;
    struct Folder {
        dev_t device = 0;
        ino_t inode = 0;
        bool operator==(const Folder &) const = default;
    };
    using Folders = std::array<Folder, 2>;

    static Folders currentFolders();
    [[nodiscard]] Monitor open(const char *category);

    Descriptor changes_; // an epoll instance, which stays while the monitors come and go
    Monitor session_;
    Monitor user_;
    Folders folders_;
};

} // namespace moxel
