#include "Monitor.h"

#include "Complaint.h"
#include "Dashboard.h"
#include "Event.h"
#include "EventLoop.h"
#include "ExitCode.h"
#include "Output.h"
#include "Values/Format.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <map>
#include <memory>
#include <unistd.h>

namespace moxel::tool {

namespace {

using Clock = std::chrono::steady_clock;
using End = EventLoop::End;

/// Lives on the main thread, where the handlers are called too.
class Monitor {
  public:
    explicit Monitor(const MonitorOptions &options) : options_(options) {}

    int run() {
        EventLoop loop;
        ClientSession session;
        if (const int code = session.begin(handlers(), options_.name, options_.events); code != success)
            return code;
        began_ = Clock::now();
        if (const int code = prepare(session); code != success)
            return code;
        if (!options_.json && !options_.plain && ::isatty(STDOUT_FILENO))
            dashboard_ =
                std::make_unique<Dashboard>(format("client %d \"%s\"", session.clientID(), options_.name));
        const End end = loop.run({.seconds = options_.seconds,
                                  .isDone = [this] { return options_.count && total_ >= *options_.count; },
                                  .refresh = [this] { return dashboard_ ? dashboard_->refresh() : -1; }});
        dashboard_.reset();
        printSummary();
        return exitCode(end);
    }

  private:
    Handlers handlers() {
        return {[](uint32_t productID, uint32_t message, void *argument, void *context) {
                    static_cast<Monitor *>(context)->take(messageEvent(productID, message, argument));
                },
                [](uint32_t deviceID, void *context) {
                    static_cast<Monitor *>(context)->take(deviceEvent(Event::Kind::added, deviceID));
                },
                [](uint32_t deviceID, void *context) {
                    static_cast<Monitor *>(context)->take(deviceEvent(Event::Kind::removed, deviceID));
                },
                this};
    }

    [[nodiscard]] int prepare(const ClientSession &session) const {
        if (options_.prepare)
            return options_.prepare(session);
        SetMoxelClientButtonMask(session.clientID(), options_.buttons);
        return success;
    }

    void take(Event event) {
        if (options_.count && total_ >= *options_.count)
            return; // Came together with the last one that was wanted.
        event.time = Clock::now() - began_;
        ++counts_[kindName(event.kind)];
        ++total_;
        if (dashboard_)
            dashboard_->show(event);
        else
            std::printf("%s\n", (options_.json ? toJson(event) : toText(event)).c_str());
    }

    [[nodiscard]] std::vector<std::string> missing() const {
        std::vector<std::string> kinds;
        std::ranges::copy_if(options_.required, std::back_inserter(kinds),
                             [this](const std::string &kind) { return !counts_.contains(kind); });
        return kinds;
    }

    /// On standard error, so that it does not mix with events that are piped on.
    void printSummary() const {
        const double seconds = std::chrono::duration<double>(Clock::now() - began_).count();
        std::string text = format("%llu event%s in %.1f s", total_, total_ == 1 ? "" : "s", seconds);
        for (const auto &[kind, count] : counts_)
            text += format("%s %llu %s", &kind == &counts_.begin()->first ? ":" : ",", count, kind);
        std::fprintf(stderr, "%s\n", text.c_str());
    }

    [[nodiscard]] int exitCode(End end) const {
        const std::vector<std::string> kinds = missing();
        for (const std::string &kind : kinds)
            complain("no " + kind + " event came");
        if (!kinds.empty() || outputIsBroken())
            return failure;
        if (end != End::driverLeft || options_.driverMayLeave || !options_.required.empty())
            return success;
        complain("the driver went away", "Start it (moxeld) and then this program again.");
        return noDriver;
    }

    const MonitorOptions &options_;
    Clock::time_point began_{};
    std::map<std::string, uint64_t> counts_;
    uint64_t total_ = 0;
    std::unique_ptr<Dashboard> dashboard_;
};

} // namespace

int monitor(const MonitorOptions &options) { return Monitor(options).run(); }

} // namespace moxel::tool
