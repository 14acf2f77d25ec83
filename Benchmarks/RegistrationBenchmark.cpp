// A registration, beyond the fixed pause of 25 ms that lets a new device settle, with a driver that answers
// at once.
#include "Support/BareDriver.h"
#include "Support/Measurement.h"
#include "Support/PrivateFolders.h"
#include "Support/Table.h"
#include <Moxel/MoxelClient.h>

#include <cstdlib>

namespace moxel::benchmarks {
namespace {

constexpr size_t registrations = 51;
constexpr double pause = 25e-3;

double secondsOfRegistration() {
    uint8_t name[] = {9, 'B', 'e', 'n', 'c', 'h', 'm', 'a', 'r', 'k'};
    if (SetMoxelHandlers([](uint32_t, uint32_t, void *) {}, nullptr, nullptr, true) != 0)
        std::abort();
    const double begin = now();
    if (RegisterMoxelClient(0x54657374, name, 3, 0x3F) == 0)
        std::abort();
    const double seconds = now() - begin;
    UnregisterMoxelClient(0);
    CleanupMoxelHandlers();
    return seconds;
}

void run() {
    const PrivateFolders folders;
    const BareDriver driver(folders.bus());
    std::vector<double> beyond;
    for (size_t i = 0; i < registrations; ++i)
        beyond.push_back(secondsOfRegistration() - pause);
    const auto row = [](const std::string &what, double seconds) {
        printRow(what, "the fixed pause", duration(pause), duration(pause + seconds), seconds * 1e3,
                 atMost(3));
    };
    row("registration, ms beyond the pause: median", median(beyond));
    row("registration, ms beyond the pause: slowest", quantile(beyond, 1));
}

} // namespace
} // namespace moxel::benchmarks

int main() { moxel::benchmarks::run(); }
