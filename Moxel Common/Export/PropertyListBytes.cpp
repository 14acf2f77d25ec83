#include "Export/PropertyListBytes.h"

#include "Values/ContainerCursor.h"
#include "Values/DeepCopy.h"
#include "Values/PropertyList.h"

#include <cerrno>
#include <cmath>
#include <unordered_set>
#include <utility>
#include <vector>

namespace moxel {

namespace {

// A fraction of a second is what XML cuts off.
bool isFractionalDate(const Value &value) {
    const double seconds = value.asDate().secondsSince2001;
    return value.kind() == Kind::date && seconds != std::floor(seconds);
}

bool holdsFractionalDate(const Value &root) {
    std::vector<const Value *> waiting{&root};
    std::unordered_set<const detail::Node *> met;
    while (!waiting.empty()) {
        const Value &value = *waiting.back();
        waiting.pop_back();
        if (isFractionalDate(value))
            return true;
        if (value.kind() != Kind::dictionary && value.kind() != Kind::array)
            continue;
        // What is referred to once is met once.
        if (!value.node()->hasOneReference() && !met.insert(value.node()).second)
            continue;
        const detail::ContainerCursor container(value);
        for (size_t i = 0; i < container.size(); ++i)
            if (const Kind kind = container.value(i).kind();
                kind == Kind::dictionary || kind == Kind::array || kind == Kind::date)
                waiting.push_back(&container.value(i));
    }
    return false;
}

} // namespace

Result<Value> readMutablePropertyList(std::span<const uint8_t> bytes) {
    auto list = readPropertyList(bytes);
    if (!list)
        return list.error();
    auto copy = deepMutableCopy(list->root);
    if (!copy) // The bytes are a sound list, which must not pass for none.
        return Error{copy.error().message, EFBIG};
    return copy;
}

Result<std::string> losslessPropertyList(const Value &root) {
    if (!holdsFractionalDate(root)) {
        if (auto xml = writeXMLPropertyList(root))
            return xml;
    }
    const auto binary = writeBinaryPropertyList(root);
    if (!binary)
        return binary.error();
    return std::string(binary->bytes().begin(), binary->bytes().end());
}

} // namespace moxel
