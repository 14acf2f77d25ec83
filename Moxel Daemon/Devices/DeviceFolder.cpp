#include "Moxel Daemon/Devices/DeviceFolder.h"

#include "Moxel Daemon/Protocol/Numbers.h"
#include "Platform/Log.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <string_view>
#include <sys/inotify.h>
#include <system_error>
#include <utility>

namespace moxel::daemon {

namespace {

constexpr uint32_t newsOfFiles = IN_CREATE | IN_DELETE | IN_MOVED_TO | IN_MOVED_FROM | IN_ATTRIB;
constexpr uint32_t newsOfFolder = IN_DELETE_SELF | IN_MOVE_SELF;

/// Events read before the run loop's other sources get their turn.
constexpr int readsPerTurn = 16;
/// Folders on the path may come and go between two looks at them.
constexpr int looksInARow = 64;

std::optional<uint32_t> eventNumber(std::string_view name) {
    constexpr std::string_view prefix = "event";
    return name.starts_with(prefix) ? parseNumber<uint32_t>(name.substr(prefix.size())) : std::nullopt;
}

} // namespace

Result<std::unique_ptr<DeviceFolder>> DeviceFolder::watch(std::string path, RunLoop &runLoop,
                                                          Changed changed) {
    Result<Inotify> inotify = Inotify::create();
    if (!inotify.ok())
        return inotify.error();
    std::unique_ptr<DeviceFolder> folder(
        new DeviceFolder(std::move(path), std::move(*inotify), std::move(changed)));
    Result<RunLoopSource> events =
        runLoop.watchDescriptor(folder->inotify_.descriptor(), RunLoop::Descriptor::readable,
                                [self = folder.get()](RunLoop::Readiness) { self->eventsAreReady(); });
    if (!events.ok())
        return events.error();
    folder->events_ = std::move(*events);
    folder->watchPath();
    return folder;
}

DeviceFolder::DeviceFolder(std::string path, Inotify inotify, Changed changed)
    : path_(std::move(path)), inotify_(std::move(inotify)), changed_(std::move(changed)) {}

std::vector<std::string> DeviceFolder::eventDevices(const std::string &path) {
    std::vector<std::pair<uint32_t, std::string>> found;
    std::error_code error;
    std::filesystem::directory_iterator entry(path, error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error))
        if (const std::optional<uint32_t> number = eventNumber(entry->path().filename().string()))
            found.emplace_back(*number, entry->path().string());
    std::sort(found.begin(), found.end());
    std::vector<std::string> paths;
    paths.reserve(found.size());
    for (auto &[number, file] : found)
        paths.push_back(std::move(file));
    return paths;
}

void DeviceFolder::eventsAreReady() {
    bool pathHasChanged = false;
    bool filesHaveChanged = false;
    const auto note = [&](const InotifyEvent &event) {
        const bool ofFolder = event.watch == folderWatch_;
        const bool isGone = ofFolder && (event.mask & (newsOfFolder | IN_IGNORED | IN_UNMOUNT)) != 0;
        if (ofFolder && (event.mask & IN_IGNORED) != 0)
            folderWatch_ = -1;
        pathHasChanged = pathHasChanged || isGone || event.watch < 0 || ancestors_.concerns(event);
        filesHaveChanged = filesHaveChanged || ofFolder;
    };
    for (int reads = 0; reads < readsPerTurn && inotify_.read(note); ++reads)
        continue;
    if (pathHasChanged)
        watchPath();
    if (pathHasChanged || filesHaveChanged)
        changed_();
}

/// Watches the folder, or what there is of the path to it.
void DeviceFolder::watchPath() {
    if (folderWatch_ >= 0)
        inotify_.release(std::exchange(folderWatch_, -1));
    for (int look = 0; look < looksInARow; ++look) {
        ancestors_.awaitDisappearance();
        const Result<int> watch = inotify_.add(path_, newsOfFiles | newsOfFolder);
        if (watch.ok()) {
            folderWatch_ = *watch;
            return;
        }
        ancestors_.awaitAppearance();
        const bool isMissing = watch.error().code == ENOENT || watch.error().code == ENOTDIR;
        if (!isMissing)
            logLine(LogLevel::error,
                    "Error: devices that come later are not noticed: " + watch.error().message);
        if (!isMissing || !ancestors_.nextFolderExists())
            return;
    }
}

} // namespace moxel::daemon
