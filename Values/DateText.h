// Dates as property lists spell them, in the Gregorian calendar, always UTC.
#pragma once

#include "../Platform/Export.h"
#include "Value.h"

#include <optional>
#include <string>
#include <string_view>

namespace moxel::detail {

/// "2004-10-26T10:33:33Z", as XML has it. Years may be negative (year 0 comes before year 1) and longer.
[[nodiscard]] std::optional<Date> dateFromXMLText(std::string_view text);

/// "2004-10-26 10:33:33 +0000", as old-style text has it.
[[nodiscard]] std::optional<Date> dateFromOpenStepText(std::string_view text);

/// The form of XML. Fractions of a second are cut off. Nothing for what is not finite and for dates beyond
/// years of eight digits.
[[nodiscard]] MOXEL_EXPORT std::optional<std::string> xmlTextFromDate(Date date);

} // namespace moxel::detail
