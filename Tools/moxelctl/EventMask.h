// Which events are wanted, as a user writes it.
#pragma once

#include <CLI/CLI.hpp>

#include <cstdint>
#include <string>

namespace moxel::tool {

inline constexpr uint32_t everything = 0xFFFFFFFF;

/// Adds an option for an event mask: "all", "none", "motion,buttons,application" or a number.
CLI::Option *addEventMask(CLI::App &command, const std::string &names, uint32_t &mask,
                          const std::string &description);
/// Adds an option for a button mask: "all", "none", button numbers from 1 on ("1,2,12") or a hexadecimal
/// number with "0x".
CLI::Option *addButtonMask(CLI::App &command, const std::string &names, uint32_t &mask,
                           const std::string &description);

} // namespace moxel::tool
