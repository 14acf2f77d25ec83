// Traces, which a person writes by hand.
#include "Fuzzers/FuzzInput.h"
#include "Moxel Daemon/Motion/TraceParser.h"

using namespace moxel;

extern "C" int LLVMFuzzerInitialize(int *, char ***) { return 0; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    (void)daemon::parseTrace({reinterpret_cast<const char *>(data), size});
    return 0;
}
