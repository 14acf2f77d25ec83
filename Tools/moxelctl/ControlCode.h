// Control codes as a user writes them: four characters or a number.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace moxel::tool {

/// "mvid", or a number: "0x6D766964" or decimal. Four characters that do not begin with "0x" are always a
/// code.
[[nodiscard]] std::optional<uint32_t> controlCodeFromText(const std::string &text);

/// The four characters when all can be printed, else the number in hexadecimal.
[[nodiscard]] std::string textFromControlCode(uint32_t code);

} // namespace moxel::tool
