// Numbers as a user writes them.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace moxel::tool {

/// The number that the whole text spells: "-" or nothing, then decimal digits, or "0x" and hexadecimal ones.
/// Absent when it is something else or does not lie between the bounds.
[[nodiscard]] std::optional<int64_t> numberFromText(std::string_view text, int64_t lowest, int64_t highest);

} // namespace moxel::tool
