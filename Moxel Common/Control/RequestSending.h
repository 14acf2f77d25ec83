// Sends a request dictionary on a session's dedicated channel.
#pragma once

#include <Moxel/MoxelClientAPI.h>

namespace moxel {

/// Archives the request, sends it and waits up to 2.0 s for its acknowledgement; true when that has come.
/// With the class-wide lock held; not on the client thread, which receives the acknowledgement.
[[nodiscard]] bool sendAcknowledgedRequest(MoxelClientAPI &client, const Dictionary &request);

} // namespace moxel
