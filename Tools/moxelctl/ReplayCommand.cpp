// "moxelctl replay": plays a trace by way of the reference daemon.
#include "Commands.h"
#include "Complaint.h"
#include "DaemonProcess.h"
#include "ExitCode.h"
#include "MonitorCommandLine.h"
#include "PrivateBus.h"
#include "StopSignal.h"
#include "Values/Format.h"

#include <cstdio>
#include <poll.h>
#include <unistd.h>

namespace moxel::tool {

namespace {

/// Exit statuses of the daemon.
enum DaemonStatus { badTrace = 3, alreadyRunning = 4 };

class ReplayCommand final : public Command {
  public:
    ReplayCommand() : Command("replay", "Play a trace as if the driver sent it") {}

    int run() override {
        // Before there is a daemon that would be left behind. monitor() has one of its own.
        std::optional<StopSignal> stopSignal;
        if (!shows_)
            stopSignal.emplace();
        std::optional<PrivateBus> bus;
        if (shows_) {
            Result<PrivateBus> made = PrivateBus::create();
            if (!made.ok()) {
                complain(made.error().message);
                return failure;
            }
            bus.emplace(std::move(*made));
        }
        Result<DaemonProcess> daemon = DaemonProcess::start(findDaemon(program_), arguments());
        if (!daemon.ok()) {
            complain(daemon.error().message, "Name the daemon's program: --daemon PATH.");
            return failure;
        }
        return shows_ ? show(*daemon) : serve(*daemon, *stopSignal);
    }

  private:
    void describe(CLI::App &command) override {
        command.add_option("FILE", path_, "Trace to play; - is standard input")->required()->type_name("");
        command.add_option("--speed", speed_, "Play it that many times as fast")
            ->check(CLI::Range(0.001, 1000.0))
            ->type_name("N");
        command.add_flag("--loop", loops_, "Play it again when it is over, until Ctrl-C");
        command.add_flag("--at-once", atOnce_, "Do not wait for a client");
        command.add_option("--daemon", program_, "The daemon's program (default: the moxeld that is found)")
            ->type_name("PATH");
        command.add_flag("--show", shows_, "Play it on a bus of its own and show the events that arrive");
        addOptionsOfShow(command);
        command.footer(
            R"(
Starts the reference daemon (moxeld), which plays the trace to every client, from the
moment that the first one registers, and ends with it. No other driver may serve this
user meanwhile. With --show the daemon runs on a bus of its own, where a driver that
serves this user does not disturb it.

Documentation/Traces.md describes traces.

Examples:
  moxelctl replay session.trace
  moxelctl replay session.trace --loop --speed 2
  moxelctl replay session.trace --show
  moxelctl replay session.trace --show --json > events.json)");
    }

    void addOptionsOfShow(CLI::App &command) {
        command.add_flag("--json", monitorOptions_.json, "With --show: print JSON objects")->needs("--show");
        command.add_flag("--plain", monitorOptions_.plain, "With --show: print lines even on a terminal")
            ->needs("--show");
    }

    [[nodiscard]] std::vector<std::string> arguments() const {
        std::vector<std::string> arguments{"--trace", path_, loops_ ? "--loop" : "--once"};
        if (!atOnce_ || shows_)
            arguments.emplace_back("--wait-client");
        if (speed_)
            arguments.insert(arguments.end(), {"--speed", format("%f", *speed_)});
        return arguments;
    }

    /// Waits until the daemon ends, or asks it to end when the user asks for it.
    [[nodiscard]] int serve(DaemonProcess &daemon, const StopSignal &stopSignal) const {
        bool isAnnounced = false;
        bool isStopped = false;
        for (bool runs = true; runs; runs = daemon.readOutput()) {
            if (!isAnnounced && !daemon.readyLine().empty()) {
                std::fprintf(stderr, "moxeld: %s\nthe trace begins %s\n", daemon.readyLine().c_str(),
                             atOnce_ ? "now" : "with the first client");
                isAnnounced = true;
            }
            pollfd descriptors[] = {{daemon.descriptor(), POLLIN, 0},
                                    {isStopped ? -1 : stopSignal.descriptor(), POLLIN, 0}};
            ::poll(descriptors, 2, -1);
            if ((descriptors[1].revents & POLLIN) != 0) {
                isStopped = true;
                daemon.stop();
            }
        }
        return explained(daemon.wait(), isAnnounced);
    }

    /// Shows the events until the trace is over.
    [[nodiscard]] int show(DaemonProcess &daemon) {
        bool runs = true;
        while (runs && daemon.readyLine().empty()) {
            pollfd descriptor{daemon.descriptor(), POLLIN, 0};
            if (::poll(&descriptor, 1, -1) > 0)
                runs = daemon.readOutput();
        }
        if (!runs)
            return explained(daemon.wait(), false);
        monitorOptions_.driverMayLeave = true;
        const int code = monitor(monitorOptions_);
        daemon.stop();
        return code == success ? explained(daemon.wait(), true) : code;
    }

    /// The daemon has said on standard error what was wrong.
    [[nodiscard]] static int explained(int status, bool hasServed) {
        switch (status) {
        case success:
            return success;
        case badTrace:
            complain("the trace cannot be played", "Documentation/Traces.md describes traces.");
            return failure;
        case alreadyRunning:
            complain("another driver serves this user already",
                     "Stop it, or play the trace on a bus of its own with --show.");
            return failure;
        default:
            complain(format("the daemon %s with status %d", hasServed ? "ended" : "did not start: it ended",
                            status),
                     hasServed ? "" : "Name another program with --daemon PATH.");
            return failure;
        }
    }

    std::string path_;
    std::string program_;
    std::optional<double> speed_;
    bool loops_ = false;
    bool atOnce_ = false;
    bool shows_ = false;
    MonitorOptions monitorOptions_;
};

} // namespace

std::unique_ptr<Command> makeReplayCommand() { return std::make_unique<ReplayCommand>(); }

} // namespace moxel::tool
