// Walks through a value and all that it holds, at any depth, without recursion.
#pragma once

#include "Values/Value.h"

#include <cstddef>

namespace moxel::tool {

/// Is told of each value in the order in which one would write them down.
class ValueVisitor {
  public:
    virtual ~ValueVisitor() = default;

    /// Before each member of a container. The key is null in an array.
    virtual void member(const String &key, size_t index, size_t depth) = 0;
    /// A value that holds no others.
    virtual void leaf(const Value &value, size_t depth) = 0;
    /// An array, a dictionary or a record of so many members; false passes over them and over its close().
    [[nodiscard]] virtual bool open(const Value &container, size_t size, size_t depth) = 0;
    virtual void close(const Value &container, size_t size, size_t depth) = 0;
    /// True ends the walk.
    [[nodiscard]] virtual bool hasEnough() const = 0;
};

/// A container that holds itself is walked until the visitor has enough.
void walk(const Value &root, ValueVisitor &visitor);

} // namespace moxel::tool
