// Keyed archives: what can be read is archived, and what was archived reads and is archived as the same
// again. The daemon's own reader gets the same bytes.
#include "Fuzzers/FuzzInput.h"
#include "Moxel Daemon/Archive/KeyedArchiveReader.h"
#include "Values/KeyedArchive.h"
#include <Moxel/MxlApplication.h>
#include <Moxel/MxlHIDDevice.h>

using namespace moxel;

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
    fuzz::require(second.ok() && *second == *first);
    return 0;
}
