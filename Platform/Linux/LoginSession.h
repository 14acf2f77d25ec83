// What logind says about the process's session.
#pragma once

#include "Platform/Session.h"

#include <optional>
#include <string>

namespace moxel {

/// Reads logind's files: the session that the process runs in or, for an application that the user's service
/// manager started, the user's session on the display, else an active session of the user. Absent when there
/// is none. Any thread.
[[nodiscard]] std::optional<SessionDescription> readLoginSession();

/// The identifier of the user's session on a seat: the one that readLoginSession() describes, else his
/// session on the display, else any, an active one first. Absent when he has none. Any thread.
[[nodiscard]] std::optional<std::string> findSeatSession();

} // namespace moxel
