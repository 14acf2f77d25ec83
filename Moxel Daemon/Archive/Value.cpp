#include "Moxel Daemon/Archive/Value.h"

#include <algorithm>
#include <numeric>

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

Dictionary::Dictionary(std::vector<Entry> entries) : entries_(std::move(entries)) {
    std::vector<size_t> order(entries_.size());
    std::iota(order.begin(), order.end(), size_t{0});
    std::stable_sort(order.begin(), order.end(),
                     [this](size_t one, size_t other) { return entries_[one].key < entries_[other].key; });
    std::vector<bool> isReplaced(entries_.size());
    for (size_t place = 1; place < order.size(); ++place)
        isReplaced[order[place - 1]] = entries_[order[place - 1]].key == entries_[order[place]].key;
    size_t index = 0;
    std::erase_if(entries_, [&](const Entry &) { return isReplaced[index++]; });
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
