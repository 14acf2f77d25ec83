// The applications that have exported something, as the driver's index names them.
#pragma once

#include "Values/Value.h"

#include <string>
#include <vector>

namespace moxel::tool {

/// One client of the index.
struct ExportedApplication {
    std::string bundleID;
    std::string name;
    std::string clientName;

    /// How the look-ups of the library name it.
    [[nodiscard]] Dictionary preferences() const;
};

struct ApplicationFilter {
    std::string bundleID; ///< Part of it, in any case; empty for all.
    std::string name;     ///< Whole, in any case; empty for all.
};

/// In the order of the index.
[[nodiscard]] std::vector<ExportedApplication> exportedApplications(const ApplicationFilter &filter);

/// False, explained on standard error, when the driver's files cannot be looked at.
[[nodiscard]] bool hasStore();

} // namespace moxel::tool
