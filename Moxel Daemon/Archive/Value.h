// The plain values that requests and messages consist of, as the daemon holds them.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace moxel::daemon {

class Value;
struct Entry;

using Data = std::vector<uint8_t>;
using Array = std::vector<Value>;

/// Values under string keys, in the order in which they were set.
class Dictionary {
  public:
    Dictionary() noexcept;
    Dictionary(std::initializer_list<Entry> entries);
    /// Of several entries of one key the last counts. In time n log n, for entries that came from outside.
    explicit Dictionary(std::vector<Entry> entries);
    Dictionary(const Dictionary &other);
    Dictionary(Dictionary &&other) noexcept;
    Dictionary &operator=(const Dictionary &other);
    Dictionary &operator=(Dictionary &&other) noexcept;
    ~Dictionary();

    /// Null when there is no such key.
    [[nodiscard]] const Value *find(std::string_view key) const;
    [[nodiscard]] bool contains(std::string_view key) const { return find(key) != nullptr; }
    /// Replaces the value of a key that is there already.
    void set(std::string_view key, Value value);

    [[nodiscard]] const std::vector<Entry> &entries() const noexcept { return entries_; }
    [[nodiscard]] size_t size() const noexcept;
    [[nodiscard]] bool empty() const noexcept { return size() == 0; }

    bool operator==(const Dictionary &other) const;

  private:
    std::vector<Entry> entries_;
};

/// An archived object of a class that is no container, string, number or data.
struct Record {
    std::string className;
    Dictionary members;

    bool operator==(const Record &other) const = default;
};

/// One value: null, boolean, number, string, data, array, dictionary or record. A tree; nothing is shared.
class Value {
  public:
    using Content = std::variant<std::monostate, bool, int64_t, uint64_t, double, std::string, Data, Array,
                                 Dictionary, Record>;

    /// How deep values may be nested in an archive.
    static constexpr size_t depthLimit = 64;

    Value() = default;
    Value(std::same_as<bool> auto boolean) : content_(boolean) {}
    Value(std::signed_integral auto number) : content_(static_cast<int64_t>(number)) {}
    /// Numbers have one form: unsigned is only what does not fit a signed one.
    template <std::unsigned_integral Number>
    requires(!std::same_as<Number, bool>) Value(Number number) {
        if (static_cast<uint64_t>(number) <= static_cast<uint64_t>(INT64_MAX))
            content_ = static_cast<int64_t>(number);
        else
            content_ = static_cast<uint64_t>(number);
    }
    Value(double number) : content_(number) {}
    Value(std::string string) : content_(std::move(string)) {}
    Value(std::string_view string) : content_(std::string(string)) {}
    Value(const char *string) : content_(std::string(string)) {}
    Value(Data data) : content_(std::move(data)) {}
    Value(Array array) : content_(std::move(array)) {}
    Value(Dictionary dictionary) : content_(std::move(dictionary)) {}
    Value(Record record) : content_(std::move(record)) {}

    [[nodiscard]] const Content &content() const noexcept { return content_; }
    [[nodiscard]] bool isNull() const noexcept { return content_.index() == 0; }
    /// The content when it is of that type, else null.
    template <class Type>
    [[nodiscard]] const Type *as() const noexcept {
        return std::get_if<Type>(&content_);
    }

    /// The number as that type when it fits without loss; a boolean counts as 0 or 1.
    template <std::integral Integer>
    [[nodiscard]] std::optional<Integer> number() const noexcept {
        if (const auto *boolean = as<bool>())
            return static_cast<Integer>(*boolean);
        if (const auto *number = as<int64_t>(); number && std::in_range<Integer>(*number))
            return static_cast<Integer>(*number);
        if (const auto *number = as<uint64_t>(); number && std::in_range<Integer>(*number))
            return static_cast<Integer>(*number);
        return std::nullopt;
    }

    bool operator==(const Value &other) const = default;

  private:
    Content content_;
};

struct Entry {
    std::string key;
    Value value;

    bool operator==(const Entry &other) const = default;
};

} // namespace moxel::daemon
