// What a state record and a session cost when the process has 200 sessions, beside as many bare threads.
#include "Support/BareDriver.h"
#include "Support/BareReceivers.h"
#include "Support/PrivateFolders.h"
#include "Support/Session.h"
#include "Support/Table.h"

#include <fstream>
#include <sstream>
#include <sys/resource.h>

namespace moxel::benchmarks {
namespace {

constexpr size_t rounds = 31;
constexpr size_t recordsPerRound = 1'000;
constexpr size_t sessionCount = 200;

/// Memory that is in use, in bytes.
struct Memory {
    double stacks = 0; ///< Of threads.
    double rest = 0;
};

/// A thread's stack is a mapping of the size that new stacks have; older C libraries take the guard page off
/// it.
Memory memoryInUse() {
    rlimit limit{};
    ::getrlimit(RLIMIT_STACK, &limit);
    const auto stackSize = static_cast<double>(limit.rlim_cur) / 1024;
    Memory memory;
    std::ifstream maps("/proc/self/smaps");
    double size = 0;
    for (std::string line; std::getline(maps, line);) {
        std::istringstream words(line);
        std::string name;
        double number = 0;
        words >> name >> number;
        if (name == "Size:")
            size = number;
        else if (name == "Anonymous:")
            (size == stackSize || size == stackSize - 4 ? memory.stacks : memory.rest) += number * 1024;
    }
    return memory;
}

/// Sends one record after the other, to one socket after the other; median seconds until it is handled.
double latencyOf(const std::vector<int> &sockets, Arrival &arrival) {
    const StateDatagram datagram;
    std::vector<double> latencies;
    for (size_t i = 0; i < recordsPerRound; ++i) {
        arrival.expect(1);
        const double begin = now();
        datagram.sendTo(sockets[i % sockets.size()]);
        latencies.push_back(arrival.await() - begin);
    }
    return median(std::move(latencies));
}

void run() {
    const PrivateFolders folders;
    BareDriver driver(folders.bus());
    Arrival arrival;
    std::vector<std::unique_ptr<Session>> sessions;
    std::vector<int> sockets;
    const auto addSession = [&] {
        sessions.push_back(std::make_unique<Session>(Delivery::threaded, arrival));
        sockets.push_back(driver.inputSocket(sessions.back()->clientID()));
    };
    addSession();
    const Memory before = memoryInUse();
    while (sessions.size() < sessionCount)
        addSession();
    const Memory after = memoryInUse();
    const double perSession = (after.rest - before.rest) / (sessionCount - 1) / 1024;
    const double perStack = (after.stacks - before.stacks) / (sessionCount - 1) / 1024;
    printRow("memory of a session, KiB", "its two threads' stacks", digits(perStack) + " KiB",
             digits(perSession) + " KiB", perSession, atMost(100));

    Arrival bareArrival;
    std::vector<std::unique_ptr<BareReceiver>> receivers;
    std::vector<int> bareSockets;
    while (receivers.size() < sessionCount) {
        receivers.push_back(std::make_unique<BareReceiver>(bareArrival));
        bareSockets.push_back(receivers.back()->socket());
    }
    const std::vector<int> oneBareSocket{bareSockets.front()};
    const std::vector<int> oneSocket{sockets.front()};
    const RoundsOfSubjects times = inRounds(rounds, {[&] { return latencyOf(oneBareSocket, bareArrival); },
                                                     [&] { return latencyOf(bareSockets, bareArrival); },
                                                     [&] { return latencyOf(oneSocket, arrival); },
                                                     [&] { return latencyOf(sockets, arrival); }});
    const double bareGrowth = median(times[1]) / median(times[0]);
    const double ourGrowth = median(times[3]) / median(times[2]);
    printRow("record to each of 200 sessions in turn", "the same to one of them", duration(median(times[2])),
             duration(median(times[3])), ourGrowth, atMost(1.15 * bareGrowth));
    printRow("record to each of 200 bare threads in turn", "the same to one of them",
             duration(median(times[0])), duration(median(times[1])), bareGrowth, atMost(1.15 * bareGrowth));
    printTimes("record to each of 200 sessions in turn", "200 bare threads", median(times[1]),
               median(times[3]), atMost(1.15));
}

} // namespace
} // namespace moxel::benchmarks

int main() { moxel::benchmarks::run(); }
