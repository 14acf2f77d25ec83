// Runs sessions with faults that a seed draws, each in a process of its own.
#include "Endurance/FaultSession.h"

#include <CLI/CLI.hpp>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace moxel::endurance;
using Clock = std::chrono::steady_clock;

struct CommandLine {
    uint64_t seed = 1;
    uint64_t first = 0;
    uint64_t sessions = 20;
    size_t jobs = 8;
    bool isVerbose = false;
    FaultSetting setting{MOXELD, std::string(MOXEL_TRACES) + "/messages.trace", MOXEL_DATA_FOLDER, ""};
};

struct Tally {
    uint64_t passed = 0;
    uint64_t failed = 0;
    uint64_t skipped = 0;
};

/// Where files need no disk, if there is such a place.
std::string makeScratch() {
    std::string name =
        std::filesystem::exists("/dev/shm") ? "/dev/shm/" : std::filesystem::temp_directory_path().string();
    name += "/moxel-faults-XXXXXX";
    if (::mkdtemp(name.data()) == nullptr) {
        std::perror("moxel faults");
        std::exit(2);
    }
    return name;
}

class Runner {
  public:
    explicit Runner(const CommandLine &line) : line_(line), scratch_(makeScratch()) {}
    ~Runner() { std::filesystem::remove_all(scratch_); }
    Runner(const Runner &) = delete;
    Runner &operator=(const Runner &) = delete;

    bool run() {
        const auto start = Clock::now();
        for (uint64_t number = line_.first; number < line_.first + line_.sessions; ++number) {
            if (running_.size() >= line_.jobs)
                awaitOne();
            begin(number);
        }
        while (!running_.empty())
            awaitOne();
        report(std::chrono::duration<double>(Clock::now() - start).count());
        return failures_ == 0;
    }

  private:
    /// A session that takes longer hangs.
    static constexpr unsigned secondsLimit = 120;

    [[nodiscard]] std::string folderOf(uint64_t number) const {
        return scratch_ + "/" + std::to_string(number);
    }

    void begin(uint64_t number) {
        const std::string folder = folderOf(number);
        std::filesystem::create_directory(folder);
        const pid_t child = ::fork();
        if (child == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            ::alarm(secondsLimit);
            const int log =
                ::open((folder + "/log").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
            ::dup2(log, STDOUT_FILENO);
            ::dup2(log, STDERR_FILENO);
            FaultSetting setting = line_.setting;
            setting.scratch = folder;
            std::exit(static_cast<int>(runFaultSession(FaultPlan::draw(line_.seed, number), setting)));
        }
        if (child > 0)
            running_[child] = number;
    }

    void awaitOne() {
        int status = 0;
        pid_t child = -1;
        while ((child = ::waitpid(-1, &status, 0)) < 0 && errno == EINTR)
            continue;
        const auto found = running_.find(child);
        if (found == running_.end())
            return;
        const uint64_t number = found->second;
        running_.erase(found);
        count(number, status);
        std::filesystem::remove_all(folderOf(number));
    }

    void count(uint64_t number, int status) {
        const FaultPlan plan = FaultPlan::draw(line_.seed, number);
        Tally &tally = tallies_[plan.fault];
        const int exit = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        const std::string log = logOf(number);
        if (exit == static_cast<int>(FaultOutcome::passed)) {
            ++tally.passed;
        } else if (exit == static_cast<int>(FaultOutcome::skipped)) {
            if (tally.skipped++ == 0)
                std::printf("%s: %s", faultName(plan.fault), log.c_str());
        } else {
            ++tally.failed;
            ++failures_;
            const int signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
            std::printf("session %llu (%s) %s%s\n%srepeat: --seed %llu --first %llu --sessions 1\n",
                        static_cast<unsigned long long>(number), plan.description().c_str(),
                        signal == SIGALRM ? "hangs"
                        : signal == 0     ? "failed"
                                          : "crashed with signal ",
                        signal == SIGALRM || signal == 0 ? "" : std::to_string(signal).c_str(), log.c_str(),
                        static_cast<unsigned long long>(line_.seed), static_cast<unsigned long long>(number));
            std::fflush(stdout);
        }
        if (line_.isVerbose)
            std::printf("%llu %s: %d\n%s", static_cast<unsigned long long>(number),
                        plan.description().c_str(), exit, log.c_str());
    }

    /// The last lines of what the session wrote.
    [[nodiscard]] std::string logOf(uint64_t number) const {
        constexpr size_t longest = 100000;
        std::ifstream file(folderOf(number) + "/log", std::ios::binary);
        std::string text{std::istreambuf_iterator<char>(file), {}};
        return text.size() > longest ? "...\n" + text.substr(text.find('\n', text.size() - longest) + 1)
                                     : text;
    }

    void report(double seconds) const {
        for (const auto &[fault, tally] : tallies_)
            std::printf("%-20s %6llu passed %6llu skipped %6llu failed\n", faultName(fault),
                        static_cast<unsigned long long>(tally.passed),
                        static_cast<unsigned long long>(tally.skipped),
                        static_cast<unsigned long long>(tally.failed));
        std::printf("%llu sessions of seed %llu in %.1f s, %llu failed\n",
                    static_cast<unsigned long long>(line_.sessions),
                    static_cast<unsigned long long>(line_.seed), seconds,
                    static_cast<unsigned long long>(failures_));
    }

    const CommandLine &line_;
    std::string scratch_;
    std::map<pid_t, uint64_t> running_;
    std::map<FaultPlan::Fault, Tally> tallies_;
    uint64_t failures_ = 0;
};

} // namespace

int main(int argumentCount, char **arguments) {
    CommandLine line;
    CLI::App app("Runs sessions with faults that a seed draws, each in a process of its own.");
    app.add_option("--seed", line.seed, "Draws the faults; the same seed draws the same")
        ->capture_default_str();
    app.add_option("--first", line.first, "Number of the first session")->capture_default_str();
    app.add_option("--sessions", line.sessions, "How many")->capture_default_str();
    app.add_option("--jobs", line.jobs, "Sessions at a time")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    app.add_flag("--verbose", line.isVerbose, "Show every session and what it logs");
    CLI11_PARSE(app, argumentCount, arguments);
    return Runner(line).run() ? 0 : 1;
}
