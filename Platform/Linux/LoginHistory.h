// The machine's history of logins.
#pragma once

#include "Platform/LoginTime.h"

#include <optional>
#include <string>
#include <vector>

namespace moxel {

/// The time of the newest login of the user on one of the terminals ("tty2") or displays (":0"), from a file
/// of the system's accounting records, which is read from its end. Absent when there is none. Any thread.
[[nodiscard]] std::optional<LoginTime> newestLogin(const std::string &file, const std::string &user,
                                                   const std::vector<std::string> &places);

} // namespace moxel
