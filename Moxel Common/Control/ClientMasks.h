// The masks with which a session tells the daemon which events it wants.
#pragma once

#include <cstdint>

namespace moxel {

/// Sends both flags and both masks, whatever the flags say; the daemon takes the masks whose flags are set.
/// Nothing tells the caller whether it did. Any thread but a client thread; waits up to 2.0 s.
void SetMoxelClientMasks(uint16_t clientID, bool setMask, uint32_t mask, bool setButtonMask,
                         uint32_t buttonMask);

} // namespace moxel
