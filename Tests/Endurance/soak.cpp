// Long runs: millions of records, an application that cannot keep up, a driver that restarts again and again.
#include "Endurance/DaemonProgram.h"
#include "Moxel Daemon/Daemon.h"
#include <Moxel/MoxelClient.h>
#include <Moxel/MoxelRunLoop.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <poll.h>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace moxel;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

/// How long something may take that has to happen.
constexpr milliseconds patience{30000};

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

[[noreturn]] void fail(const std::string &problem) {
    std::printf("FAILED: %s\n", problem.c_str());
    std::fflush(stdout);
    std::_Exit(1);
}
void need(bool condition, const std::string &problem) {
    if (!condition)
        fail(problem);
}

/// Memory of a process that is neither shared with others nor on disk.
size_t kibibytesOf(const std::string &process) {
    std::ifstream status("/proc/" + process + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with("RssAnon:"))
            return std::strtoul(line.c_str() + std::string_view("RssAnon:").size(), nullptr, 10);
    return 0;
}
size_t entriesOf(const std::string &folder) {
    const std::filesystem::directory_iterator entries(folder);
    return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

class Scratch {
  public:
    Scratch() : path_((std::filesystem::temp_directory_path() / "moxel-soak-XXXXXX").string()) {
        need(::mkdtemp(path_.data()) != nullptr, "no temporary folder");
        ::setenv("MOXEL_HID_BUS", bus().c_str(), 1);
        ::setenv("MOXEL_HIDRAW", "off", 1);
        ::setenv("MOXEL_LOG", "off", 1);
        ::setenv("XDG_CONFIG_HOME", (path_ + "/config").c_str(), 1);
        ::setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent", 1);
    }
    ~Scratch() { std::filesystem::remove_all(path_); }
    Scratch(const Scratch &) = delete;
    Scratch &operator=(const Scratch &) = delete;

    [[nodiscard]] std::string bus() const { return path_ + "/bus"; }

  private:
    std::string path_;
};

/// A registered session of the calling thread with a daemon in this process.
class Session {
  public:
    Session(MoxelMessageHandlerProc handler, bool threaded) {
        daemon::Options options;
        options.busFolder = scratch_.bus();
        auto started = daemon::Daemon::start(std::move(options));
        need(started.ok(), "no daemon");
        daemon_ = std::move(*started);
        uint8_t name[] = "\004soak";
        need(SetMoxelHandlers(handler, nullptr, nullptr, threaded) == kMoxelResultOK, "no installation");
        client_ = RegisterMoxelClient(0x536F616B, name, 0, 0xFFFFFFFF);
        need(client_ != 0, "no registration");
    }
    ~Session() {
        UnregisterMoxelClient(client_);
        CleanupMoxelHandlers();
    }
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    /// Sends so many records, made by `make`, without letting too many wait.
    void send(size_t count, const std::function<MoxelStateRecord()> &make) {
        std::vector<MoxelStateRecord> records(count);
        std::ranges::generate(records, make);
        need(daemon_->sendStates(client_, records) == count, "the client does not want the records");
        need(daemon_->waitUntilQueued(queueLimit, patience), "the client takes no records any more");
    }

  private:
    static constexpr size_t queueLimit = 16384;

    Scratch scratch_;
    std::unique_ptr<daemon::Daemon> daemon_;
    uint16_t client_ = 0;
};

MoxelStateRecord numbered(uint16_t command, int32_t number) {
    MoxelStateRecord record{};
    record.version = 1;
    record.command = command;
    record.value = number;
    return record;
}

// ------------------------------------------------------------------------------------------ Records

std::atomic<int32_t> nextNumber{0};
std::atomic<int32_t> firstWrong{-1};

void expectNext(uint32_t, uint32_t type, void *argument) {
    if (type != kMoxelMsgDeviceState)
        return;
    const int32_t expected = nextNumber.load(std::memory_order_relaxed);
    int32_t none = -1;
    if (static_cast<const MoxelStateRecord *>(argument)->value != expected)
        (void)firstWrong.compare_exchange_strong(none, expected);
    nextNumber.store(expected + 1, std::memory_order_release);
}

void awaitNumber(int32_t number) {
    const auto deadline = Clock::now() + patience;
    while (nextNumber.load(std::memory_order_acquire) < number) {
        need(Clock::now() < deadline, "a record is lost after number " + std::to_string(nextNumber));
        std::this_thread::yield();
    }
}

/// All records arrive on the library's thread, in their order.
void soakRecords(int32_t count) {
    Session session(expectNext, true);
    constexpr int32_t batch = 200;
    const auto start = Clock::now();
    size_t early = 0;
    for (int32_t number = 0; number < count;) {
        const int32_t size = std::min(batch, count - number);
        session.send(static_cast<size_t>(size), [&number] {
            const int32_t mine = number++;
            return numbered(static_cast<uint16_t>(mine % 12), mine);
        });
        if (early == 0 && number > count / 10) {
            awaitNumber(number);
            early = kibibytesOf("self");
        }
    }
    awaitNumber(count);
    const double seconds = secondsSince(start);
    need(firstWrong == -1, "record " + std::to_string(firstWrong) + " came out of order");
    const size_t late = kibibytesOf("self");
    std::printf("%d records in their order in %.1f s (%.0f a second); memory after a tenth %zu KiB, at the "
                "end %zu KiB\n",
                count, seconds, count / seconds, early, late);
    need(late < early + 1024, "memory grows");
}

// ------------------------------------------------------------------------------------------ Backlog

constexpr std::chrono::microseconds handlingTime{100};
std::atomic<int32_t> keptRecords{0};
std::atomic<int32_t> otherRecords{0};

void handleSlowly(uint32_t, uint32_t type, void *argument) {
    if (type != kMoxelMsgDeviceState)
        return;
    const auto *record = static_cast<const MoxelStateRecord *>(argument);
    if (record->command == 2 || record->command == 10 || record->command == 11) {
        int32_t none = -1;
        if (record->value != keptRecords)
            (void)firstWrong.compare_exchange_strong(none, keptRecords);
        ++keptRecords;
    } else {
        ++otherRecords;
    }
    const auto end = Clock::now() + handlingTime;
    while (Clock::now() < end)
        continue;
}

/// The application's thread gets twice as many records as it can handle; those that must not be lost are a
/// quarter.
void soakBacklog(int seconds) {
    Session session(handleSlowly, false);
    const double rate = 2e6 / static_cast<double>(handlingTime.count());
    std::atomic<bool> isOver{false};
    int32_t sent = 0;
    int32_t sentKept = 0;
    const auto start = Clock::now();
    std::thread sender([&] {
        constexpr uint16_t commands[] = {10, 3, 3, 3, 2, 3, 3, 3, 11, 3, 3, 3};
        while (secondsSince(start) < seconds) {
            const auto due = static_cast<int32_t>(secondsSince(start) * rate);
            if (due > sent)
                session.send(static_cast<size_t>(due - sent), [&] {
                    const uint16_t command = commands[static_cast<size_t>(sent++) % std::size(commands)];
                    return numbered(command, command == 3 ? 0 : sentKept++);
                });
            std::this_thread::sleep_for(milliseconds(1)); // The rate is the point.
        }
        isOver = true;
    });
    size_t early = 0;
    size_t highest = 0;
    auto nextLook = start + std::chrono::seconds(1);
    while (!isOver) {
        (void)MoxelRunLoopDispatch(10);
        if (Clock::now() < nextLook)
            continue;
        nextLook += std::chrono::seconds(1);
        highest = std::max(highest, kibibytesOf("self"));
        if (early == 0 && secondsSince(start) > seconds / 10.0)
            early = kibibytesOf("self");
    }
    sender.join();
    const auto deadline = Clock::now() + patience;
    while (keptRecords < sentKept && Clock::now() < deadline)
        (void)MoxelRunLoopDispatch(10);
    std::printf(
        "%d records in %d s, handled %.1f%% of them; of %d that must not be lost %d came; memory after a "
        "tenth %zu KiB, at most %zu KiB\n",
        sent, seconds, 100.0 * (keptRecords + otherRecords) / sent, sentKept, keptRecords.load(), early,
        highest);
    need(keptRecords == sentKept, "records are lost");
    need(firstWrong == -1, "record " + std::to_string(firstWrong) + " came out of order");
    need(sent > keptRecords + otherRecords, "the application could keep up");
    need(highest < early + 1024, "memory grows");
}

// ------------------------------------------------------------------------------------------ Restarts

/// The example Examples/recovering.c.
class Application {
  public:
    Application() {
        int output[2]{};
        need(::pipe2(output, O_CLOEXEC) == 0, "no pipe");
        process_ = ::fork();
        if (process_ == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            ::dup2(output[1], STDOUT_FILENO);
            ::execl(EXAMPLE_RECOVERING, EXAMPLE_RECOVERING, "50", nullptr);
            ::_exit(127);
        }
        ::close(output[1]);
        output_ = output[0];
    }
    ~Application() {
        ::kill(process_, SIGKILL);
        ::waitpid(process_, nullptr, 0);
        ::close(output_);
    }
    Application(const Application &) = delete;
    Application &operator=(const Application &) = delete;

    void await(const std::string &wanted) {
        for (;;) {
            const std::string line = readLine();
            if (line == wanted)
                return;
        }
    }
    [[nodiscard]] std::string folder() const { return "/proc/" + std::to_string(process_); }
    [[nodiscard]] size_t kibibytes() const { return kibibytesOf(std::to_string(process_)); }

  private:
    std::string readLine() const {
        std::string line;
        for (char character = 0; character != '\n';) {
            pollfd entry{output_, POLLIN, 0};
            need(::poll(&entry, 1, static_cast<int>(patience.count())) > 0, "the application is silent");
            need(::read(output_, &character, 1) == 1, "the application has ended");
            if (character != '\n')
                line += character;
        }
        return line;
    }

    pid_t process_ = -1;
    int output_ = -1;
};

/// Ends a daemon and starts another under the application, which has to find it.
void soakRestarts(int count) {
    const Scratch scratch;
    Application application;
    std::vector<double> times;
    size_t early = 0;
    size_t threads = 0;
    size_t descriptors = 0;
    const auto start = Clock::now();
    for (int restart = 0; restart <= count; ++restart) {
        endurance::DaemonProgram daemon(MOXELD, scratch.bus(), {"--movement", "--rate", "500"});
        need(daemon.hasStarted(), "the daemon does not start");
        const auto ready = Clock::now();
        application.await("The controller moves.");
        if (restart > 0)
            times.push_back(secondsSince(ready) * 1000);
        if (restart == std::min(count / 10, 100)) {
            early = application.kibibytes();
            threads = entriesOf(application.folder() + "/task");
            descriptors = entriesOf(application.folder() + "/fd");
        }
        if (restart == count) {
            const size_t late = application.kibibytes();
            std::printf("%d restarts in %.1f s; application's memory %zu KiB and at the end %zu KiB\n", count,
                        secondsSince(start), early, late);
            need(late < early + 512, "the application's memory grows");
            need(entriesOf(application.folder() + "/task") == threads,
                 "the application's threads grow in number");
            need(entriesOf(application.folder() + "/fd") == descriptors, "the application leaks descriptors");
            break;
        }
        if (restart % 2 == 0)
            daemon.signal(SIGTERM); // In order, or
        else
            daemon.kill(); // not.
        application.await("The driver is gone.");
    }
    std::ranges::sort(times);
    const auto at = [&times](size_t percent) { return times[(times.size() - 1) * percent / 100]; };
    std::printf("first event after the driver is ready: median %.1f ms, 99%% %.1f ms, longest %.1f ms\n",
                at(50), at(99), at(100));
}

} // namespace

int main(int argumentCount, char **arguments) {
    CLI::App app("Long runs of the whole system.");
    app.require_subcommand(1);
    int32_t records = 10000000;
    auto *recordsCommand = app.add_subcommand("records", "Numbered state records to a threaded handler");
    recordsCommand->add_option("--count", records)->check(CLI::PositiveNumber)->capture_default_str();
    int seconds = 60;
    auto *backlogCommand =
        app.add_subcommand("backlog", "Twice the records that a forwarded handler can take");
    backlogCommand->add_option("--seconds", seconds)->check(CLI::PositiveNumber)->capture_default_str();
    int restarts = 1000;
    auto *restartsCommand = app.add_subcommand("restarts", "Restarts of the driver under an application");
    restartsCommand->add_option("--count", restarts)->check(CLI::PositiveNumber)->capture_default_str();
    CLI11_PARSE(app, argumentCount, arguments);
    if (recordsCommand->parsed())
        soakRecords(records);
    if (backlogCommand->parsed())
        soakBacklog(seconds);
    if (restartsCommand->parsed())
        soakRestarts(restarts);
    return 0;
}
