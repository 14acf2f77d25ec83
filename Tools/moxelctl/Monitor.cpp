#include "Monitor.h"

#include "ClientSession.h"
#include "Dashboard.h"
#include "Event.h"
#include "ExitCode.h"
#include "StopSignal.h"
#include "Values/Format.h"
#include <Moxel/MoxelRunLoop.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <map>
#include <memory>
#include <poll.h>
#include <unistd.h>

namespace moxel::tool {

namespace {

using Clock = std::chrono::steady_clock;

/// Lives on the main thread, where the handlers are called too.
class Monitor {
  public:
    explicit Monitor(const MonitorOptions &options) : options_(options) {}

    int run() {
        const Handlers handlers{
            [](uint32_t productID, uint32_t message, void *argument, void *context) {
                static_cast<Monitor *>(context)->take(messageEvent(productID, message, argument));
            },
            [](uint32_t deviceID, void *context) {
                static_cast<Monitor *>(context)->take(deviceEvent(Event::Kind::added, deviceID));
            },
            [](uint32_t deviceID, void *context) {
                static_cast<Monitor *>(context)->take(deviceEvent(Event::Kind::removed, deviceID));
            },
            this};
        const StopSignal stopSignal;
        ClientSession session;
        if (const int code = session.begin(handlers, options_.name, options_.mask); code != success)
            return code;
        began_ = Clock::now();
        if (!options_.json && !options_.plain && ::isatty(STDOUT_FILENO))
            dashboard_ =
                std::make_unique<Dashboard>(format("client %d \"%s\"", session.clientID(), options_.name));
        dispatch(stopSignal.descriptor());
        dashboard_.reset();
        printSummary();
        return missing().empty() ? success : failure;
    }

  private:
    void take(Event event) {
        event.time = Clock::now() - began_;
        ++counts_[kindName(event.kind)];
        ++total_;
        if (dashboard_)
            dashboard_->show(event);
        else
            std::printf("%s\n", (options_.json ? toJson(event) : toText(event)).c_str());
    }

    [[nodiscard]] bool isOver() const {
        return (options_.count && total_ >= *options_.count) || millisecondsLeft() == 0;
    }

    /// -1 without a limit.
    [[nodiscard]] int millisecondsLeft() const {
        if (!options_.seconds)
            return -1;
        const double left = *options_.seconds - std::chrono::duration<double>(Clock::now() - began_).count();
        return static_cast<int>(std::ceil(std::clamp(left * 1000, 0.0, 3600000.0)));
    }

    /// The soonest of the end and the dashboard's next picture.
    [[nodiscard]] int pollTimeout() {
        const int left = millisecondsLeft();
        const int frame = dashboard_ ? dashboard_->refresh() : -1;
        return left < 0 || frame < 0 ? std::max(left, frame) : std::min(left, frame);
    }

    void dispatch(int stopDescriptor) {
        pollfd descriptors[] = {{MoxelRunLoopGetFD(), POLLIN, 0}, {stopDescriptor, POLLIN, 0}};
        while (!isOver() && !(descriptors[1].revents & POLLIN)) {
            std::fflush(stdout);
            ::poll(descriptors, 2, pollTimeout());
            MoxelRunLoopDispatch(0);
        }
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
        std::string text = format("%llu events in %.1f s", total_, seconds);
        for (const auto &[kind, count] : counts_)
            text += format("%s %llu %s", &kind == &counts_.begin()->first ? ":" : ",", count, kind);
        std::fprintf(stderr, "%s\n", text.c_str());
        for (const std::string &kind : missing())
            std::fprintf(stderr, "moxelctl: no %s event came\n", kind.c_str());
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
