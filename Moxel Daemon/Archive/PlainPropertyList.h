// Whole property lists, as they lie in files, to and from plain values.
#pragma once

#include "Moxel Daemon/Archive/Value.h"
#include "Platform/Result.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace moxel::daemon {

/// Largest list that is read.
inline constexpr size_t propertyListSizeLimit = size_t{8} << 20;

/// A date as a value: the record that it is in archives.
[[nodiscard]] Value dateValue(double secondsSince2001);

/// Reads the binary or the XML form. Shared objects that would expand beyond all measure, archive references,
/// nesting beyond Value::depthLimit and more than propertyListSizeLimit bytes are errors.
[[nodiscard]] Result<Value> readPropertyList(std::span<const uint8_t> bytes);

/// Writes the binary form. Null and records other than dates are errors.
[[nodiscard]] Result<Data> writePropertyList(const Value &root);

} // namespace moxel::daemon
