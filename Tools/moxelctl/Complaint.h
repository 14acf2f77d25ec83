// How moxelctl says that something is wrong: what, and what to do about it.
#pragma once

#include <string>

namespace moxel::tool {

/// Two lines or more on standard error. Control characters of the problem are shown escaped.
void complain(const std::string &problem, const std::string &remedy = "");

} // namespace moxel::tool
