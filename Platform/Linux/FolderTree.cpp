// Follows a folder tree by the events of its folders.
#include "Platform/Linux/FolderTree.h"

#include "Platform/FileEvents.h"
#include "Platform/Linux/Shortage.h"
#include "Platform/Log.h"

#include <utility>

#include <sys/inotify.h>

namespace moxel {

namespace {

bool liesBelow(const std::string &path, const std::string &folder) {
    return path.size() > folder.size() && path.starts_with(folder) &&
           (folder.ends_with('/') || path[folder.size()] == '/');
}

} // namespace

FolderTree::FolderTree(std::string folder, Inotify &inotify, Report report, Limits limits)
    : root_(std::move(folder)),
      inotify_(inotify),
      report_(std::move(report)),
      limits_(limits),
      ancestors_(root_, inotify) {}

FolderTree::~FolderTree() {
    for (const auto &[watch, folder] : folders_)
        inotify_.release(watch);
}

void FolderTree::start() { locate(false); }

void FolderTree::handle(const InotifyEvent &event) {
    if ((event.mask & IN_Q_OVERFLOW) != 0) {
        rescan();
        return;
    }
    if (ancestors_.concerns(event))
        handleAncestor(event);
    const auto found = folders_.find(event.watch);
    if (found == folders_.end())
        return;
    if (event.name.empty())
        handleFolder(event.watch, event.mask);
    else if ((event.mask & (IN_CREATE | IN_MOVED_TO)) != 0)
        entryAppeared(found->second, event);
    else if ((event.mask & (IN_DELETE | IN_MOVED_FROM)) != 0)
        entryDisappeared(found->second, event);
    else
        entryChanged(found->second, event);
}

// ------------------------------------------------------------------------------------------ The top

void FolderTree::locate(bool reported) {
    // Somebody may make folders faster than they can be watched, but need not be followed for ever.
    constexpr int attempts = 16;
    for (int attempt = 0; attempt < attempts; ++attempt) {
        ancestors_.awaitDisappearance();
        if (enterRoot(reported))
            return;
        ancestors_.awaitAppearance();
        if (!ancestors_.nextFolderExists())
            return;
    }
}

bool FolderTree::enterRoot(bool reported) {
    rootWatch_ = watch({root_, -1, {}});
    if (rootWatch_ < 0)
        return false;
    if (reported)
        report_(root_, fileEventCreated);
    takeIn(rootWatch_, reported ? fileEventCreated : 0);
    return true;
}

void FolderTree::loseRoot(uint32_t flags) {
    leave(std::exchange(rootWatch_, -1));
    report_(root_, flags);
    locate(true);
}

void FolderTree::handleAncestor(const InotifyEvent &event) {
    if (rootWatch_ < 0) {
        locate(true);
    } else if (isStillWatched(root_, rootWatch_)) {
        ancestors_.awaitDisappearance(); // it has come back meanwhile, perhaps below other folders
    } else {
        const bool removed = (event.mask & (IN_DELETE | IN_DELETE_SELF | IN_IGNORED)) != 0;
        loseRoot(removed ? fileEventRemoved : fileEventRenamed);
    }
}

// ------------------------------------------------------------------------------------------ Events

void FolderTree::handleFolder(int watch, uint32_t mask) {
    const bool isRoot = watch == rootWatch_;
    if ((mask & IN_IGNORED) != 0) {
        if (isRoot)
            loseRoot(fileEventRemoved);
        else
            folderLost(watch);
    } else if (isRoot && (mask & IN_MOVE_SELF) != 0) {
        if (!isStillWatched(root_, rootWatch_))
            loseRoot(fileEventRenamed);
    } else if (isRoot && (mask & IN_ATTRIB) != 0) {
        report_(root_, fileEventMetadataChanged);
    }
}

// The kernel has dropped the watch. The folder's removal is reported with its parent's event; when another
// folder stands in its place, that event has been taken for an old one, or never comes.
void FolderTree::folderLost(int watch) {
    const Place successor = folders_.at(watch).place;
    leave(watch);
    const auto state = readFileState(successor.path);
    if (!state || !state->isFolder)
        return;
    report_(successor.path, fileEventRemoved);
    report_(successor.path, fileEventCreated);
    enter(successor, fileEventCreated);
}

void FolderTree::entryAppeared(Folder &folder, const InotifyEvent &event) {
    const std::string path = childPath(folder.place.path, event.name);
    if (const auto known = folder.entries.find(event.name); known != folder.entries.end()) {
        if (event.position < known->second.announcedUntil)
            return;
        if (const int watch = known->second.watch; watch >= 0) {
            if (isStillWatched(path, watch))
                return; // it was there, under this name, when an earlier event was handled
            leave(watch);
        }
    }
    const bool moved = (event.mask & IN_MOVED_TO) != 0;
    const uint32_t flags = moved ? fileEventCreated | fileEventRenamed : fileEventCreated;
    report_(path, flags);
    const auto state = readFileState(path);
    remember(folder, event.name, {state.value_or(FileState{}), -1, 0});
    if (state && state->isFolder)
        enter({path, event.watch, std::string(event.name)}, flags);
}

void FolderTree::entryDisappeared(Folder &folder, const InotifyEvent &event) {
    const std::string path = childPath(folder.place.path, event.name);
    const auto known = folder.entries.find(event.name);
    if (known == folder.entries.end() && folder.isComplete)
        return; // a comparison has found it missing before
    if (known != folder.entries.end() && known->second.watch >= 0) {
        if (isStillWatched(path, known->second.watch))
            return; // an older folder of that name, gone before this one was found
        leave(known->second.watch);
    }
    const bool moved = (event.mask & IN_MOVED_FROM) != 0;
    report_(path, moved ? fileEventRenamed : fileEventRemoved);
    forget(folder, event.name);
}

void FolderTree::entryChanged(Folder &folder, const InotifyEvent &event) {
    const auto known = folder.entries.find(event.name);
    if (known == folder.entries.end() && folder.isComplete)
        return; // a comparison has found it missing before
    const std::string path = childPath(folder.place.path, event.name);
    report_(path, (event.mask & IN_ATTRIB) != 0 ? fileEventMetadataChanged : fileEventModified);
    if (known == folder.entries.end())
        return;
    if (const auto state = readFileState(path))
        known->second.state = *state;
}

// ------------------------------------------------------------------------------------------ Folders

void FolderTree::enter(const Place &place, uint32_t reportedFlags) {
    if (const int entered = watch(place); entered >= 0)
        takeIn(entered, reportedFlags);
}

// Negative when the folder cannot be watched: it is gone again, may not be read, or is one too many.
int FolderTree::watch(const Place &place) {
    if (folders_.size() >= limits_.folders) {
        reportLimit("there are more than " + std::to_string(limits_.folders) + " folders");
        return -1;
    }
    if (place.parent >= 0 && entryOf(place) == nullptr)
        return -1;
    const auto added = inotify_.add(place.path, maskFor(place.path));
    if (!added) {
        if (isShortage(added.error().code)) // Else the folder has gone again, or may not be read.
            reportLimit(added.error().message);
        return -1;
    }
    if (const auto other = folders_.find(*added); other != folders_.end()) {
        // One folder under two names: it has been moved here and the event is still to come, or it is mounted
        // twice.
        if (place.path == other->second.place.path || liesBelow(place.path, other->second.place.path)) {
            inotify_.release(*added);
            return -1;
        }
        leave(*added);
    }
    folders_[*added] = {place, {}, true};
    if (auto *entry = entryOf(place))
        entry->watch = *added;
    return *added;
}

// What the folder that it lies in knows of it; null when that is nothing.
FolderTree::Entry *FolderTree::entryOf(const Place &place) {
    const auto parent = folders_.find(place.parent);
    if (parent == folders_.end())
        return nullptr;
    const auto entry = parent->second.entries.find(place.name);
    return entry != parent->second.entries.end() ? &entry->second : nullptr;
}

void FolderTree::takeIn(int watch, uint32_t reportedFlags) {
    std::deque<Place> found;
    takeInEntries(watch, reportedFlags, found);
    for (; !found.empty(); found.pop_front()) {
        if (const int entered = this->watch(found.front()); entered >= 0)
            takeInEntries(entered, reportedFlags, found);
    }
}

void FolderTree::takeInEntries(int watch, uint32_t reportedFlags, std::deque<Place> &found) {
    auto &folder = folders_.at(watch);
    const auto listing = list(watch, roomForEntries());
    const uint64_t announcedUntil = inotify_.endPosition();
    folder.isComplete = listing.isComplete;
    for (const auto &[name, state] : listing.entries) {
        const std::string path = childPath(folder.place.path, name);
        remember(folder, name, {state, -1, announcedUntil});
        if (reportedFlags != 0)
            report_(path, reportedFlags);
        if (state.isFolder)
            found.push_back({path, watch, name});
    }
}

FolderListing FolderTree::list(int watch, size_t limit) {
    const auto link = watch == rootWatch_ ? FolderLink::followed : FolderLink::notFollowed;
    auto listing = listFolder(folders_.at(watch).place.path, link, limit);
    if (listing.entries.size() >= limit && !listing.isComplete)
        reportLimit("there are more than " + std::to_string(limits_.entries) + " files");
    else if (isShortage(listing.error))
        reportLimit(
            systemError("Cannot list folder " + folders_.at(watch).place.path, listing.error).message);
    return listing;
}

void FolderTree::leave(int watch) {
    const auto folder = folders_.find(watch);
    if (folder == folders_.end())
        return;
    if (auto *entry = entryOf(folder->second.place))
        entry->watch = -1;
    for (const int each : subtree(watch)) {
        entryCount_ -= folders_.at(each).entries.size();
        folders_.erase(each);
        inotify_.release(each);
    }
}

// Folders before those that lie in them.
std::vector<int> FolderTree::subtree(int watch) const {
    std::vector<int> watches{watch};
    for (size_t i = 0; i < watches.size(); ++i) {
        for (const auto &[name, entry] : folders_.at(watches[i]).entries) {
            if (entry.watch >= 0)
                watches.push_back(entry.watch);
        }
    }
    return watches;
}

// The kernel knows best: a folder that is watched gets no second watch.
bool FolderTree::isStillWatched(const std::string &path, int watch) {
    const auto added = inotify_.add(path, maskFor(path));
    if (!added)
        return false;
    inotify_.release(*added);
    return *added == watch;
}

uint32_t FolderTree::maskFor(const std::string &path) const {
    constexpr uint32_t mask =
        IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_ATTRIB | IN_MODIFY | IN_CLOSE_WRITE;
    return path == root_ ? mask | IN_MOVE_SELF : mask | IN_DONT_FOLLOW;
}

// ------------------------------------------------------------------------------------------ Entries

void FolderTree::remember(Folder &folder, std::string_view name, const Entry &entry) {
    if (const auto known = folder.entries.find(name); known != folder.entries.end()) {
        known->second = entry;
        return;
    }
    if (roomForEntries() == 0) {
        folder.isComplete = false;
        reportLimit("there are more than " + std::to_string(limits_.entries) + " files");
        return;
    }
    folder.entries.emplace(name, entry);
    ++entryCount_;
}

void FolderTree::forget(Folder &folder, std::string_view name) {
    if (const auto known = folder.entries.find(name); known != folder.entries.end()) {
        folder.entries.erase(known);
        --entryCount_;
    }
}

void FolderTree::reportLimit(const std::string &reason) {
    if (!std::exchange(limitReported_, true))
        logLine(LogLevel::error, "Error: not every change below " + root_ + " will be noticed: " + reason);
}

} // namespace moxel
