// One value of a HID report element, as input parsers hand it out.
#pragma once

#include <cstddef>
#include <cstdint>

namespace moxel {

/// One field of a report, as the report descriptor tells it.
struct HIDElement {
    uint32_t usagePage = 0; ///< Page that the usage is from.
    uint32_t usage = 0;     ///< What the field means.
    uint32_t type = 0; ///< 1 miscellaneous input, 2 button, 3 axis, 4 scan codes, 129 output, 257 feature.
    uint32_t reportID = 0;      ///< Report that the field stands in.
    int32_t logicalMinimum = 0; ///< Smallest value.
    int32_t logicalMaximum = 0; ///< Largest value.
    bool isRelative = false;    ///< Whether values are changes.
};

/// A value of an element.
struct HIDValue {
    HIDElement element;       ///< The field.
    size_t length = 0;        ///< Bytes that the value occupies.
    int32_t integerValue = 0; ///< Its value.
};

} // namespace moxel
