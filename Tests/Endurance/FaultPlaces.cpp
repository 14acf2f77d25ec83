#include "Endurance/FaultPlaces.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace moxel::endurance {

namespace {

using Fault = FaultPlan::Fault;

void writeFile(const char *path, const std::string &text) { std::ofstream(path) << text; }

/// Mounts of this process are seen by this process alone.
bool ownMounts() {
    const uid_t user = ::getuid();
    const gid_t group = ::getgid();
    if (::unshare(CLONE_NEWNS) != 0) {
        if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
            return false;
        writeFile("/proc/self/setgroups", "deny");
        writeFile("/proc/self/uid_map", std::to_string(user) + " " + std::to_string(user) + " 1");
        writeFile("/proc/self/gid_map", std::to_string(group) + " " + std::to_string(group) + " 1");
    }
    return ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

} // namespace

bool FaultPlaces::prepare(Fault fault) {
    fault_ = fault;
    std::filesystem::create_directories(folder_);
    if (fault != Fault::fullDisk && fault != Fault::readOnlyFolder)
        return true;
    isMounted_ = mountDisk();
    if (!isMounted_ && fault == Fault::readOnlyFolder && ::geteuid() == 0) {
        problem_ = std::string("no disk can be mounted (") + std::strerror(errno) +
                   "), and root may write everywhere else";
        return false;
    }
    return true;
}

bool FaultPlaces::mountDisk() {
    return ownMounts() &&
           ::mount("none", folder_.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, "size=256k,mode=0700") == 0;
}

void FaultPlaces::fillDisk(uint64_t room) const {
    struct statvfs state {};
    if (::statvfs(folder_.c_str(), &state) != 0)
        return;
    const uint64_t free = state.f_bavail * state.f_frsize;
    if (free > room)
        std::ofstream(folder_ + "/filler", std::ios::binary) << std::string(free - room, 'x');
}

void FaultPlaces::spoil(const FaultPlan &plan) {
    if (plan.fault == Fault::fullDisk && isMounted_) {
        fillDisk(plan.room);
    } else if (plan.fault == Fault::fullDisk) {
        ::signal(SIGXFSZ, SIG_IGN);
        ::getrlimit(RLIMIT_FSIZE, &fileSize_);
        rlimit low = fileSize_;
        low.rlim_cur = plan.room;
        ::setrlimit(RLIMIT_FSIZE, &low);
    } else if (plan.fault == Fault::readOnlyFolder && isMounted_) {
        ::mount("none", folder_.c_str(), nullptr, MS_REMOUNT | MS_RDONLY | MS_NOSUID | MS_NODEV, nullptr);
    } else if (plan.fault == Fault::readOnlyFolder) {
        for (const auto &entry : std::filesystem::recursive_directory_iterator(folder_))
            if (entry.is_directory())
                ::chmod(entry.path().c_str(), 0500);
    }
}

void FaultPlaces::repair() {
    if (fault_ == Fault::fullDisk && isMounted_) {
        ::unlink((folder_ + "/filler").c_str());
    } else if (fault_ == Fault::fullDisk) {
        ::setrlimit(RLIMIT_FSIZE, &fileSize_);
    } else if (fault_ == Fault::readOnlyFolder && isMounted_) {
        ::mount("none", folder_.c_str(), nullptr, MS_REMOUNT | MS_NOSUID | MS_NODEV, "size=256k");
    } else if (fault_ == Fault::readOnlyFolder) {
        for (const auto &entry : std::filesystem::recursive_directory_iterator(folder_))
            if (entry.is_directory())
                ::chmod(entry.path().c_str(), 0700);
    }
}

DescriptorLimit::DescriptorLimit(const FaultPlan &plan) {
    ::getrlimit(RLIMIT_NOFILE, &before_);
    if (plan.fault != Fault::descriptors)
        return;
    // The lowest free number tells how many are used, for there are no gaps between them.
    const int next = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    ::close(next);
    rlimit low = before_;
    low.rlim_cur = static_cast<rlim_t>(next) + plan.room;
    ::setrlimit(RLIMIT_NOFILE, &low);
}

void DescriptorLimit::lift() const { ::setrlimit(RLIMIT_NOFILE, &before_); }

} // namespace moxel::endurance
