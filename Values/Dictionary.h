// Values under text keys, shared by reference.
#pragma once

#include "../Platform/Export.h"
#include "Value.h"

#include <initializer_list>
#include <span>
#include <string_view>
#include <vector>

namespace moxel {

/// A dictionary or null. Enumerates in the order in which keys were first set. Lookup takes constant time
/// whatever keys a hostile writer chose. Read-only through this handle; the dictionary behind it may be
/// mutable. Threads: like Value.
class MOXEL_EXPORT Dictionary {
  public:
    /// A key and what stands under it.
    struct Entry {
        String key;  ///< Not null.
        Value value; ///< May be the null value.
    };

    Dictionary() noexcept = default;
    Dictionary(std::nullptr_t) noexcept {}
    /// A later entry replaces an earlier one of the same key.
    Dictionary(std::initializer_list<Entry> entries);
    /// A later entry replaces an earlier one of the same key.
    explicit Dictionary(std::vector<Entry> entries);

    explicit operator bool() const noexcept { return static_cast<bool>(node_); }
    [[nodiscard]] bool isMutable() const noexcept;
    [[nodiscard]] size_t size() const noexcept { return entries().size(); }
    [[nodiscard]] bool empty() const noexcept { return entries().empty(); }
    /// The value under a key; the null value when there is none.
    [[nodiscard]] const Value &operator[](std::string_view key) const noexcept;
    /// Whether something stands under a key, if only the null value.
    [[nodiscard]] bool contains(std::string_view key) const noexcept;
    /// Valid until the dictionary changes.
    [[nodiscard]] std::span<const Entry> entries() const noexcept;
    [[nodiscard]] auto begin() const noexcept { return entries().begin(); }
    [[nodiscard]] auto end() const noexcept { return entries().end(); }

    /// An immutable dictionary of the same entries; the dictionary itself when it is immutable.
    [[nodiscard]] Dictionary copy() const;
    /// A new mutable dictionary of the same entries.
    [[nodiscard]] MutableDictionary mutableCopy() const;

    friend bool operator==(const Dictionary &a, const Dictionary &b) noexcept { return Value(a) == Value(b); }

    /// The shared storage, for identity.
    [[nodiscard]] detail::Node *node() const noexcept { return node_.get(); }

  protected:
    friend class Value;
    explicit Dictionary(Ref<detail::Node> node) noexcept : node_(std::move(node)) {}

    Ref<detail::Node> node_;
};

/// A mutable dictionary or null.
class MOXEL_EXPORT MutableDictionary : public Dictionary {
  public:
    MutableDictionary() noexcept = default;
    [[nodiscard]] static MutableDictionary withCapacity(size_t capacity);

    /// Stores a value, the null value included, replacing what stood under the key. Keys are never null.
    void set(String key, Value value);
    /// Takes an entry out, if there is one.
    void remove(std::string_view key);
    /// Stores all entries of another dictionary.
    void addEntries(const Dictionary &other);
    void clear();

  private:
    friend class Dictionary;
    friend class Value;
    explicit MutableDictionary(Ref<detail::Node> node) noexcept : Dictionary(std::move(node)) {}
};

} // namespace moxel
