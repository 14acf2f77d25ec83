// moxeld: the reference daemon as a program.
#include "Moxel Daemon/Bus/BusFolder.h"
#include "Moxel Daemon/Daemon.h"
#include "Moxel Daemon/Motion/TraceParser.h"
#include "Platform/Linux/Descriptor.h"
#include "Platform/Log.h"
#include "Platform/RunLoop.h"

#include <CLI/CLI.hpp>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <pthread.h>
#include <signal.h>
#include <string>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>
#include <vector>

namespace {

using namespace moxel;
using namespace moxel::daemon;

enum ExitCode { success = 0, failure = 1, badUsage = 2, badTrace = 3, alreadyRunning = 4 };

constexpr const char *examples = R"(Examples:
  moxeld --device auto
      bring the motion of the controllers that are attached, or come later, to the clients of this user
  moxeld --device /dev/input/event7 --dead-zone 20 --scale 0.5
      use one device, and half of what it moves
  moxeld --movement
      serve clients of this user and move all axes
  moxeld --trace demo.trace --loop
      play a trace again and again
  moxeld --trace demo.trace --wait-client --once
      wait for a client, play the trace to it and end
  moxeld --bus uhid
      serve clients through the kernel's HID devices
  echo "motion 0 0 200 0 0 0" | moxeld --trace -
      play what comes on standard input
  moxeld --bus-folder /tmp/bus --user 501 --fault late-acknowledgement=250
      a bus of its own, and a daemon that is slow to answer

Exit status: 0 ended as told, 1 failure, 2 bad command line, 3 bad trace, 4 already running.
The format of traces is described in Documentation/Traces.md, devices in Documentation/Devices.md.)";

struct CommandLine {
    Options options;
    PlayOptions play;
    std::string bus = "socket";
    std::vector<std::string> devices;
    std::string trace;
    bool moves = false;
    double rate = Movement::defaultRate;
    bool endsWithTrace = false;
    bool isVerbose = false;
};

void printError(const std::string &message) { std::fprintf(stderr, "moxeld: %s\n", message.c_str()); }

// ---------------------------------------------------------------------------------------- Command line

void describe(CLI::App &app, CommandLine &line, std::vector<std::string> &faults) {
    app.footer(std::string("Faults:\n") + faultList() + "\n" + examples);
    app.add_option("--bus", line.bus,
                   "Where the channels appear: on the user-space bus (socket) or as devices\n"
                   "of the kernel (uhid)")
        ->check(CLI::IsMember({"socket", "uhid"}))
        ->capture_default_str();
    app.add_option("--bus-folder", line.options.busFolder,
                   "Folder of the user-space bus (default: that of this user)");
    app.add_option("--export-folder", line.options.exportFolder,
                   "Folder that applications export their files to (default: that of this user)");
    app.add_option("--user", line.options.user,
                   "User identifier of the base channel (default: who is on the console)");
    auto *trace =
        app.add_option("--trace", line.trace, "Play a trace from a file, or from standard input (-)");
    auto *movement = app.add_flag("--movement", line.moves, "Make up movement of all axes")->excludes(trace);
    auto *device =
        app.add_option("--device", line.devices,
                       "Use an input device: its file, or auto for every six-axis controller, else any\n"
                       "stick or gamepad; may be given more than once")
            ->type_name("PATH|auto")
            ->allow_extra_args(false)
            ->excludes(trace)
            ->excludes(movement);
    app.add_option("--dead-zone", line.options.devices.axes.deadZone,
                   "Deflections up to this one count as none (full deflection is 350)")
        ->needs(device)
        ->check(CLI::Range(0.0, 300.0))
        ->capture_default_str();
    app.add_option("--scale", line.options.devices.axes.scale, "What the devices' motion is multiplied with")
        ->needs(device)
        ->check(CLI::Range(0.01, 100.0))
        ->capture_default_str();
    app.add_option("--rate", line.rate, "Motion events a second of --movement")
        ->needs(movement)
        ->check(CLI::Range(1 / Movement::highestRate, Movement::highestRate))
        ->capture_default_str();
    auto *loop = app.add_flag("--loop", line.play.loop, "Play the trace again when it is over")->needs(trace);
    app.add_option("--speed", line.play.speed, "Play the trace that many times as fast")
        ->needs(trace)
        ->check(CLI::Range(0.001, 1000.0));
    app.add_flag("--wait-client", line.play.waitForClient, "Begin the trace when a client has registered")
        ->needs(trace);
    app.add_flag("--once", line.endsWithTrace, "End when the trace is over")->needs(trace)->excludes(loop);
    app.add_option("--fault", faults, "Do something wrong; may be given more than once")
        ->type_name("NAME[=VALUE]");
    app.add_flag("--verbose", line.isVerbose, "Show information on standard error, not only errors");
}

/// False when a device has no name.
bool chooseDevices(const std::vector<std::string> &names, DeviceOptions &devices) {
    for (const std::string &name : names) {
        if (name.empty())
            return false;
        if (name == "auto")
            devices.choosesItself = true;
        else
            devices.paths.push_back(std::filesystem::absolute(name).string());
    }
    return true;
}

