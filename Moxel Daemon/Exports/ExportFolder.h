// The folder that applications export their files to, and the only one that the daemon reads exports from.
#pragma once

#include "Moxel Daemon/Archive/Value.h"
#include "Platform/Result.h"

#include <string>
#include <utility>

namespace moxel::daemon {

/// Whoever names a file here may be anyone: a path must lie below the folder by its text, in a folder of its
/// own there, and on the way down no symbolic link is followed. Only regular files are read.
///
/// Lives on one thread.
class ExportFolder {
  public:
    /// Preferences/Moxel/Applications in the user's library folder; empty when the user has none.
    [[nodiscard]] static std::string defaultPath();

    /// Absolute, without a slash at its end; empty for none.
    explicit ExportFolder(std::string path) : path_(std::move(path)) {}

    /// The property list in a file of an application.
    [[nodiscard]] Result<Value> read(const std::string &path) const;

    /// A file that lies in the folder itself; empty when it does not exist.
    [[nodiscard]] Result<Data> readOwn(const std::string &name) const;
    /// Replaces a file of the folder itself in one step; the folder must exist.
    [[nodiscard]] Result<void> replaceOwn(const std::string &name, const Data &content) const;

  private:
    std::string path_;
};

} // namespace moxel::daemon
