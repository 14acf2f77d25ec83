// Values under text keys.
#include "Dictionary.h"

#include "ContainerNodes.h"

namespace moxel {

namespace {

using detail::DictionaryNode;

constinit const Value nullValue;

DictionaryNode *nodeOf(const Ref<detail::Node> &node) noexcept {
    return static_cast<DictionaryNode *>(node.get());
}

} // namespace

Dictionary::Dictionary(std::initializer_list<Entry> entries) : Dictionary(std::vector<Entry>(entries)) {}

Dictionary::Dictionary(std::vector<Entry> entries) : node_(makeRef<DictionaryNode>(std::move(entries))) {}

bool Dictionary::isMutable() const noexcept { return node_ && node_->isMutable(); }

const Value &Dictionary::operator[](std::string_view key) const noexcept {
    const Entry *entry = node_ ? nodeOf(node_)->find(key) : nullptr;
    return entry ? entry->value : nullValue;
}

bool Dictionary::contains(std::string_view key) const noexcept { return node_ && nodeOf(node_)->find(key); }

std::span<const Dictionary::Entry> Dictionary::entries() const noexcept {
    return node_ ? std::span<const Entry>(nodeOf(node_)->entries()) : std::span<const Entry>();
}

Dictionary Dictionary::copy() const {
    return isMutable() ? Dictionary(std::vector<Entry>(begin(), end())) : *this;
}

MutableDictionary Dictionary::mutableCopy() const {
    if (!node_)
        return {};
    return MutableDictionary(makeRef<DictionaryNode>(nodeOf(node_)->entries(), true));
}

MutableDictionary MutableDictionary::withCapacity(size_t capacity) {
    Ref<DictionaryNode> node = makeRef<DictionaryNode>(true);
    node->reserve(capacity);
    return MutableDictionary(std::move(node));
}

void MutableDictionary::set(String key, Value value) {
    if (node_)
        nodeOf(node_)->set(std::move(key), std::move(value));
}

void MutableDictionary::remove(std::string_view key) {
    if (node_)
        nodeOf(node_)->remove(key);
}

void MutableDictionary::addEntries(const Dictionary &other) {
    // By index, as the other may be this very dictionary.
    for (size_t i = 0; i < other.size(); ++i)
        set(other.entries()[i].key, other.entries()[i].value);
}

void MutableDictionary::clear() {
    if (node_)
        nodeOf(node_)->clear();
}

} // namespace moxel
