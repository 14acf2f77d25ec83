// The folder that applications export their files to, and the only one that the daemon reads exports from.
#pragma once

#include "Moxel Daemon/Archive/Value.h"
#include "Platform/Linux/Descriptor.h"
#include "Platform/Result.h"

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace moxel::daemon {

/// Whoever names a file here may be anyone: a path must lie below the folder by its text, in a folder of its
/// own there, and on the way down no symbolic link is followed. Only regular files are read.
///
/// Lives on one thread.
class ExportFolder {
  public:
    /// "…/Preferences/Moxel/Applications" in the user's library folder; empty when the user has none.
    static std::string defaultPath();

    explicit ExportFolder(std::string path) : path_(std::move(path)) {}

    [[nodiscard]] const std::string &path() const noexcept { return path_; }

    /// The property list in a file of an application.
    [[nodiscard]] Result<Value> read(const std::string &path) const;

    /// A file that lies in the folder itself; empty when it does not exist.
    [[nodiscard]] Result<Data> readOwn(const std::string &name) const;
    /// Replaces a file of the folder itself in one step; the folder must exist.
    [[nodiscard]] Result<void> replaceOwn(const std::string &name, const Data &content) const;
    [[nodiscard]] Result<void> renameOwn(const std::string &name, const std::string &newName) const;

  private:
    [[nodiscard]] Result<Descriptor> openFolder() const;
    [[nodiscard]] Result<std::vector<std::string>> componentsBelow(const std::string &path) const;

    std::string path_; ///< Absolute, without a slash at its end; empty when there is none.
};

} // namespace moxel::daemon
