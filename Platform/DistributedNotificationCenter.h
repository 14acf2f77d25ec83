// The system-wide notification centre: a name and a text object, heard by every process of the user's
// session.
#pragma once

#include "Export.h"
#include <string>

namespace moxel {

/// Posts to every listener at once, not coalesced. Any thread; returns when the message has been handed to
/// the transport. Without a transport it logs one error line per process and does nothing else.
MOXEL_EXPORT void postDistributedNotification(const std::string &name, const std::string &object) noexcept;

} // namespace moxel
