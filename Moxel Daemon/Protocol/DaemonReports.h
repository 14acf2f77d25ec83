// The input reports that the daemon sends, byte by byte.
#pragma once

#include "Moxel Common/Protocol/WireLayouts.h"
#include "Moxel Daemon/Archive/Value.h"

#include <cstdint>

namespace moxel::daemon {

[[nodiscard]] Data stateReport(const MoxelStateRecord &record);
[[nodiscard]] Data acknowledgementReport();
[[nodiscard]] Data registrationAnswerReport(uint16_t clientID, uint64_t channelID);
/// Tells of a packet of `size` bytes in storage slot 0.
[[nodiscard]] Data dataWaitingReport(uint16_t size, bool wantsAnswer);
[[nodiscard]] Data storedDataQueryReport();
[[nodiscard]] Data registerAgainReport();

} // namespace moxel::daemon
