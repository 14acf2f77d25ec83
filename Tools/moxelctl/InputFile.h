// What a user names as input: a file, or standard input.
#pragma once

#include "Platform/Result.h"

#include <cstdint>
#include <string>
#include <vector>

namespace moxel::tool {

/// Larger inputs are refused.
inline constexpr size_t inputLimit = size_t{64} << 20;

/// The whole content of a file; "-" is standard input. The error says which file and why.
[[nodiscard]] Result<std::vector<uint8_t>> readInput(const std::string &path);

/// The name for messages.
[[nodiscard]] std::string inputName(const std::string &path);

} // namespace moxel::tool
