// A binary property list as a flat table of objects that refer to each other by their index.
#pragma once

#include "Moxel Daemon/Archive/Value.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace moxel::daemon {

using ObjectIndex = size_t;

/// A reference into the object list of a keyed archive.
struct ArchiveReference {
    uint64_t number = 0;
    auto operator<=>(const ArchiveReference &) const = default;
};

struct PropertyListDate {
    double secondsSince2001 = 0;
    auto operator<=>(const PropertyListDate &) const = default;
};

using IndexArray = std::vector<ObjectIndex>;
using IndexDictionary = std::vector<std::pair<ObjectIndex, ObjectIndex>>; ///< Key and value.

using PropertyListObject = std::variant<std::monostate, bool, int64_t, uint64_t, double, PropertyListDate,
                                        Data, std::string, ArchiveReference, IndexArray, IndexDictionary>;

struct PropertyListTable {
    std::vector<PropertyListObject> objects;
    ObjectIndex top = 0;
};

} // namespace moxel::daemon
