#include "Platform/FileEvents.h"

#include <sys/epoll.h>
#include <unistd.h>

namespace moxel {

int makeKernelEventQueue() noexcept { return ::epoll_create1(EPOLL_CLOEXEC); }

void closeKernelEventQueue(int queue) noexcept {
    if (queue >= 0)
        ::close(queue);
}

} // namespace moxel
