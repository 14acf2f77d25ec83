// Sends requests on a session's dedicated channel.
#pragma once

#include <Moxel/MoxelClientAPI.h>

namespace moxel {

// With the class-wide lock held, which keeps a request and its acknowledgement apart from those of others.

/// Sends what a request holds; false for null and when the dedicated channel is missing. With `requireACK` it
/// waits up to 2.0 s for the acknowledgement, true when that has come: not on the client thread, which
/// receives it.
[[nodiscard]] bool sendRequest(MoxelClientAPI &client, const Data &request, bool requireACK);

/// Archives a request, sends it and waits for its acknowledgement.
[[nodiscard]] bool sendAcknowledgedRequest(MoxelClientAPI &client, const Dictionary &request);

} // namespace moxel
