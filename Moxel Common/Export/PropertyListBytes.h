// Property lists that are read to be changed and written without loss.
#pragma once

#include "Platform/Result.h"
#include "Values/Value.h"

#include <cstdint>
#include <span>
#include <string>

namespace moxel {

/// A property list of any form. Every container is mutable and, unlike in the bytes perhaps, stands in one
/// place only, so that a change shows there only. An error too when the containers would thereby multiply
/// beyond all measure.
[[nodiscard]] Result<Value> readMutablePropertyList(std::span<const uint8_t> bytes);

/// The bytes of the XML form; of the binary form where XML cannot express the list to the last bit.
[[nodiscard]] Result<std::string> losslessPropertyList(const Value &root);

} // namespace moxel
