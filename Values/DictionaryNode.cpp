// Insertion-ordered entries under a hash index.
#include "ContainerNodes.h"

#include "SipHash.h"

#include <algorithm>
#include <bit>

namespace moxel::detail {

namespace {

uint32_t hashOf(std::string_view key) noexcept {
    return static_cast<uint32_t>(sipHash13(key, SipHashKey::ofProcess()));
}

} // namespace

DictionaryNode::DictionaryNode(std::vector<Entry> entries, bool isMutable) : DictionaryNode(isMutable) {
    reserve(entries.size());
    for (Entry &entry : entries)
        set(std::move(entry.key), std::move(entry.value));
}

const DictionaryNode::Entry *DictionaryNode::find(std::string_view key) const noexcept {
    if (index_.empty()) {
        const auto found =
            std::ranges::find_if(entries_, [&](const Entry &e) { return e.key.view() == key; });
        return found == entries_.end() ? nullptr : &*found;
    }
    const uint32_t position = index_[slotOf(key, hashOf(key))].position;
    return position == 0 ? nullptr : &entries_[position - 1];
}

void DictionaryNode::reserve(size_t count) {
    entries_.reserve(count);
    if (count > linearSearchLimit)
        growIndex(count);
}

void DictionaryNode::set(String key, Value value) {
    if (!key)
        return;
    if (entries_.size() >= linearSearchLimit)
        growIndex(entries_.size() + 1);
    if (index_.empty()) {
        if (const Entry *found = find(key.view()))
            const_cast<Entry *>(found)->value = std::move(value);
        else
            entries_.push_back({std::move(key), std::move(value)});
        return;
    }
    const uint32_t hash = hashOf(key.view());
    Slot &slot = index_[slotOf(key.view(), hash)];
    if (slot.position != 0) {
        entries_[slot.position - 1].value = std::move(value);
        return;
    }
    entries_.push_back({std::move(key), std::move(value)});
    slot = {hash, static_cast<uint32_t>(entries_.size())};
}

void DictionaryNode::remove(std::string_view key) {
    const Entry *found = find(key);
    if (!found)
        return;
    const auto at = found - entries_.data();
    if (!index_.empty()) {
        freeSlot(slotOf(key, hashOf(key)));
        for (Slot &slot : index_)
            slot.position -= slot.position > static_cast<size_t>(at) + 1 ? 1 : 0;
    }
    // The value is freed last: its destruction may run code that looks at this dictionary.
    const Entry removed = std::move(entries_[static_cast<size_t>(at)]);
    entries_.erase(entries_.begin() + at);
}

void DictionaryNode::clear() noexcept {
    index_.clear();
    const std::vector<Entry> removed = std::exchange(entries_, {});
}

/// The place that holds the key, or the free one where it belongs.
size_t DictionaryNode::slotOf(std::string_view key, uint32_t hash) const noexcept {
    const size_t mask = index_.size() - 1;
    size_t slot = hash & mask;
    while (index_[slot].position != 0 &&
           (index_[slot].hash != hash || entries_[index_[slot].position - 1].key.view() != key))
        slot = (slot + 1) & mask;
    return slot;
}

/// Makes room for so many entries.
void DictionaryNode::growIndex(size_t count) {
    if (count <= index_.size() / 4 * 3)
        return;
    index_.assign(std::bit_ceil(count + count / 2), Slot());
    for (size_t i = 0; i < entries_.size(); ++i) {
        const std::string_view key = entries_[i].key.view();
        const uint32_t hash = hashOf(key);
        index_[slotOf(key, hash)] = {hash, static_cast<uint32_t>(i + 1)};
    }
}

/// Frees a place and moves up those that had to step over it.
void DictionaryNode::freeSlot(size_t slot) noexcept {
    const size_t mask = index_.size() - 1;
    for (size_t next = (slot + 1) & mask; index_[next].position != 0; next = (next + 1) & mask) {
        const size_t home = index_[next].hash & mask;
        if (((next - home) & mask) < ((next - slot) & mask))
            continue;
        index_[slot] = index_[next];
        slot = next;
    }
    index_[slot] = {};
}

} // namespace moxel::detail
