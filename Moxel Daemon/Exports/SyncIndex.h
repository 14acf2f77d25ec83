// The index of the applications that exported something: SyncApplications.plist.
#pragma once

#include "Moxel Daemon/Exports/ExportFolder.h"
#include "Moxel Daemon/Protocol/ClientRequests.h"
#include "Platform/Result.h"

#include <string>

namespace moxel::daemon {

/// A property list: bundle identifier, then a key for each client of that bundle, then "clientname", "name",
/// "processname" and, each once it was exported, the paths "commandsfile", "imagesfile" and "settingsfile".
///
/// Who looks an application up takes the first key that contains its bundle identifier, and of its clients
/// the first of the wanted name. So shorter identifiers stand before longer ones, and among clients the one
/// that exported last stands first.
///
/// The file is read before every change, so that it may be edited or removed while the daemon runs. One that
/// cannot be read is put aside as SyncApplications.damaged.plist.
///
/// Lives on the daemon's thread.
class SyncIndex {
  public:
    static constexpr const char *fileName = "SyncApplications.plist";
    static constexpr const char *damagedFileName = "SyncApplications.damaged.plist";
    /// Clients of one bundle that are remembered.
    static constexpr size_t clientLimit = 64;

    explicit SyncIndex(const ExportFolder &folder) : folder_(folder) {}

    /// Notes under one of the three path keys where a client's file lies.
    [[nodiscard]] Result<void> note(const ApplicationRecord &application, const std::string &pathKey,
                                    const std::string &path) const;

  private:
    [[nodiscard]] Result<Dictionary> read() const;

    const ExportFolder &folder_;
};

} // namespace moxel::daemon
