// The process's identifier.
#include "Platform/Process.h"

#include <unistd.h>

namespace moxel {

int32_t processIdentifier() { return ::getpid(); }

} // namespace moxel
