// Watches from a folder's parent up to the root.
#include "Platform/Linux/AncestorWatches.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include <sys/inotify.h>
#include <sys/stat.h>

namespace moxel {

namespace {

constexpr uint32_t selfMask = IN_MOVE_SELF | IN_DELETE_SELF;

std::string_view withoutTrailingSlashes(std::string_view path) {
    while (path.size() > 1 && path.ends_with('/'))
        path.remove_suffix(1);
    return path;
}

std::string_view lastComponent(std::string_view path) {
    path = withoutTrailingSlashes(path);
    return path.substr(path.rfind('/') + 1);
}

// Empty when there is nothing above.
std::string parentOf(std::string_view path) {
    path = withoutTrailingSlashes(path);
    if (path == "/" || path == ".")
        return {};
    const auto slash = path.rfind('/');
    if (slash == std::string_view::npos)
        return ".";
    return std::string(withoutTrailingSlashes(path.substr(0, slash + 1)));
}

} // namespace

AncestorWatches::AncestorWatches(std::string folder, Inotify &inotify)
    : folder_(std::move(folder)), inotify_(inotify) {}

AncestorWatches::~AncestorWatches() { release(); }

void AncestorWatches::awaitAppearance() { watch(IN_CREATE | IN_MOVED_TO | IN_ATTRIB); }

void AncestorWatches::awaitDisappearance() { watch(IN_DELETE | IN_MOVED_FROM); }

void AncestorWatches::watch(uint32_t nearestMask) {
    release();
    std::string child = folder_;
    for (std::string path = parentOf(child); !path.empty(); path = parentOf(child)) {
        const uint32_t mask = ancestors_.empty() ? selfMask | nearestMask : selfMask;
        // Folders that may not be read cannot be watched; those above them can.
        if (const auto added = inotify_.add(path, mask))
            ancestors_.push_back({*added, child});
        child = path;
    }
}

void AncestorWatches::release() {
    for (const auto &ancestor : ancestors_)
        inotify_.release(ancestor.watch);
    ancestors_.clear();
}

bool AncestorWatches::nextFolderExists() const {
    struct stat status {};
    return !ancestors_.empty() && ::stat(ancestors_.front().child.c_str(), &status) == 0 &&
           S_ISDIR(status.st_mode);
}

bool AncestorWatches::concerns(const InotifyEvent &event) const {
    return std::ranges::any_of(ancestors_, [&event](const Ancestor &ancestor) {
        return ancestor.watch == event.watch &&
               (event.name.empty() || event.name == lastComponent(ancestor.child));
    });
}

} // namespace moxel
