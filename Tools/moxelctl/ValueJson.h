// Values as JSON.
#pragma once

#include "Platform/Result.h"
#include "Values/Value.h"

#include <string>

namespace moxel::tool {

enum class JsonLayout { oneLine, indented };

/// Numbers, booleans, text, arrays and dictionaries are what JSON has for them, null is null. The others are
/// objects:
///
///     {"$data": "4d58"}                                         bytes, in hexadecimal
///     {"$date": "2001-01-01T00:00:00Z", "$seconds": 0.5}        a date; seconds since 2001 to the fraction
///     {"$uid": 3}                                               a reference of an archive that is not
///     decoded
///     {"$real": "nan"}                                          what is no number in JSON: nan, inf, -inf
///     {"$class": "Name", "$classes": ["Name", "NSObject"], "$members": {...}}       a record
///
/// An error for more than 256 MiB, which only what stands in several places can come to.
[[nodiscard]] Result<std::string> jsonText(const Value &value, JsonLayout layout);

/// The shortest decimal text that reads back as the number; "nan", "inf" or "-inf" for what is no number.
[[nodiscard]] std::string realText(double real);

} // namespace moxel::tool
