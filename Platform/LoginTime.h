// When the user logged in at the machine's console.
#pragma once

#include "Export.h"

#include <chrono>
#include <optional>

namespace moxel {

using LoginTime = std::chrono::time_point<std::chrono::system_clock, std::chrono::seconds>;

/// The start of the user's session on a seat, in whole seconds, as the session service knows it; else the
/// time of the newest entry in the login history for the terminal or display of that session. Absent when
/// neither tells. Any thread; at most about a second.
[[nodiscard]] MOXEL_EXPORT std::optional<LoginTime> loginTime();

/// Replaces the answer until destroyed; the newest one counts. For tests, which need logins that the machine
/// has not seen.
class MOXEL_EXPORT LoginTimeOverride {
  public:
    explicit LoginTimeOverride(std::optional<LoginTime> time);
    ~LoginTimeOverride();
    LoginTimeOverride(const LoginTimeOverride &) = delete;
    LoginTimeOverride &operator=(const LoginTimeOverride &) = delete;
};

} // namespace moxel
