// Ordered values, shared by reference.
#pragma once

#include "../Platform/Export.h"
#include "Value.h"

#include <concepts>
#include <initializer_list>
#include <span>
#include <utility>
#include <vector>

namespace moxel {

/// An array or null. Read-only through this handle; the array behind it may be mutable. Threads: like Value.
class MOXEL_EXPORT Array {
  public:
    Array() noexcept = default;
    Array(std::nullptr_t) noexcept {}
    /// Beware: Array{} is null, and compilers disagree whether Array{array} copies or nests. See of().
    Array(std::initializer_list<Value> values);
    /// An array of these values.
    explicit Array(std::vector<Value> values);
    /// An array of exactly these values: of none, an empty one; of another array, one that holds it.
    template <std::convertible_to<Value>... Values>
    [[nodiscard]] static Array of(Values &&...values) {
        return Array(std::initializer_list<Value>{Value(std::forward<Values>(values))...});
    }

    explicit operator bool() const noexcept { return static_cast<bool>(node_); }
    [[nodiscard]] bool isMutable() const noexcept;
    [[nodiscard]] size_t size() const noexcept { return values().size(); }
    [[nodiscard]] bool empty() const noexcept { return values().empty(); }
    /// The null value beyond the end.
    [[nodiscard]] const Value &operator[](size_t index) const noexcept;
    /// The elements; valid until the array changes.
    [[nodiscard]] std::span<const Value> values() const noexcept;
    [[nodiscard]] auto begin() const noexcept { return values().begin(); }
    [[nodiscard]] auto end() const noexcept { return values().end(); }

    /// An immutable array of the same values; the array itself when it is immutable.
    [[nodiscard]] Array copy() const;
    /// A new mutable array of the same values.
    [[nodiscard]] MutableArray mutableCopy() const;

    friend bool operator==(const Array &a, const Array &b) noexcept { return Value(a) == Value(b); }

    /// The shared storage, for identity.
    [[nodiscard]] detail::Node *node() const noexcept { return node_.get(); }

  protected:
    friend class Value;
    explicit Array(Ref<detail::Node> node) noexcept : node_(std::move(node)) {}

    Ref<detail::Node> node_;
};

/// A mutable array or null.
class MOXEL_EXPORT MutableArray : public Array {
  public:
    MutableArray() noexcept = default;
    [[nodiscard]] static MutableArray withCapacity(size_t capacity);

    /// Adds a value behind the last one.
    void append(Value value);
    /// Replaces a value; beyond the end nothing happens.
    void set(size_t index, Value value);
    /// Takes a value out; beyond the end nothing happens.
    void remove(size_t index);
    void clear();

  private:
    friend class Array;
    friend class Value;
    explicit MutableArray(Ref<detail::Node> node) noexcept : Array(std::move(node)) {}
};

} // namespace moxel
