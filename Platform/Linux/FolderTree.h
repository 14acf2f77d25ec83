// A watched folder and everything below it: turns inotify events into file events.
#pragma once

#include "Platform/Linux/AncestorWatches.h"
#include "Platform/Linux/FolderListing.h"
#include "Platform/Linux/Inotify.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace moxel {

/// Knows what lies in the tree, so that it can tell new from known where events were lost (the queue
/// overflowed) or came too late (a new folder was filled before it was watched). One thread.
class FolderTree {
  public:
    /// Receives a path that begins with the folder as it was given, and fileEvent... flags.
    using Report = std::function<void(const std::string &path, uint32_t flags)>;

    /// What the tree may hold; what lies beyond is not watched, or not told apart after an overflow.
    struct Limits {
        size_t folders = 8192;
        size_t entries = 100'000;
    };

    FolderTree(std::string folder, Inotify &inotify, Report report, Limits limits);
    ~FolderTree();
    FolderTree(const FolderTree &) = delete;
    FolderTree &operator=(const FolderTree &) = delete;

    /// Takes in what is there, without a report.
    void start();
    /// Every event of the inotify instance goes through here, in order.
    void handle(const InotifyEvent &event);

  private:
    struct Entry {
        FileState state;
        int watch = -1; ///< Of a watched folder.
        /// Found by listing the folder: the event of its creation may still come, up to this position.
        uint64_t announcedUntil = 0;
    };
    /// Where a folder lies.
    struct Place {
        std::string path;
        int parent = -1; ///< Watch of the folder that it lies in.
        std::string name;
    };
    struct Folder {
        Place place;
        std::map<std::string, Entry, std::less<>> entries;
        bool isComplete = true; ///< Every entry is in `entries`.
    };

    // The folder at the top.
    void locate(bool reported);
    [[nodiscard]] bool enterRoot(bool reported);
    void loseRoot(uint32_t flags);
    void handleAncestor(const InotifyEvent &event);

    // Events of a watched folder.
    void handleFolder(int watch, uint32_t mask);
    void folderLost(int watch);
    void entryAppeared(Folder &folder, const InotifyEvent &event);
    void entryDisappeared(Folder &folder, const InotifyEvent &event);
    void entryChanged(Folder &folder, const InotifyEvent &event);

    // Folders coming and going.
    void enter(const Place &place, uint32_t reportedFlags);
    [[nodiscard]] int watch(const Place &place);
    void takeIn(int watch, uint32_t reportedFlags);
    void takeInEntries(int watch, uint32_t reportedFlags, std::deque<Place> &found);
    [[nodiscard]] FolderListing list(int watch, size_t limit);
    void leave(int watch);
    [[nodiscard]] std::vector<int> subtree(int watch) const;
    [[nodiscard]] bool isStillWatched(const std::string &path, int watch);
    [[nodiscard]] uint32_t maskFor(const std::string &path) const;

    // What is known of a folder's entries.
    [[nodiscard]] Entry *entryOf(const Place &place);
    void remember(Folder &folder, std::string_view name, const Entry &entry);
    void forget(Folder &folder, std::string_view name);
    [[nodiscard]] size_t roomForEntries() const { return limits_.entries - entryCount_; }
    void reportLimit(const std::string &reason);

    // Comparison of what is known with what is there now.
    void rescan();
    void rescanFolder(int watch, std::deque<int> &waiting);
    void rescanEntry(int watch, const std::string &name, const Entry &found, std::deque<int> &waiting);
    void reportRemoved(const Folder &folder, const std::string &name, const Entry &entry);
    void reportContentsRemoved(int watch);

    const std::string root_;
    Inotify &inotify_;
    const Report report_;
    const Limits limits_;
    AncestorWatches ancestors_;
    std::map<int, Folder> folders_; ///< By watch.
    int rootWatch_ = -1;            ///< -1 while the folder is not there.
    size_t entryCount_ = 0;
    bool limitReported_ = false;
};

} // namespace moxel
