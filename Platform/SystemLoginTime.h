// The platform's sources of the login time, behind loginTime().
#pragma once

#include "LoginTime.h"

#include <optional>

namespace moxel {

/// Asks anew. Any thread.
[[nodiscard]] std::optional<LoginTime> systemLoginTime();

} // namespace moxel