// ---------------------------------------------------------------------------------------- Process

/// Many clients may be connected to many channels.
void raiseDescriptorLimit() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
}

/// Makes the signals that end the program readable; before any thread is started, which would get them.
Descriptor watchSignals() {
    sigset_t signals;
    ::sigemptyset(&signals);
    ::sigaddset(&signals, SIGTERM);
    ::sigaddset(&signals, SIGINT);
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return Descriptor(::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
}

Result<void> startMotion(Daemon &daemon, const CommandLine &line, const TraceBlock &trace) {
    if (line.moves)
        return daemon.startMovement(line.rate);
    if (line.trace == "-")
        return daemon.playTraceFrom(STDIN_FILENO, line.play);
    if (!line.trace.empty())
        return daemon.playTrace(trace, line.play);
    return {};
}

void tellReady(const Daemon &daemon) {
    std::printf("ready %s in %s\n", daemon.baseChannelName().c_str(), daemon.busFolder().c_str());
    std::fflush(stdout);
    ::sd_notify(0, "READY=1");
}

/// The last events of a trace that is over may still be on their way.
void awaitDelivery(const Daemon &daemon) {
    constexpr std::chrono::seconds limit{3};
    (void)daemon.waitUntil(
        [](const Observation &seen) {
            return !seen.traceIsOver || (seen.queuedBytes == 0 && seen.sendingClients == 0);
        },
        limit);
}

int serve(CommandLine &line, const TraceBlock &trace, RunLoop &runLoop) {
    line.options.whenTraceEnds = [&](const std::string &problem) {
        if (line.endsWithTrace || !problem.empty())
            runLoop.stop();
    };
    Result<std::unique_ptr<Daemon>> daemon = Daemon::start(line.options);
    if (!daemon.ok()) {
        printError(daemon.error().message);
        return daemon.error().code == BusFolder::alreadyPublished ? alreadyRunning : failure;
    }
    tellReady(**daemon);
    if (Result<void> started = startMotion(**daemon, line, trace); !started.ok()) {
        printError(started.error().message);
        return failure;
    }
    runLoop.run();
    ::sd_notify(0, "STOPPING=1");
    if (line.endsWithTrace)
        awaitDelivery(**daemon);
    const std::string problem = (*daemon)->observe().traceProblem;
    if (problem.empty())
        return success;
    printError("standard input: " + problem);
    return badTrace;
}

int runDaemon(CommandLine &line) {
    const LogCapture log([isVerbose = line.isVerbose](LogLevel level, std::string_view text) {
        if (isVerbose || level == LogLevel::error)
            printError(std::string(text));
    });
    TraceBlock trace;
    if (!line.trace.empty() && line.trace != "-") {
        Result<TraceBlock> loaded = loadTrace(line.trace);
        if (!loaded.ok()) {
            printError(loaded.error().message);
            return badTrace;
        }
        trace = std::move(*loaded);
    }
    const Descriptor signals = watchSignals();
    Result<std::shared_ptr<RunLoop>> runLoop = RunLoop::current();
    if (!signals || !runLoop.ok()) {
        printError("cannot wait for signals");
        return failure;
    }
    Result<RunLoopSource> source = (*runLoop)->watchDescriptor(
        signals.get(), RunLoop::Descriptor::readable, [&runLoop](RunLoop::Readiness) { (*runLoop)->stop(); });
    if (!source.ok()) {
        printError(source.error().message);
        return failure;
    }
    raiseDescriptorLimit();
    return serve(line, trace, **runLoop);
}

int runProgram(int argumentCount, char **arguments) {
    CommandLine line;
    line.options.logEntries = 0; // Nobody looks at them.
    std::vector<std::string> faults;
    CLI::App app("The reference daemon of the 3D motion controller driver: publishes its data channels as\n"
                 "virtual HID devices, registers clients, and sends them motion and messages.",
                 "moxeld");
    describe(app, line, faults);
    try {
        app.parse(argumentCount, arguments);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? success : badUsage;
    }
    for (const std::string &fault : faults) {
        if (Result<void> added = addFault(line.options.faults, fault); !added.ok()) {
            printError(added.error().message);
            return badUsage;
        }
    }
    if (line.bus == "uhid") {
        if (!line.options.busFolder.empty()) {
            printError("--bus uhid has no --bus-folder");
            return badUsage;
        }
        line.options.bus = Options::Bus::uhid;
    }
    if (line.trace == "-" && line.play.loop) {
        printError("standard input cannot be looped");
        return badUsage;
    }
    if (!chooseDevices(line.devices, line.options.devices)) {
        printError("--device needs the path of a device, or auto");
        return badUsage;
    }
    return runDaemon(line);
}

} // namespace

int main(int argumentCount, char **arguments) {
    try {
        return runProgram(argumentCount, arguments);
    } catch (const std::exception &exception) {
        std::fprintf(stderr, "moxeld: %s\n", exception.what());
        return failure;
    }
}
