// State records from the driver's socket to the application's handler, beside threads that do nothing but
// wait, receive and hand over.
#include "Support/BareDriver.h"
#include "Support/BareReceivers.h"
#include "Support/PrivateFolders.h"
#include "Support/Session.h"
#include "Support/Table.h"

namespace moxel::benchmarks {
namespace {

constexpr size_t rounds = 31;
constexpr size_t recordsPerRound = 1'000;
constexpr size_t recordsPerBurst = 20'000;

/// A socket on which records are sent, and where they arrive.
struct Road {
    int socket;
    Arrival &arrival;
};

struct Latency {
    double median;
    double p99;
};

/// One record after the other, each when the one before has been handled.
Latency latencyOf(const Road &road) {
    const StateDatagram datagram;
    std::vector<double> latencies;
    for (size_t i = 0; i < recordsPerRound; ++i) {
        road.arrival.expect(1);
        const double sent = now();
        datagram.sendTo(road.socket);
        latencies.push_back(road.arrival.await() - sent);
    }
    return {median(latencies), quantile(latencies, 0.99)};
}

/// Records a second when they are sent without a pause.
double rateOf(const Road &road) {
    const StateDatagram datagram;
    road.arrival.expect(recordsPerBurst);
    const double begin = now();
    for (size_t i = 0; i < recordsPerBurst; ++i)
        datagram.sendTo(road.socket);
    return recordsPerBurst / (road.arrival.await() - begin);
}

struct Goals {
    double median;
    double p99;
    double rate;
};

void compare(const std::string &what, const std::string &floorName, const Road &floor, const Road &library,
             const Goals &goals) {
    std::vector<double> p99[2];
    const auto latency = [&p99](const Road &road, size_t subject) {
        return [&p99, &road, subject] {
            const Latency measured = latencyOf(road);
            p99[subject].push_back(measured.p99);
            return measured.median;
        };
    };
    const RoundsOfSubjects medians = inRounds(rounds, {latency(floor, 0), latency(library, 1)});
    const RoundsOfSubjects rates =
        inRounds(rounds, {[&] { return rateOf(floor); }, [&] { return rateOf(library); }});
    printTimes(what + ": median", floorName, median(medians[0]), median(medians[1]), atMost(goals.median));
    printTimes(what + ": 99th percentile", floorName, median(p99[0]), median(p99[1]), atMost(goals.p99));
    const double floorRate = median(rates[0]);
    const double libraryRate = median(rates[1]);
    printRow(what + ": records a second", floorName, digits(floorRate / 1000) + " thousand",
             digits(libraryRate / 1000) + " thousand", libraryRate / floorRate, atLeast(goals.rate));
}

void run() {
    const PrivateFolders folders;
    BareDriver driver(folders.bus());
    Arrival bareArrival;
    Arrival libraryArrival;
    {
        const BareReceiver receiver(bareArrival);
        const Session session(Delivery::threaded, libraryArrival);
        compare("state record to a handler on the client thread", "epoll and recv",
                {receiver.socket(), bareArrival}, {driver.inputSocket(session.clientID()), libraryArrival},
                {1.15, 1.3, 0.85});
    }
    {
        const BareForwarder forwarder(bareArrival);
        const Session session(Delivery::forwarded, libraryArrival);
        compare("state record forwarded to the caller thread", "epoll and recv, one eventfd hop",
                {forwarder.socket(), bareArrival}, {driver.inputSocket(session.clientID()), libraryArrival},
                {1.2, 1.3, 0.8});
    }
}

} // namespace
} // namespace moxel::benchmarks

int main() { moxel::benchmarks::run(); }
