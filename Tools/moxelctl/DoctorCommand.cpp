// "moxelctl doctor": walks the way of an event from the bus to an application, and says where it ends.
#include "ClientSession.h"
#include "Commands.h"
#include "Complaint.h"
#include "DriverDiagnosis.h"
#include "DriverLog.h"
#include "Event.h"
#include "EventLoop.h"
#include "EventMask.h"
#include "Output.h"
#include "Platform/LogText.h"
#include "Platform/Session.h"
#include "SurveyChecks.h"
#include "Values/Format.h"
#include "WatchedApplication.h"
#include <Moxel/MoxelClient.h>

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>

namespace moxel::tool {

namespace {

using Json = nlohmann::ordered_json;

/// What the library logs of a thread that has installed handlers and does not run its run loop; it takes four
/// seconds at most to notice.
constexpr const char *neglectedLoop = "does not run its run loop";
constexpr const char *installation = "SetMoxelHandlers";
constexpr std::chrono::seconds applicationPatience{6};

const char *stateName(Check::State state) {
    constexpr const char *names[] = {"ok", "wrong", "skipped"};
    return names[static_cast<size_t>(state)];
}

std::string toText(const Check &check) {
    std::string state = stateName(check.state);
    if (check.state == Check::State::wrong)
        std::ranges::transform(state, state.begin(), [](char letter) { return char(letter - 'a' + 'A'); });
    return format("%-13s %-8s ", check.name, state) + printableText(check.finding) + "\n" +
           remedyText(check.remedy, 23);
}

Json toJson(const Check &check) {
    return {{"name", check.name},
            {"state", stateName(check.state)},
            {"finding", check.finding},
            {"remedy", check.remedy}};
}

/// A client like any other, whose events come through the main thread's run loop.
class Patient {
  public:
    /// "registration".
    [[nodiscard]] Check checkRegistration() {
        const auto failed = session_.open(handlers(), "moxelctl", everything);
        if (failed)
            return Check::wrong("registration", failed->problem, failed->remedy, failed->exitCode);
        return Check::ok("registration",
                         format("the driver calls this program client %d", session_.clientID()));
    }

    /// "mask": the functions do not tell whether the driver took the masks; the library's log does.
    [[nodiscard]] Check checkMask() const {
        const DriverLog log;
        SetMoxelClientMask(session_.clientID(), everything);
        SetMoxelClientButtonMask(session_.clientID(), everything);
        if (log.lastError().empty())
            return Check::ok("mask", "the driver sends this program all events");
        return Check::wrong("mask", "the driver does not acknowledge the masks: " + log.lastError(),
                            restartDriver, noAnswer);
    }

    /// "event".
    [[nodiscard]] Check checkEvent(double seconds) {
        const auto began = std::chrono::steady_clock::now();
        const EventLoop::End end = loop_.run(
            {.seconds = seconds, .endsWithOutput = false, .isDone = [this] { return kind_.has_value(); }});
        const double waited = std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
        if (kind_)
            return Check::ok("event", format("%s, after %.1f s", kindName(*kind_), waited));
        if (end == EventLoop::End::driverLeft)
            return Check::wrong("event", "the driver went away",
                                "Start it (moxeld) and then this program again.", noDriver);
        return Check::wrong(
            "event", format("none came in %.1f s", waited),
            "Move the controller, or press a button, while this program waits (--seconds N).\n"
            "Without a controller, \"moxeld --movement\" makes events up.",
            failure);
    }

  private:
    Handlers handlers() {
        return {
            [](uint32_t productID, uint32_t message, void *argument, void *context) {
                static_cast<Patient *>(context)->kind_ = messageEvent(productID, message, argument).kind;
            },
            [](uint32_t, void *context) { static_cast<Patient *>(context)->kind_ = Event::Kind::added; },
            [](uint32_t, void *context) { static_cast<Patient *>(context)->kind_ = Event::Kind::removed; },
            this};
    }

