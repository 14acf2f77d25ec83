// A property-list value: a small handle to a scalar or to shared text, bytes, a container or a record.
#pragma once

#include "../Platform/Export.h"
#include "Data.h"
#include "Node.h"
#include "Object.h"
#include "String.h"

#include <concepts>
#include <cstdint>
#include <string>

namespace moxel {

class Array;
class Dictionary;
class MutableArray;
class MutableDictionary;

/// A point in time.
struct Date {
    double secondsSince2001 = 0; ///< Seconds since 1 January 2001, 00:00 UTC.
    friend bool operator==(const Date &, const Date &) = default;
};

/// Index into the object table of a keyed archive.
struct UID {
    uint64_t index = 0; ///< Place in the table, from 0.
    friend bool operator==(const UID &, const UID &) = default;
};

/// 16 bytes; copying costs at most one counter. Containers are shared by reference: a change to a mutable
/// container is seen through every handle to it. Thread-safe like a shared_ptr: handles may be copied between
/// threads, one handle or one mutable container must not be changed by two threads at once.
class MOXEL_EXPORT Value {
  public:
    constexpr Value() noexcept : kind_(Kind::null), content_{.integer = 0} {}
    Value(std::nullptr_t) noexcept : Value() {}
    /// A boolean.
    template <std::same_as<bool> B>
    Value(B boolean) noexcept : kind_(Kind::boolean), content_{.integer = boolean} {}
    /// A signed integer.
    template <std::signed_integral I>
    Value(I integer) noexcept : kind_(Kind::integer), content_{.integer = integer} {}
    /// An unsigned integer.
    template <std::unsigned_integral U>
    requires(!std::same_as<U, bool>) Value(U integer)
    noexcept : kind_(Kind::unsignedInteger), content_{.unsignedInteger = integer} {}
    /// A real number.
    template <std::floating_point F>
    Value(F real) noexcept : kind_(Kind::real), content_{.real = static_cast<double>(real)} {}
    /// A point in time.
    Value(Date date) noexcept : kind_(Kind::date), content_{.real = date.secondsSince2001} {}
    /// An index into an archive.
    Value(UID uid) noexcept : kind_(Kind::uid), content_{.unsignedInteger = uid.index} {}
    /// Null handles give the null value.
    Value(String string) noexcept;
    /// Text from UTF-8.
    Value(const char *utf8) : Value(String(utf8)) {}
    /// Text from UTF-8.
    Value(std::string_view utf8) : Value(String(utf8)) {}
    /// Text from UTF-8.
    Value(const std::string &utf8) : Value(String(utf8)) {}
    /// Bytes; null gives the null value.
    Value(Data data) noexcept;
    /// An array; null gives the null value.
    Value(Array array) noexcept;
    /// A dictionary; null gives the null value.
    Value(Dictionary dictionary) noexcept;
    /// A record; null gives the null value.
    template <std::derived_from<Object> O>
    Value(Ref<O> object) noexcept : Value(static_cast<Object *>(object.leak())) {}

    Value(const Value &other) noexcept : kind_(other.kind_), content_(other.content_) {
        if (isShared())
            content_.node->retain();
    }
    Value(Value &&other) noexcept : kind_(other.kind_), content_(other.content_) {
        other.kind_ = Kind::null;
        other.content_.integer = 0;
    }
    ~Value() {
        if (isShared())
            content_.node->release();
    }
    Value &operator=(Value other) noexcept {
        std::swap(kind_, other.kind_);
        std::swap(content_, other.content_);
        return *this;
    }

    /// What kind of value this is.
    [[nodiscard]] Kind kind() const noexcept { return kind_; }
    /// Whether this is the null value.
    [[nodiscard]] bool isNull() const noexcept { return kind_ == Kind::null; }
    explicit operator bool() const noexcept { return !isNull(); }
    /// Boolean, integer or real.
    [[nodiscard]] bool isNumber() const noexcept { return kind_ >= Kind::boolean && kind_ <= Kind::real; }

    // Numbers of every kind, converted as C converts them (integers wrap; reals are cut towards zero and
    // saturate, not-a-number is 0). Anything that is not a number gives 0.
    /// Whether the number is not 0.
    [[nodiscard]] bool boolValue() const noexcept;
    /// The number as a signed integer.
    [[nodiscard]] int64_t int64Value() const noexcept;
    /// int64Value(), as C converts it.
    [[nodiscard]] uint64_t uint64Value() const noexcept { return static_cast<uint64_t>(int64Value()); }
    /// int64Value(), as C converts it.
    [[nodiscard]] int32_t int32Value() const noexcept { return static_cast<int32_t>(int64Value()); }
    /// int64Value(), as C converts it.
    [[nodiscard]] uint32_t uint32Value() const noexcept { return static_cast<uint32_t>(int64Value()); }
    /// int64Value(), as C converts it.
    [[nodiscard]] uint16_t uint16Value() const noexcept { return static_cast<uint16_t>(int64Value()); }
    /// int64Value(), as C converts it.
    [[nodiscard]] uint8_t uint8Value() const noexcept { return static_cast<uint8_t>(int64Value()); }
    /// The number as a real one.
    [[nodiscard]] double doubleValue() const noexcept;

    // The content when the value is of that kind, else null (or the default).
    /// The text, else null.
    [[nodiscard]] String asString() const noexcept;
    /// The bytes, else null.
    [[nodiscard]] Data asData() const noexcept;
    /// The point in time, else that of 0.
    [[nodiscard]] Date asDate() const noexcept { return {kind_ == Kind::date ? content_.real : 0}; }
    /// The index, else 0.
    [[nodiscard]] UID asUID() const noexcept { return {kind_ == Kind::uid ? content_.unsignedInteger : 0}; }
    /// The array, else null.
    [[nodiscard]] Array asArray() const noexcept;
    /// The dictionary, else null.
    [[nodiscard]] Dictionary asDictionary() const noexcept;
    /// Null when the container is immutable.
    [[nodiscard]] MutableArray asMutableArray() const noexcept;
    /// The same with dictionaries.
    [[nodiscard]] MutableDictionary asMutableDictionary() const noexcept;
    /// The record when it is one of class O, else null.
    template <std::derived_from<Object> O = Object>
    [[nodiscard]] Ref<O> asObject() const noexcept {
        return Ref<O>::share(kind_ == Kind::object ? dynamic_cast<O *>(static_cast<Object *>(content_.node))
                                                   : nullptr);
    }

    /// Equal contents at every depth; numbers compare by value across number kinds, booleans with integers
    /// too, not-a-number equals itself. Ends for containers that hold themselves.
    friend bool operator==(const Value &a, const Value &b) noexcept;

    /// What "%@" prints: strings as they are, containers in the old-style form with sorted keys, null as
    /// "(null)". A container's text breaks off with "..." soon after its first 1 MiB.
    [[nodiscard]] std::string description() const;

    /// The shared storage, for identity; null for scalars.
    [[nodiscard]] const detail::Node *node() const noexcept { return isShared() ? content_.node : nullptr; }

  private:
    Value(Kind kind, const detail::Node *node) noexcept
        : kind_(node ? kind : Kind::null), content_{.node = const_cast<detail::Node *>(node)} {}
    /// Takes over a reference.
    explicit Value(Object *object) noexcept;
    [[nodiscard]] bool isShared() const noexcept { return kind_ >= Kind::string; }

    union Content {
        int64_t integer; ///< Also booleans.
        uint64_t unsignedInteger;
        double real;
        detail::Node *node;
    };

    Kind kind_;
    Content content_;
};

} // namespace moxel

#include "Array.h"
#include "Dictionary.h"
