// Keyed archives: what can be read is archived, and what was archived reads and is archived as the same
// again, but for equal texts that were several objects. The daemon's own reader gets the same bytes.
#include "Fuzzers/FuzzInput.h"
#include "Moxel Daemon/Archive/KeyedArchiveReader.h"
#include "Values/KeyedArchive.h"
#include "Values/PropertyList.h"
#include <Moxel/MxlApplication.h>
#include <Moxel/MxlHIDDevice.h>

#include <set>
#include <string_view>
#include <utility>

using namespace moxel;

namespace {

/// Whether two objects of the archive are equal texts: its binary form holds each text once, so that they are
/// one object once it is read.
bool holdsEqualTexts(const Data &archive) {
    const auto list = readPropertyList(archive.bytes());
    fuzz::require(list.ok());
    std::set<std::pair<Kind, std::string_view>> texts;
    for (const Value &object : list->root.asDictionary()["$objects"].asArray()) {
        const std::span<const uint8_t> data = object.asData().bytes();
        const bool isText = object.kind() == Kind::string;
        if (!isText && object.kind() != Kind::data)
            continue;
        const std::string_view bytes =
            isText ? object.asString().view()
                   : std::string_view(reinterpret_cast<const char *>(data.data()), data.size());
        if (!texts.emplace(object.kind(), bytes).second)
            return true;
    }
    return false;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) { return 0; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::span<const uint8_t> bytes(data, size);
    (void)daemon::readKeyedArchive(bytes);
    (void)unarchiveTopLevelObjects(bytes);
    const auto root = unarchiveObjectWithData(bytes);
    if (!root)
        return 0;
    (void)root->description();
    const auto first = archivedDataWithRootObject(*root);
    if (!first)
        return 0;
    const auto again = unarchiveObjectWithData(first->bytes());
    fuzz::require(again.ok());
    const auto second = archivedDataWithRootObject(*again);
    fuzz::require(second.ok() && (*second == *first || holdsEqualTexts(*first)));
    const auto last = unarchiveObjectWithData(second->bytes());
    fuzz::require(last.ok());
    const auto third = archivedDataWithRootObject(*last);
    fuzz::require(third.ok() && *third == *second);
    return 0;
}