    EventLoop loop_;
    std::optional<Event::Kind> kind_; ///< Of the event that came last.
    ClientSession session_;           ///< Ends first: its handlers are called with this object.
};

/// "loop": does an application run its run loop?
Check checkLoop(const std::vector<std::string> &commandLine) {
    const std::string &program = commandLine[0];
    Result<WatchedApplication> application = WatchedApplication::start(commandLine);
    if (!application.ok())
        return Check::wrong("loop", application.error().message, "Give the path of an application.", failure);
    if (application->awaitLine(neglectedLoop, applicationPatience))
        return Check::wrong("loop",
                            program + " does not run the run loop of the thread that installed its handlers",
                            "That thread has to call MoxelRunLoopDispatch() while the application runs: see "
                            "Moxel/MoxelRunLoop.h,\n"
                            "Moxel/MoxelGLib.h and Moxel/MoxelQt.h; or let SetMoxelHandlers() use a separate "
                            "thread.",
                            failure);
    if (!application->hasLogged(installation))
        return Check::wrong("loop", program + " installs no handlers, or has ended before it could",
                            "Give an application of the driver's, with its arguments behind --.", failure);
    return Check::ok("loop", program + " takes its events in time");
}

class DoctorCommand final : public Command {
  public:
    DoctorCommand() : Command("doctor", "Find out why no events reach an application") {}

    int run() override {
        const std::vector<SurveyedBus> buses = surveyHIDBuses(kMoxelVendorID);
        add(checkBusFolder(buses));
        add(checkDriver(buses));
        add(checkDevices(buses));
        add(checkSession(currentSessionOnConsole()));
        examine();
        if (application_.empty())
            add(Check::skipped("loop",
                               "\"moxelctl doctor APPLICATION\" looks whether one runs its run loop"));
        else if (!isFine("registration"))
            add(Check::skipped("loop", "no application can register"));
        else if (!isFine("event")) // Without one a neglected loop looks like any other.
            add(Check::skipped("loop", "no event came to take"));
        else
            add(checkLoop(application_));
        return report();
    }

  private:
    void describe(CLI::App &command) override {
        command.add_option("APPLICATION", application_, "Run this too, and see whether it takes its events")
            ->type_name("");
        command.add_option("--seconds", seconds_, "Wait so long for an event")
            ->check(CLI::Range(0.0, 1e9))
            ->type_name("N")
            ->capture_default_str();
        command.add_flag("--json", json_, "Print one JSON object");
        command.footer(
            R"(
Looks at each thing that an event needs on its way, and says what to do about what is wrong:
  bus           the folder of the bus, its owner and its mode
  driver        the driver's channel for this login session answers
  devices       the kernel's device nodes of the driver, and the rights to use them
  session       the login session is the one on the console
  registration  the driver registers this program
  mask          the driver takes the masks of wanted events
  event         an event arrives: move the controller when you are asked to
  loop          the application that is named runs the run loop of its thread

Succeeds when nothing is wrong; else the exit code of what is wrong first.

Examples:
  moxelctl doctor
  moxelctl doctor --seconds 20
  moxelctl doctor -- build/release/Examples/smallest 1000
  moxelctl doctor --json | jq '.checks[] | select(.state == "wrong")')");
    }

    void add(Check check) { checks_.push_back(std::move(check)); }
    [[nodiscard]] bool isFine(const std::string &name) const {
        return std::ranges::any_of(checks_, [&name](const Check &check) {
            return check.name == name && check.state == Check::State::ok;
        });
    }

    /// What it takes a session to find out.
    void examine() {
        if (!isFine("driver")) {
            for (const char *name : {"registration", "mask", "event"})
                add(Check::skipped(name, "there is no driver to ask"));
            return;
        }
        Patient patient;
        add(patient.checkRegistration());
        if (!isFine("registration")) {
            for (const char *name : {"mask", "event"})
                add(Check::skipped(name, "this program is not registered"));
            return;
        }
        add(patient.checkMask());
        if (::isatty(STDERR_FILENO) != 0)
            std::fprintf(stderr, "Move the controller ...\n");
        add(patient.checkEvent(seconds_));
    }

    [[nodiscard]] int report() const {
        std::string text;
        Json list = Json::array();
        int code = success;
        for (const Check &check : checks_) {
            text += toText(check);
            list.push_back(toJson(check));
            code = code == success ? check.exitCode : code;
        }
        if (json_)
            text = Json{{"ok", code == success}, {"checks", std::move(list)}}.dump(
                       2, ' ', false, Json::error_handler_t::replace) +
                   "\n";
        const int printed = printResult(text);
        return printed == success ? code : printed;
    }

    std::vector<std::string> application_;
    double seconds_ = 5;
    bool json_ = false;
    std::vector<Check> checks_;
};

} // namespace

std::unique_ptr<Command> makeDoctorCommand() { return std::make_unique<DoctorCommand>(); }

} // namespace moxel::tool
