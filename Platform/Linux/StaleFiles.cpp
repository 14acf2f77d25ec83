// Walks a tree with one open folder at a time, going up again through "..".
#include "Platform/StaleFiles.h"

#include "Platform/Linux/Descriptor.h"
#include "Platform/Linux/FolderStream.h"

#include <optional>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace moxel {

namespace {

constexpr int folderFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

struct FileIdentity {
    dev_t device = 0;
    ino_t inode = 0;
    friend bool operator==(const FileIdentity &, const FileIdentity &) = default;
};

struct FileDescription {
    FileIdentity identity;
    bool isFolder = false;
    bool isMountPoint = false; ///< A bind mount of the same file system, too.
    FileTime created;
};

FileTime timeOf(const statx_timestamp &time) {
    return fileTime(std::chrono::seconds(time.tv_sec), std::chrono::nanoseconds(time.tv_nsec));
}

// An empty name describes the open folder itself.
std::optional<FileDescription> describe(int folder, const char *name) {
    struct statx status {};
    if (::statx(folder, name, AT_SYMLINK_NOFOLLOW | AT_EMPTY_PATH | AT_NO_AUTOMOUNT,
                STATX_TYPE | STATX_INO | STATX_CTIME | STATX_BTIME, &status) != 0)
        return std::nullopt;
    const bool hasCreationTime = (status.stx_mask & STATX_BTIME) != 0;
    return FileDescription{{makedev(status.stx_dev_major, status.stx_dev_minor), status.stx_ino},
                           S_ISDIR(status.stx_mode),
                           (status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0,
                           timeOf(hasCreationTime ? status.stx_btime : status.stx_ctime)};
}

bool isFolder(int folder, const FileIdentity &identity) {
    const auto description = describe(folder, "");
    return description && description->identity == identity;
}

std::vector<std::string> namesIn(int folder) {
    std::vector<std::string> names;
    const FolderStream stream = readEntriesOf(Descriptor(::openat(folder, ".", folderFlags)));
    if (!stream)
        return names;
    // The stream is this thread's own.
    while (const dirent *entry = ::readdir(stream.get())) { // NOLINT(concurrency-mt-unsafe)
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..")
            names.emplace_back(name);
    }
    return names;
}

class StaleFileRemover {
  public:
    explicit StaleFileRemover(FileTime limit) : limit_(limit) {}

    void run(const std::string &folder) {
        current_.reset(::open(folder.c_str(), folderFlags));
        const auto description = current_ ? describe(current_.get(), "") : std::nullopt;
        if (!description)
            return;
        levels_.push_back({{}, description->identity, false, namesIn(current_.get())});
        while (!levels_.empty()) {
            auto &names = levels_.back().names;
            if (names.empty()) {
                if (!leave())
                    return;
            } else {
                const std::string name = std::move(names.back());
                names.pop_back();
                visit(name);
            }
        }
    }

  private:
    /// A folder on the way from the first one to the current one.
    struct Level {
        std::string name;
        FileIdentity identity;
        bool isStale;                   ///< It goes with everything in it.
        std::vector<std::string> names; ///< Yet to be visited.
    };

    void visit(const std::string &name) {
        const auto description = describe(current_.get(), name.c_str());
        if (!description || description->isMountPoint ||
            description->identity.device != levels_.back().identity.device)
            return;
        const bool isStale = levels_.back().isStale || description->created < limit_;
        if (description->isFolder && enter(name, *description, isStale))
            return;
        if (isStale)
            remove(name, description->isFolder);
    }

    // False when the folder cannot be entered and left again.
    bool enter(const std::string &name, const FileDescription &description, bool isStale) {
        Descriptor child(::openat(current_.get(), name.c_str(), folderFlags | O_NOFOLLOW));
        if (!child || !isFolder(child.get(), description.identity) ||
            !Descriptor(::openat(child.get(), "..", folderFlags)))
            return false;
        current_ = std::move(child);
        levels_.push_back({name, description.identity, isStale, namesIn(current_.get())});
        return true;
    }

    // False at the end, and when somebody moved the tree meanwhile.
    bool leave() {
        const Level left = std::move(levels_.back());
        levels_.pop_back();
        if (levels_.empty())
            return false;
        Descriptor parent(::openat(current_.get(), "..", folderFlags));
        if (!parent || !isFolder(parent.get(), levels_.back().identity))
            return false;
        current_ = std::move(parent);
        if (left.isStale)
            remove(left.name, true);
        return true;
    }

    // What cannot be removed stays, by contract.
    void remove(const std::string &name, bool isFolder) const {
        (void)::unlinkat(current_.get(), name.c_str(), isFolder ? AT_REMOVEDIR : 0);
    }

    FileTime limit_;
    Descriptor current_; ///< The folder of the last level.
    std::vector<Level> levels_;
};

} // namespace

void removeFilesCreatedBefore(const std::string &folder, FileTime time) {
    StaleFileRemover(time).run(folder);
}

} // namespace moxel
