// Property lists of all three forms: what can be read is written, and what was written reads as the same
// again.
#include "Fuzzers/FuzzInput.h"
#include "Values/DeepCopy.h"
#include "Values/PropertyList.h"

using namespace moxel;

extern "C" int LLVMFuzzerInitialize(int *, char ***) { return 0; }

namespace {

std::span<const uint8_t> bytesOf(const std::string &text) {
    return {reinterpret_cast<const uint8_t *>(text.data()), text.size()};
}

void writeBinaryAndReadAgain(const Value &root) {
    const auto first = writeBinaryPropertyList(root);
    if (!first)
        return;
    const auto again = readBinaryPropertyList(first->bytes(), Mutability::immutable);
    fuzz::require(again.ok());
    const auto second = writeBinaryPropertyList(*again);
    fuzz::require(second.ok() && *second == *first);
}

void writeXMLAndReadAgain(const Value &root) {
    const auto first = writeXMLPropertyList(root);
    if (!first)
        return;
    const auto again = readXMLPropertyList(bytesOf(*first), Mutability::immutable);
    fuzz::require(again.ok());
    const auto second = writeXMLPropertyList(*again);
    fuzz::require(second.ok() && *second == *first);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::span<const uint8_t> bytes(data, size);
    (void)readXMLPropertyList(bytes, Mutability::mutableContainers);
    (void)readOpenStepPropertyList(bytes, Mutability::mutableContainers);
    (void)readBinaryPropertyList(bytes, Mutability::mutableContainers);
    const auto list = readPropertyList(bytes);
    if (!list)
        return 0;
    (void)deepMutableCopy(list->root);
    writeBinaryAndReadAgain(list->root);
    writeXMLAndReadAgain(list->root);
    return 0;
}
