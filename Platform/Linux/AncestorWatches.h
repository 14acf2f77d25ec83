// Watches on the folders above a folder: they tell when it appears, goes, or comes to lie elsewhere.
#pragma once

#include "Platform/Linux/Inotify.h"

#include <cstdint>
#include <string>
#include <vector>

namespace moxel {

/// One thread.
class AncestorWatches {
  public:
    AncestorWatches(std::string folder, Inotify &inotify);
    ~AncestorWatches();
    AncestorWatches(const AncestorWatches &) = delete;
    AncestorWatches &operator=(const AncestorWatches &) = delete;

    /// Waits for the next folder on the way down to appear, in the nearest ancestor that there is.
    void awaitAppearance();
    /// Waits for the folder to go.
    void awaitDisappearance();

    /// True when awaitAppearance() came too late for the next folder on the way down.
    [[nodiscard]] bool nextFolderExists() const;

    /// True when the event is one that was waited for.
    [[nodiscard]] bool concerns(const InotifyEvent &event) const;

  private:
    struct Ancestor {
        int watch = -1;
        std::string child; ///< Path of the next folder on the way down.
    };

    void watch(uint32_t nearestMask);
    void release();

    const std::string folder_;
    Inotify &inotify_;
    std::vector<Ancestor> ancestors_; ///< Nearest first.
};

} // namespace moxel
