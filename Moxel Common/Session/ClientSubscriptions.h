// The notifications that a client listens to.
#pragma once

#include "Platform/NotificationCenter.h"
#include <Moxel/MoxelClientAPI.h>

namespace moxel {

/// Guarded by the client's fieldMutex_ once its thread runs.
struct MoxelClientAPI::Subscriptions {
    NotificationSubscription fileChange;
    NotificationSubscription callerThreadExit;
    NotificationSubscription sessionResignedActive;
    NotificationSubscription applicationTerminated;
};

} // namespace moxel
