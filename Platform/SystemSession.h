// The platform's session service, behind currentSession().
#pragma once

#include "Session.h"

#include <optional>

namespace moxel {

/// Asks the service anew. Any thread.
[[nodiscard]] std::optional<SessionDescription> systemSession();

/// The service's `onConsole`, from memory while nothing has changed. Any thread.
[[nodiscard]] std::optional<bool> systemSessionOnConsole();

} // namespace moxel
