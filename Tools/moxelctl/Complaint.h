// How moxelctl says that something is wrong: what, and what to do about it.
#pragma once

#include <cstddef>
#include <string>

namespace moxel::tool {

/// The lines of a remedy, each behind so many blanks and with its end; control characters are shown escaped.
[[nodiscard]] std::string remedyText(const std::string &remedy, size_t indentation);

/// Two lines or more on standard error. Control characters of the problem are shown escaped.
void complain(const std::string &problem, const std::string &remedy = "");

} // namespace moxel::tool
