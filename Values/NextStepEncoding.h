// The character set of octal escapes in old-style property lists.
#pragma once

#include <cstdint>

namespace moxel::detail {

/// The UTF-16 unit of a byte in the NeXTSTEP encoding; U+FFFD for the two bytes that it leaves open.
[[nodiscard]] char16_t unitFromNextStep(uint8_t byte) noexcept;

} // namespace moxel::detail
