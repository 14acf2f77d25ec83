// sd-login's monitors of sessions and users behind one descriptor.
#include "Platform/Linux/LoginMonitor.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/stat.h>

namespace moxel {

int LoginMonitor::descriptor() {
    if (!changes_)
        changes_.reset(::epoll_create1(EPOLL_CLOEXEC));
    return changes_.get();
}

LoginMonitor::Folders LoginMonitor::currentFolders() {
    Folders folders;
    constexpr std::array paths = {"/run/systemd/sessions", "/run/systemd/users"};
    for (size_t i = 0; i < paths.size(); ++i) {
        struct stat status {};
        if (::stat(paths[i], &status) == 0)
            folders[i] = {status.st_dev, status.st_ino};
    }
    return folders;
}

LoginMonitor::Monitor LoginMonitor::open(const char *category) {
    sd_login_monitor *made = nullptr;
    if (sd_login_monitor_new(category, &made) < 0)
        return {};
    Monitor monitor(made);
    epoll_event interest{};
    interest.events = EPOLLIN;
    if (::epoll_ctl(descriptor(), EPOLL_CTL_ADD, sd_login_monitor_get_fd(made), &interest) != 0)
        return {};
    return monitor;
}

bool LoginMonitor::start() {
    // Looked up before the monitors are made: a folder that is replaced in between is then noticed.
    folders_ = currentFolders();
    session_ = open("session");
    user_ = open("uid");
    if (session_ && user_)
        return true;
    session_.reset();
    user_.reset();
    return false;
}

void LoginMonitor::stop() {
    session_.reset();
    user_.reset();
    changes_.reset();
}

bool LoginMonitor::hasChanges() {
    pollfd entry{changes_.get(), POLLIN, 0};
    return ::poll(&entry, 1, 0) > 0;
}

void LoginMonitor::flush() {
    if (!isStarted())
        return;
    const bool flushed =
        sd_login_monitor_flush(session_.get()) >= 0 && sd_login_monitor_flush(user_.get()) >= 0;
    if (flushed && currentFolders() == folders_)
        return;
    session_.reset();
    user_.reset();
}

} // namespace moxel
