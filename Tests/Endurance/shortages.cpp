// Lets each allocation of a session fail, one after the other.
#include "Endurance/Allocations.h"
#include "Endurance/DaemonProgram.h"
#include "Endurance/ProcessState.h"
#include "Platform/Thread.h"
#include <Moxel/MoxelClient.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <pthread.h>
#include <string>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

using namespace moxel::endurance;
using std::chrono::milliseconds;

struct CommandLine {
    uint64_t first = 0;
    uint64_t step = 1;
    uint64_t failures = 1;
    bool registers = false;
};

constexpr milliseconds patience{10000};
/// The first allocation that fails now, for those who look at a process that has crashed.
uint64_t *attempt = nullptr;

void message(uint32_t, uint32_t, void *) {}
void device(uint32_t) {}

/// Whether the session came about.
bool live(bool registers) {
    bool works = SetMoxelHandlers(message, device, device, true) == kMoxelResultOK;
    if (works && registers) {
        uint8_t name[] = "\011shortages";
        const uint16_t client = RegisterMoxelClient(0x53686F72, name, 0, 0xFFFFFFFF);
        int32_t result = 0;
        works = client != 0 && MoxelControl(0x74657374, 1, &result) == 0;
        UnregisterMoxelClient(client);
    }
    CleanupMoxelHandlers();
    return works;
}

/// On a busy machine a session may come too late for its limits.
bool comesAbout(bool registers) {
    const auto deadline = std::chrono::steady_clock::now() + 3 * patience;
    bool works = live(registers);
    while (!works && std::chrono::steady_clock::now() < deadline)
        works = live(registers);
    return works;
}

/// Lets more and more allocations come before the first that fails, until none is left to fail.
void failEach(const CommandLine &line) {
    for (*attempt = line.first;; *attempt += line.step) {
        Allocations::failFrom(*attempt, line.failures);
        (void)live(line.registers);
        Allocations::failNoMore();
        const bool hasFailed = Allocations::failed() > 0;
        // A call without a result cannot tell that it failed, so the application makes it again.
        UnregisterMoxelClient(0);
        CleanupMoxelHandlers();
        if (!hasFailed)
            return;
    }
}

bool run(const CommandLine &line) {
    // What is made once and kept is no leak: a leak comes every time.
    constexpr int rounds = 4;
    ProcessState before;
    for (int round = 1; round <= rounds; ++round) {
        if (!comesAbout(line.registers)) {
            std::printf("FAILED: a session without a fault does not come about\n");
            return false;
        }
        const ProcessState after =
            round == 1 ? ProcessState::now() : ProcessState::atRest(before, patience, patience);
        if (round > 1 && after.threads <= before.threads && after.descriptors <= before.descriptors &&
            after.blocks <= before.blocks)
            return true;
        if (round == rounds) {
            std::printf("FAILED: something is left each time: before %s, after %s\n",
                        before.description().c_str(), after.description().c_str());
            std::fflush(stdout);
            Allocations::writeAddedOrigins(STDOUT_FILENO);
        }
        before = after;
        Allocations::keepOrigins();
        Allocations::markOrigins();
        if (round < rounds)
            failEach(line);
    }
    return false;
}

/// In a process of its own, with a daemon of its own.
bool runInFolder(const CommandLine &line, const std::string &folder) {
    std::filesystem::create_directory(folder);
    moxel::Thread::current()->setName("application"); // To describe such a thread takes memory.
    ::setenv("MOXEL_HID_BUS", (folder + "/bus").c_str(), 1);
    ::setenv("XDG_CONFIG_HOME", (folder + "/config").c_str(), 1);
    const DaemonProgram daemon(MOXELD, folder + "/bus", {});
    if (!daemon.hasStarted())
        std::printf("FAILED: the daemon does not start\n");
    return daemon.hasStarted() && run(line);
}

/// An application may have used up the keys of threads whose values need no memory.
void useUpPlainKeys() {
    constexpr int plainKeys = 32;
    pthread_key_t key{};
    for (int i = 0; i < plainKeys; ++i)
        (void)::pthread_key_create(&key, nullptr);
}

} // namespace

int main(int argumentCount, char **arguments) {
    CommandLine line;
    CLI::App app("Lets each allocation of a session fail, one after the other.");
    uint64_t jobs = 1;
    app.add_option("--first", line.first, "The first of them that fails")->capture_default_str();
    app.add_option("--jobs", jobs, "Processes that share the allocations between them")
        ->check(CLI::Range(1, 1000))
        ->capture_default_str();
    app.add_option("--failures", line.failures, "How many fail in a row")->capture_default_str();
    app.add_flag("--register", line.registers, "Register and make a call, too");
    CLI11_PARSE(app, argumentCount, arguments);
    useUpPlainKeys();

    std::string scratch = (std::filesystem::temp_directory_path() / "moxel-shortages-XXXXXX").string();
    if (::mkdtemp(scratch.data()) == nullptr)
        return 2;
    ::setenv("MOXEL_HIDRAW", "off", 1);
    ::setenv("MOXEL_LOG", "off", 1);
    ::setenv("XDG_DATA_DIRS", MOXEL_DATA_FOLDER, 1);
    ::setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent", 1);
    auto *attempts = static_cast<uint64_t *>(
        ::mmap(nullptr, jobs * sizeof(uint64_t), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    std::vector<pid_t> children;
    for (uint64_t job = 0; job < jobs; ++job) {
        children.push_back(::fork());
        if (children.back() != 0)
            continue;
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        attempt = attempts + job;
        CommandLine mine = line;
        mine.first += job;
        mine.step = jobs;
        std::exit(runInFolder(mine, scratch + "/" + std::to_string(job)) ? 0 : 1);
    }
    bool isFine = true;
    uint64_t count = 0;
    for (uint64_t job = 0; job < jobs; ++job) {
        int status = 0;
        const bool hasPassed = ::waitpid(children[job], &status, 0) == children[job] && status == 0;
        if (!hasPassed)
            std::printf("FAILED at allocation %llu with status %x\n",
                        static_cast<unsigned long long>(attempts[job]), static_cast<unsigned>(status));
        isFine = isFine && hasPassed;
        count = std::max(count, attempts[job]);
    }
    std::printf("%llu allocations in a session, each failed with %llu behind it\n",
                static_cast<unsigned long long>(count), static_cast<unsigned long long>(line.failures - 1));
    std::filesystem::remove_all(scratch);
    return isFine ? 0 : 1;
}
