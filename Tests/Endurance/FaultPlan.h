// What one session of the fault program does, and what goes wrong meanwhile.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace moxel::endurance {

struct FaultPlan {
    enum class Fault {
        none,
        daemonSwitch,   ///< The daemon does something wrong, as told on its command line.
        daemonKilled,   ///< SIGKILL after a while.
        daemonStopped,  ///< SIGSTOP after a while, for three seconds.
        fullDisk,       ///< Under the exports.
        readOnlyFolder, ///< Likewise.
        allocation,     ///< Allocations fail.
        descriptors,    ///< The process may open few files more.
    };
    /// A call of the application's between registration and its end.
    enum class Step {
        control,
        deviceID,
        mask,
        buttonMask,
        message,
        longMessage,
        tree,
        images,
        setting,
        readSetting,
        actionSet,
        preferences,
        dispatch,
    };

    /// The same for the same numbers, always.
    static FaultPlan draw(uint64_t seed, uint64_t number);

    Fault fault = Fault::none;
    std::vector<std::string> switches; ///< Of the daemon's command line.
    uint64_t delayMicroseconds = 0; ///< From the begin of the session until the daemon is killed or stopped.
    uint64_t firstAllocation = 0;   ///< That fails.
    uint64_t failedAllocations = 1;
    uint64_t room = 0; ///< Bytes left on the disk, or descriptors left.
    bool isThreaded = false;
    bool logs = false;
    std::vector<Step> steps;

    /// One line.
    [[nodiscard]] std::string description() const;
};

[[nodiscard]] const char *faultName(FaultPlan::Fault fault);

} // namespace moxel::endurance
