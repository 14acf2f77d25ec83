// Ordered values.
#include "Array.h"

#include "ContainerNodes.h"

namespace moxel {

namespace {

using detail::ArrayNode;

constinit const Value nullValue;

ArrayNode *nodeOf(const Ref<detail::Node> &node) noexcept { return static_cast<ArrayNode *>(node.get()); }

} // namespace

Array::Array(std::initializer_list<Value> values) : Array(std::vector<Value>(values)) {}

Array::Array(std::vector<Value> values) : node_(makeRef<ArrayNode>(std::move(values))) {}

bool Array::isMutable() const noexcept { return node_ && node_->isMutable(); }

const Value &Array::operator[](size_t index) const noexcept {
    const std::span<const Value> all = values();
    return index < all.size() ? all[index] : nullValue;
}

std::span<const Value> Array::values() const noexcept {
    return node_ ? std::span<const Value>(nodeOf(node_)->values) : std::span<const Value>();
}

Array Array::copy() const { return isMutable() ? Array(std::vector<Value>(begin(), end())) : *this; }

MutableArray Array::mutableCopy() const {
    return node_ ? MutableArray(makeRef<ArrayNode>(nodeOf(node_)->values, true)) : MutableArray();
}

MutableArray MutableArray::withCapacity(size_t capacity) {
    Ref<ArrayNode> node = makeRef<ArrayNode>(std::vector<Value>(), true);
    node->values.reserve(capacity);
    return MutableArray(std::move(node));
}

void MutableArray::append(Value value) {
    if (node_)
        nodeOf(node_)->values.push_back(std::move(value));
}

void MutableArray::set(size_t index, Value value) {
    if (index < size())
        nodeOf(node_)->values[index] = std::move(value);
}

void MutableArray::remove(size_t index) {
    if (index >= size())
        return;
    std::vector<Value> &values = nodeOf(node_)->values;
    // The value is freed last: its destruction may run code that looks at this array.
    const Value removed = std::move(values[index]);
    values.erase(values.begin() + static_cast<std::ptrdiff_t>(index));
}

void MutableArray::clear() {
    if (node_)
        const std::vector<Value> removed = std::exchange(nodeOf(node_)->values, {});
}

} // namespace moxel
