// A watched folder tree, and what it has reported. The kernel queues its events at once, so that nothing is
// waited for.
#pragma once

#include "Platform/FileEvents.h"
#include "Platform/Linux/FolderTree.h"
#include "Support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <string>
#include <string_view>
#include <sys/inotify.h>
#include <utility>
#include <vector>

/// Of its own, because the words for events are short ones.
namespace moxel::foldertree {

/// A path and its flags.
struct Event : std::pair<std::string, uint32_t> {
    using std::pair<std::string, uint32_t>::pair;
};
using Events = std::vector<Event>;

inline void PrintTo(const Event &event, std::ostream *stream) {
    *stream << event.first << " 0x" << std::hex << event.second << std::dec;
}

inline constexpr uint32_t created = fileEventCreated;
inline constexpr uint32_t removed = fileEventRemoved;
inline constexpr uint32_t attributes = fileEventMetadataChanged;
inline constexpr uint32_t renamed = fileEventRenamed;
inline constexpr uint32_t movedIn = fileEventCreated | fileEventRenamed;
inline constexpr uint32_t modified = fileEventModified;

/// A tree over a folder, and what it has reported.
class WatchedTree {
  public:
    explicit WatchedTree(const std::string &folder, FolderTree::Limits limits = {})
        : tree_(
              folder, inotify_,
              [this](const std::string &path, uint32_t flags) { events_.emplace_back(path, flags); },
              limits) {
        tree_.start();
    }

    /// The events since the last call.
    Events events() {
        while (inotify_.read([this](const InotifyEvent &event) { tree_.handle(event); }))
            continue;
        return std::exchange(events_, {});
    }
    /// The same without equal neighbours, where the kernel may report one step or two.
    Events distinctEvents() {
        Events all = events();
        all.erase(std::unique(all.begin(), all.end()), all.end());
        return all;
    }
    /// Loses what the kernel has queued, as a full queue does.
    Events eventsAfterOverflow() {
        while (inotify_.read([](const InotifyEvent &) {}))
            continue;
        tree_.handle({-1, IN_Q_OVERFLOW, {}, 0});
        return events();
    }
    /// Handles up to one buffer of events.
    void handleSome() {
        inotify_.read([this](const InotifyEvent &event) { tree_.handle(event); });
    }

  private:
    Inotify inotify_ = *Inotify::create();
    FolderTree tree_;
    Events events_;
};

inline void append(const std::string &path, std::string_view text) {
    std::ofstream(path, std::ios::app | std::ios::binary) << text;
}

inline std::vector<std::string> pathsWith(uint32_t flags, const Events &events) {
    std::vector<std::string> paths;
    for (const auto &[path, eventFlags] : events) {
        if (eventFlags == flags)
            paths.push_back(path);
    }
    return paths;
}

/// A folder to watch, with something in it, and one outside.
class FolderTreeFiles : public ::testing::Test {
  protected:
    FolderTreeFiles() {
        folder.write("known", "content");
        std::filesystem::create_directory(folder.path("below"));
        folder.write("below/known", "content");
    }
    test::TemporaryFolder folder;
    test::TemporaryFolder outside;
};

} // namespace moxel::foldertree
