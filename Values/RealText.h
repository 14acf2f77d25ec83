// Reals as printf prints them, the same in every locale.
#pragma once

#include <string>

namespace moxel::detail {

/// What snprintf prints in the "C" locale for "%.{precision}{conversion}"; the conversion is 'f' or 'g'.
[[nodiscard]] std::string realText(double real, char conversion, int precision);

/// The fewest digits that read back as the same number: "1", "0.1", "1e+20", "nan", "-inf".
[[nodiscard]] std::string shortestRealText(double real);

} // namespace moxel::detail
