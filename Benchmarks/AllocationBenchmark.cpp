// Heap allocations of the whole process while state records are delivered, both ways.
#include "Support/BareDriver.h"
#include "Support/PrivateFolders.h"
#include "Support/Session.h"
#include "Support/StateDatagram.h"
#include "Support/Table.h"

#include <atomic>
#include <cstddef>

namespace {

std::atomic<size_t> allocations{0};

} // namespace

// The C library's own, under the names that it keeps for this.
extern "C" {
void *__libc_malloc(size_t size);               // NOLINT(bugprone-reserved-identifier)
void *__libc_calloc(size_t count, size_t size); // NOLINT(bugprone-reserved-identifier)
void *__libc_realloc(void *block, size_t size); // NOLINT(bugprone-reserved-identifier)

void *malloc(size_t size) noexcept {
    ++allocations;
    return __libc_malloc(size);
}
void *calloc(size_t count, size_t size) noexcept {
    ++allocations;
    return __libc_calloc(count, size);
}
void *realloc(void *block, size_t size) noexcept {
    ++allocations;
    return __libc_realloc(block, size);
}
}

namespace moxel::benchmarks {
namespace {

constexpr size_t records = 10'000;
constexpr size_t burst = 100;

void deliver(int socket, Arrival &arrival, size_t atATime) {
    const StateDatagram datagram;
    for (size_t sent = 0; sent < records; sent += atATime) {
        arrival.expect(atATime);
        for (size_t i = 0; i < atATime; ++i)
            datagram.sendTo(socket);
        arrival.await();
    }
}

void measure(const std::string &what, Delivery delivery, BareDriver &driver) {
    Arrival arrival;
    const Session session(delivery, arrival);
    const int socket = driver.inputSocket(session.clientID());
    // While the session's thread is busy, as many records wait for it as ever will.
    arrival.expect(2 * burst);
    session.perform([socket] {
        const StateDatagram datagram;
        for (size_t i = 0; i < 2 * burst; ++i)
            datagram.sendTo(socket);
    });
    arrival.await();
    for (const size_t atATime : {size_t{1}, burst}) {
        deliver(socket, arrival, atATime);
        const size_t before = allocations;
        deliver(socket, arrival, atATime);
        const auto made = static_cast<double>(allocations - before);
        printRow("heap allocations, " + what + ", " + std::to_string(atATime) + " at a time", "none", "0",
                 digits(made) + " for " + digits(records) + " records", made / records, atMost(0));
    }
}

void run() {
    const PrivateFolders folders;
    BareDriver driver(folders.bus());
    measure("handler on the client thread", Delivery::threaded, driver);
    measure("forwarded to the caller thread", Delivery::forwarded, driver);
}

} // namespace
} // namespace moxel::benchmarks

int main() { moxel::benchmarks::run(); }
