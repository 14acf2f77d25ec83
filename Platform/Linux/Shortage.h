// Errors of the system that say that it has nothing left to give.
#pragma once

#include <cerrno>

namespace moxel {

/// True when descriptors, memory or watches are used up, which may go away by itself.
[[nodiscard]] constexpr bool isShortage(int errnoValue) noexcept {
    return errnoValue == EMFILE || errnoValue == ENFILE || errnoValue == ENOMEM || errnoValue == ENOBUFS ||
           errnoValue == ENOSPC;
}

} // namespace moxel
