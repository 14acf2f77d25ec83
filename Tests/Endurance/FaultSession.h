// One session with a fault and what must hold about it, in a process of its own.
#pragma once

#include "Endurance/FaultPlan.h"

#include <string>

namespace moxel::endurance {

struct FaultSetting {
    std::string daemon;    ///< The program moxeld.
    std::string trace;     ///< That the daemon plays.
    std::string resources; ///< What XDG_DATA_DIRS names.
    std::string scratch;   ///< A folder of the session's own.
};

enum class FaultOutcome { passed = 0, failed = 1, skipped = 77 };

/// Runs the plan; complaints go to standard error. Call it once in a process that has one thread.
[[nodiscard]] FaultOutcome runFaultSession(const FaultPlan &plan, const FaultSetting &setting);

} // namespace moxel::endurance
