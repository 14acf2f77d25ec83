// The login session that the process belongs to: is it on the console, and whose is it.
#pragma once

#include "Export.h"
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace moxel {

/// What the session service says; a member is absent when the service cannot tell it.
struct SessionDescription {
    std::optional<bool> onConsole;       ///< Whether the session is the one on the console.
    std::optional<std::string> userName; ///< Short user name.
};

/// The current session; absent for a process outside any session. Any thread.
[[nodiscard]] MOXEL_EXPORT std::optional<SessionDescription> currentSession();

/// currentSession()'s `onConsole` alone, at the price of a memory read while the session stays as it is. Any
/// thread.
[[nodiscard]] MOXEL_EXPORT std::optional<bool> currentSessionOnConsole();

/// The account database's user identifier for a short user name.
[[nodiscard]] MOXEL_EXPORT std::optional<uint32_t> userIdentifierForName(const std::string &name);

/// Replaces the session service until destroyed. For tests, which need sessions that the machine does not
/// have.
class MOXEL_EXPORT SessionOverride {
  public:
    /// `source` tells the session instead, on any thread.
    explicit SessionOverride(std::function<std::optional<SessionDescription>()> source);
    ~SessionOverride();
    SessionOverride(const SessionOverride &) = delete;
    SessionOverride &operator=(const SessionOverride &) = delete;
};

} // namespace moxel
