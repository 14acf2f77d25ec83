// How often the library's own threads wake up while a session has nothing to do.
#include "Support/BareDriver.h"
#include "Support/PrivateFolders.h"
#include "Support/Session.h"
#include "Support/Table.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <thread>

namespace moxel::benchmarks {
namespace {

constexpr std::chrono::seconds watched{20};

/// Switches of a thread so far, by name and number.
using Switches = std::map<std::string, double>;

std::string firstLine(const std::filesystem::path &path) {
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    return line;
}

/// Each switch to a thread is a wake-up, or the end of a time slice.
Switches switchesOfLibraryThreads() {
    constexpr std::array names{"Mxl-Client", "Mxl-FileChangeO", "moxel-services", "moxel-blocking"};
    Switches switches;
    for (const auto &task : std::filesystem::directory_iterator("/proc/self/task")) {
        const std::string name = firstLine(task.path() / "comm");
        if (std::ranges::none_of(names, [&name](const char *known) { return name == known; }))
            continue;
        std::ifstream status(task.path() / "status");
        double sum = 0;
        for (std::string line; std::getline(status, line);)
            if (line.find("ctxt_switches:") != std::string::npos)
                sum += std::stod(line.substr(line.find(':') + 1));
        switches[name + " " + task.path().filename().string()] = sum;
    }
    return switches;
}

void run() {
    const PrivateFolders folders;
    const BareDriver driver(folders.bus());
    Arrival arrival;
    const Session session(Delivery::forwarded, arrival);
    // Its settings file is watched from now on.
    if (MoxelClientSetSettingValue(session.clientID(), "speed", "fast") != 0)
        std::abort();
    std::this_thread::sleep_for(std::chrono::seconds(2)); // What the start stirred up is over.
    const Switches before = switchesOfLibraryThreads();
    std::this_thread::sleep_for(watched);
    for (const auto &[thread, count] : switchesOfLibraryThreads()) {
        const double wakeUps = (count - before.at(thread)) / static_cast<double>(watched.count());
        printRow("idle session, wake-ups a second of " + thread.substr(0, thread.find(' ')), "none", "0",
                 digits(wakeUps), wakeUps, atMost(0));
    }
}

} // namespace
} // namespace moxel::benchmarks

int main() { moxel::benchmarks::run(); }
