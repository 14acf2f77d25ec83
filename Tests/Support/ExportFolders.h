// A user library and a machine's application support of a test's own.
#pragma once

#include "Support/EnvironmentVariable.h"
#include "Support/TemporaryFolder.h"

#include <string>
#include <string_view>

namespace moxel::test {

/// What the system reads and writes below the user's and the machine's folders lies in a temporary folder
/// meanwhile.
class ExportFolders {
  public:
    [[nodiscard]] std::string userLibrary() const { return folder_.path("config"); }
    [[nodiscard]] std::string applicationSupport() const { return folder_.path("share"); }
    /// The export base folder, which may not exist yet.
    [[nodiscard]] std::string base() const { return userLibrary() + "/Preferences/Moxel/Applications"; }
    [[nodiscard]] std::string base(std::string_view name) const { return base() + '/' + std::string(name); }

    /// A place outside the folders above.
    [[nodiscard]] std::string outside(std::string_view name = "outside") const { return folder_.path(name); }

    /// Writes a file of the test's own below the temporary folder; its path.
    std::string write(std::string_view path, std::string_view content = {}) const {
        return folder_.write(path.substr(folder_.path().size() + 1), content);
    }

  private:
    TemporaryFolder folder_;
    EnvironmentVariable configuration_{"XDG_CONFIG_HOME", folder_.path("config")};
    EnvironmentVariable data_{"XDG_DATA_DIRS", folder_.path("share")};
};

} // namespace moxel::test
