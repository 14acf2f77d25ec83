// Takes what clients export: reads the files that they name, keeps the index, finds the active actions.
#pragma once

#include "Moxel Daemon/Exports/ActionSets.h"
#include "Moxel Daemon/Exports/ExportFolder.h"
#include "Moxel Daemon/Exports/SyncIndex.h"
#include "Moxel Daemon/Protocol/ClientRequests.h"
#include "Platform/Result.h"

#include <optional>
#include <string>
#include <vector>

namespace moxel::daemon {

/// What a client has exported so far.
struct ClientExports {
    std::optional<std::string> commandsFile; ///< Paths, each once its file was read.
    std::optional<std::string> imagesFile;
    std::optional<std::string> settingsFile;
    size_t imageCount = 0;
    size_t settingCount = 0;
    std::string activeSet;               ///< Empty while there is none.
    std::vector<ExportedAction> actions; ///< Of the active set, those that buttons reach.
};

/// Lives on the daemon's thread.
class ExportDesk {
  public:
    /// Bytes of an action set's identifier; longer ones are refused.
    static constexpr size_t identifierLimit = 2048;

    explicit ExportDesk(std::string folder) : folder_(std::move(folder)) {}
    ExportDesk(const ExportDesk &) = delete;
    ExportDesk &operator=(const ExportDesk &) = delete;

    /// Serves a request of a client that is registered as `application`. When a file cannot be read,
    /// `exports` stays as it was.
    [[nodiscard]] Result<void> serve(const ApplicationRecord &application, const ExportRequest &request,
                                     ClientExports &exports) const;

  private:
    [[nodiscard]] Result<void> takeCommands(const std::string &path, ClientExports &exports) const;
    [[nodiscard]] Result<void> takeImages(const std::string &path, ClientExports &exports) const;
    [[nodiscard]] Result<void> takeSettings(const std::string &path, ClientExports &exports) const;
    [[nodiscard]] Result<void> activate(const std::string &setIdentifier, ClientExports &exports) const;
    [[nodiscard]] Result<Dictionary> readDictionary(const std::string &path) const;
    /// The dictionary under a key of a file.
    [[nodiscard]] Result<Dictionary> readPart(const std::string &path, const std::string &key) const;

    ExportFolder folder_;
    SyncIndex index_{folder_};
};

} // namespace moxel::daemon
