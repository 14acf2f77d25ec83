// Builds nested containers.
#include "ContainerBuilder.h"

#include <cassert>
#include <iterator>

namespace moxel::detail {

void ContainerBuilder::setKey(String key) {
    assert(isInDictionary() && !awaitsValue());
    parts_.push_back({std::move(key), {}});
    open_.back().awaitsValue = true;
}

void ContainerBuilder::setKey(std::string_view utf8) {
    // Where two keys compete for a place they take turns, which costs no more than not sharing them.
    const auto end = static_cast<uint8_t>(utf8.empty() ? 0 : utf8.back());
    String &recent = recentKeys_[(utf8.size() * 31 + end) % recentKeys_.size()];
    if (!recent || recent.view() != utf8)
        recent = utf8;
    setKey(recent);
}

void ContainerBuilder::add(Value value) {
    if (isInArray()) {
        parts_.push_back({{}, std::move(value)});
        return;
    }
    assert(awaitsValue());
    parts_.back().value = std::move(value);
    open_.back().awaitsValue = false;
}

Value ContainerBuilder::close() {
    assert(depth() > 0 && !awaitsValue());
    const OpenContainer closed = open_.back();
    open_.pop_back();
    Value container =
        closed.kind == Kind::array ? makeArray(closed.firstPart) : makeDictionary(closed.firstPart);
    parts_.resize(closed.firstPart);
    return container;
}

Value ContainerBuilder::makeArray(size_t firstPart) {
    const size_t count = parts_.size() - firstPart;
    if (mutability_ == Mutability::mutableContainers) {
        MutableArray array = MutableArray::withCapacity(count);
        for (size_t i = firstPart; i < parts_.size(); ++i)
            array.append(std::move(parts_[i].value));
        return array;
    }
    std::vector<Value> values;
    values.reserve(count);
    for (size_t i = firstPart; i < parts_.size(); ++i)
        values.push_back(std::move(parts_[i].value));
    return Array(std::move(values));
}

Value ContainerBuilder::makeDictionary(size_t firstPart) {
    const auto first = parts_.begin() + static_cast<std::ptrdiff_t>(firstPart);
    if (mutability_ == Mutability::immutable)
        return Dictionary(std::vector<Dictionary::Entry>(std::make_move_iterator(first),
                                                         std::make_move_iterator(parts_.end())));
    MutableDictionary dictionary = MutableDictionary::withCapacity(parts_.size() - firstPart);
    for (size_t i = firstPart; i < parts_.size(); ++i)
        dictionary.set(std::move(parts_[i].key), std::move(parts_[i].value));
    return dictionary;
}

} // namespace moxel::detail
