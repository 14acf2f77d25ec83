#include "Platform/Linux/BusFolder.h"

#include "Platform/Linux/FolderStream.h"
#include "Platform/Linux/Shortage.h"
#include "Platform/Log.h"
#include "Platform/LogText.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace moxel {

namespace {

constexpr uint32_t goneEvents = IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT | IN_IGNORED;
/// Deletions are none of them: a device is there until its connection hangs up.
constexpr uint32_t newsEvents = IN_CREATE | IN_MOVED_TO | IN_ATTRIB;

/// Folders on the path may come and go between two looks at them; after so many looks the next one has time.
constexpr int looksInARow = 8;
constexpr int readsPerWakeUp = 16;

std::string absolutePathVariable(const char *name) {
    const char *value = ::secure_getenv(name);
    return value != nullptr && value[0] == '/' ? value : "";
}

bool isMissing(int errnoValue) { return errnoValue == ENOENT || errnoValue == ENOTDIR; }

Descriptor openFolder(const std::string &path) {
    return Descriptor(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

} // namespace

std::string BusFolder::standardPath() {
    if (std::string path = absolutePathVariable("MOXEL_HID_BUS"); !path.empty())
        return path;
    if (const std::string runtime = absolutePathVariable("XDG_RUNTIME_DIR"); !runtime.empty())
        return runtime + "/moxel/hid";
    return "/run/moxel/hid";
}

BusFolder::BusFolder(std::string path, RunLoop &runLoop, Found found, RescanLater rescanLater)
    : path_(std::move(path)),
      runLoop_(runLoop),
      found_(std::move(found)),
      rescanLater_(std::move(rescanLater)) {}

void BusFolder::shortageOccurred(const Error &error) {
    shortage_ = true;
    if (!std::exchange(shortageLogged_, true))
        logLine(LogLevel::error, "Error: HID bus folder " + printableText(path_) +
                                     " cannot be read completely, trying again: " + error.message);
    rescanLater_();
}

// ------------------------------------------------------------------------------------------ The folder

void BusFolder::rescan() {
    shortage_ = false;
    folderIdentity_ = {};
    startWatching();
    int looks = 0;
    while (!findFolder()) {
        if (++looks == looksInARow) {
            rescanLater_();
            break;
        }
    }
    shortageLogged_ = shortageLogged_ && shortage_;
}

void BusFolder::startWatching() {
    if (inotify_)
        return;
    Result<Inotify> inotify = Inotify::create();
    if (!inotify.ok()) {
        shortageOccurred(inotify.error());
        return;
    }
    Result<RunLoopSource> source =
        runLoop_.watchDescriptor(inotify->descriptor(), RunLoop::Descriptor::readable,
                                 [this](RunLoop::Readiness) { eventsAreReady(); });
    if (!source.ok()) {
        shortageOccurred(source.error());
        return;
    }
    inotify_.emplace(*std::move(inotify));
    ancestors_.emplace(path_, *inotify_);
    events_ = *std::move(source);
}

/// Uses the folder or waits for it; false when the path to it changed meanwhile. Everything is watched before
/// it is looked at, so that no change is missed.
bool BusFolder::findFolder() {
    if (ancestors_)
        ancestors_->awaitDisappearance();
    Descriptor folder = openFolder(path_);
    if (folder) {
        useFolder(std::move(folder));
        return true;
    }
    const int error = errno;
    if (isShortage(error)) {
        shortageOccurred(systemError("Cannot open it", error));
        return true;
    }
    if (error == ENOENT) {
        complaint_.clear();
    } else {
        complain(systemError("it cannot be opened", error).message);
    }
    if (!ancestors_)
        return true;
    ancestors_->awaitAppearance();
    return !isMissing(error) || !ancestors_->nextFolderExists();
}

void BusFolder::useFolder(Descriptor folder) {
    watchFolder(folder.get());
    FileIdentity identity;
    if (const std::string reason = reasonNotToUse(folder.get(), identity); !reason.empty()) {
        complain(reason);
        return;
    }
    complaint_.clear();
    folderIdentity_ = identity;
    list(std::move(folder));
}

void BusFolder::watchFolder(int folder) {
    if (!inotify_)
        return;
    if (folderWatch_ >= 0)
        inotify_->release(std::exchange(folderWatch_, -1));
    const uint32_t events = newsEvents | IN_DELETE_SELF | IN_MOVE_SELF;
    // The descriptor's own name leads to the folder that is open; the path may lead to another one by now.
    Result<int> watch = inotify_->add("/proc/thread-self/fd/" + std::to_string(folder), events);
    if (!watch.ok() && watch.error().code == ENOENT)
        watch = inotify_->add(path_, events);
    if (watch.ok()) {
        folderWatch_ = *watch;
    } else {
        shortageOccurred(watch.error());
    }
}

/// Empty when the folder is to be trusted.
std::string BusFolder::reasonNotToUse(int folder, FileIdentity &identity) const {
    struct stat status {};
    if (::fstat(folder, &status) != 0)
        return systemError("it cannot be examined", errno).message;
    identity = identityOf(status);
    return reasonNotToTrust(status);
}

std::string BusFolder::reasonNotToTrust(const struct stat &status) {
    if (status.st_uid != 0 && status.st_uid != ::geteuid())
        return "it belongs to user " + std::to_string(status.st_uid) + ", neither root nor this user";
    if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0)
        return "its group or others may write to it";
    return "";
}

void BusFolder::complain(const std::string &reason) {
    if (std::exchange(complaint_, reason) != reason)
        logLine(LogLevel::error, "Error: HID bus folder " + printableText(path_) + " is not used: " + reason);
}

// ------------------------------------------------------------------------------------------ What it holds

void BusFolder::list(Descriptor folder) {
    const FolderStream entries = readEntriesOf(std::move(folder));
    if (!entries) {
        shortageOccurred(systemError("Cannot list it", errno));
        return;
    }
    // NOLINTNEXTLINE(concurrency-mt-unsafe): no other thread reads this stream
    while (const dirent *entry = ::readdir(entries.get()))
        consider(::dirfd(entries.get()), entry->d_name);
}

/// Looks at files that there is news of.
void BusFolder::lookAt(const std::set<std::string> &names) {
    const Descriptor folder = openFolder(path_);
    FileIdentity identity;
    if (!folder || !reasonNotToUse(folder.get(), identity).empty() || identity != folderIdentity_) {
        rescan();
        return;
    }
    for (const std::string &name : names)
        consider(folder.get(), name);
}

void BusFolder::consider(int folder, const std::string &name) {
    if (!BusSocket::isDeviceName(name))
        return;
    Result<BusSocket> socket = BusSocket::open(folder, path_, name);
    if (socket.ok()) {
        found_(*std::move(socket));
    } else if (isShortage(socket.error().code)) {
        shortageOccurred(socket.error());
    }
}

// ------------------------------------------------------------------------------------------ News

void BusFolder::eventsAreReady() {
    News news;
    for (int reads = 0; reads < readsPerWakeUp; ++reads) {
        if (!inotify_->read([&](const InotifyEvent &event) { collect(event, news); }))
            break;
    }
    if (news.ofFolder) {
        rescan();
    } else if (!news.names.empty() && folderIdentity_ != FileIdentity{}) {
        lookAt(news.names);
    }
}

void BusFolder::collect(const InotifyEvent &event, News &news) const {
    const bool overflow = event.watch < 0;
    if (overflow || ancestors_->concerns(event)) {
        news.ofFolder = true;
    } else if (event.watch == folderWatch_) {
        if (event.name.empty() || (event.mask & goneEvents) != 0) {
            news.ofFolder = true;
        } else if (BusSocket::isDeviceName(event.name)) {
            news.names.emplace(event.name);
        }
    }
}

} // namespace moxel
