// Errors from errno values.
#include "Platform/Result.h"

#include <system_error>

namespace moxel {

Error systemError(const std::string &what, int errnoValue) {
    return {what + ": " + std::generic_category().message(errnoValue), errnoValue};
}

} // namespace moxel
