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
    bool operator==(const ArchiveReference &) const = default;
    bool operator<(const ArchiveReference &other) const { return number < other.number; }
};

struct PropertyListDate {
    double secondsSince2001 = 0;
    bool operator==(const PropertyListDate &) const = default;
    bool operator<(const PropertyListDate &other) const { return secondsSince2001 < other.secondsSince2001; }
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
