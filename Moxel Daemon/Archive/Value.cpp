#include "Moxel Daemon/Archive/Value.h"

#include <algorithm>

namespace moxel::daemon {

Dictionary::Dictionary() noexcept = default;
Dictionary::Dictionary(const Dictionary &other) = default;
Dictionary::Dictionary(Dictionary &&other) noexcept = default;
Dictionary &Dictionary::operator=(const Dictionary &other) = default;
Dictionary &Dictionary::operator=(Dictionary &&other) noexcept = default;
Dictionary::~Dictionary() = default;

Dictionary::Dictionary(std::initializer_list<Entry> entries) {
    for (const Entry &entry : entries)
        set(entry.key, entry.value);
}

const Value *Dictionary::find(std::string_view key) const {
    const auto found = std::find_if(entries_.begin(), entries_.end(),
                                    [key](const Entry &entry) { return entry.key == key; });
    return found == entries_.end() ? nullptr : &found->value;
}

void Dictionary::set(std::string_view key, Value value) {
    const auto found = std::find_if(entries_.begin(), entries_.end(),
                                    [key](const Entry &entry) { return entry.key == key; });
    if (found == entries_.end())
        entries_.push_back({std::string(key), std::move(value)});
    else
        found->value = std::move(value);
}

size_t Dictionary::size() const noexcept { return entries_.size(); }

/// Equal whatever the order of the keys.
bool Dictionary::operator==(const Dictionary &other) const {
    return entries_.size() == other.entries_.size() &&
           std::all_of(entries_.begin(), entries_.end(), [&other](const Entry &entry) {
               const Value *value = other.find(entry.key);
               return value && *value == entry.value;
           });
}

} // namespace moxel::daemon
