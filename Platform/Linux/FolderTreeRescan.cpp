// Finds out what has changed in a folder tree while events were lost.
#include "Platform/Linux/FolderTree.h"

#include "Platform/FileEvents.h"

namespace moxel {

void FolderTree::rescan() {
    if (rootWatch_ < 0) {
        locate(true);
        return;
    }
    if (!isStillWatched(root_, rootWatch_)) {
        reportContentsRemoved(rootWatch_);
        loseRoot(fileEventRemoved);
        return;
    }
    ancestors_.awaitDisappearance();
    std::deque<int> waiting{rootWatch_};
    for (; !waiting.empty(); waiting.pop_front())
        rescanFolder(waiting.front(), waiting);
}

void FolderTree::rescanFolder(int watch, std::deque<int> &waiting) {
    const auto position = folders_.find(watch);
    if (position == folders_.end())
        return;
    auto &folder = position->second;
    const auto listing = list(watch, folder.entries.size() + roomForEntries());
    const uint64_t announcedUntil = inotify_.endPosition();

    std::vector<std::string> missing;
    for (const auto &[name, entry] : folder.entries) {
        if (listing.isComplete && !listing.entries.contains(name))
            missing.push_back(name);
    }
    for (const auto &name : missing) {
        reportRemoved(folder, name, folder.entries.at(name));
        leave(folder.entries.at(name).watch);
        forget(folder, name);
    }
    for (const auto &[name, state] : listing.entries)
        rescanEntry(watch, name, {state, -1, announcedUntil}, waiting);
}

void FolderTree::rescanEntry(int watch, const std::string &name, const Entry &found,
                             std::deque<int> &waiting) {
    auto &folder = folders_.at(watch);
    const std::string path = childPath(folder.place.path, name);
    const auto known = folder.entries.find(name);
    uint32_t flags = fileEventCreated;
    if (known != folder.entries.end()) {
        auto &entry = known->second;
        const bool isWatched = entry.watch >= 0;
        if (isWatched && isStillWatched(path, entry.watch)) {
            waiting.push_back(entry.watch);
            return;
        }
        if (!isWatched && entry.state.isSameFile(found.state)) {
            if (!found.state.isFolder && !entry.state.hasSameContent(found.state))
                report_(path, fileEventModified);
            entry.state = found.state;
            return;
        }
        if (entry.state.isFolder || found.state.isFolder) {
            reportRemoved(folder, name, entry);
            leave(entry.watch);
        } else {
            flags |= fileEventRenamed; // another file in its place
        }
    }
    report_(path, flags);
    remember(folder, name, found);
    if (found.state.isFolder)
        enter({path, watch, name}, flags);
}

void FolderTree::reportRemoved(const Folder &folder, const std::string &name, const Entry &entry) {
    if (entry.watch >= 0)
        reportContentsRemoved(entry.watch);
    report_(childPath(folder.place.path, name), fileEventRemoved);
}

// The innermost first, as a removal goes.
void FolderTree::reportContentsRemoved(int watch) {
    const auto watches = subtree(watch);
    for (auto each = watches.rbegin(); each != watches.rend(); ++each) {
        const auto &folder = folders_.at(*each);
        for (const auto &[name, entry] : folder.entries)
            report_(childPath(folder.place.path, name), fileEventRemoved);
    }
}

} // namespace moxel
