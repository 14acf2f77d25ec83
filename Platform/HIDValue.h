// One value of a HID report element, as input parsers hand it out.
#pragma once

#include <cstddef>
#include <cstdint>

namespace moxel {

struct HIDElement {
    uint32_t usagePage = 0;
    uint32_t usage = 0;
    uint32_t type = 0; ///< 1 miscellaneous input, 2 button, 3 axis, 4 scan codes, 129 output, 257 feature.
    uint32_t reportID = 0;
    int32_t logicalMinimum = 0;
    int32_t logicalMaximum = 0;
    bool isRelative = false;
};

struct HIDValue {
    HIDElement element;
    size_t length = 0; ///< Bytes that the value occupies.
    int32_t integerValue = 0;
};

} // namespace moxel
