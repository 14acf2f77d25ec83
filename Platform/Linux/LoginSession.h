// What logind says about the process's session.
#pragma once

#include "Platform/Session.h"

#include <optional>

namespace moxel {

/// Reads logind's files: the session that the process runs in or, for an application that the user's service
/// manager started, the user's session on the display, else an active session of the user. Absent when there
/// is none. Any thread.
[[nodiscard]] std::optional<SessionDescription> readLoginSession();

} // namespace moxel
