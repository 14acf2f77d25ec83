// Random seed from the kernel.
#include "Platform/Process.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>

#include <sys/random.h>
#include <unistd.h>

namespace moxel {

void reseedRandomNumberGenerator() {
    unsigned seed = 0;
    ssize_t received = 0;
    do {
        received = ::getrandom(&seed, sizeof seed, 0);
    } while (received < 0 && errno == EINTR);
    if (received != static_cast<ssize_t>(sizeof seed)) {
        // Only a sandbox that forbids the call comes here; time and process still tell runs apart.
        const auto time = std::chrono::steady_clock::now().time_since_epoch().count();
        seed = static_cast<unsigned>(time) ^ static_cast<unsigned>(::getpid());
    }
    ::srandom(seed);
}

} // namespace moxel
