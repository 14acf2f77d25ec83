#include <Moxel/TestDaemon.h>

#include "EnvironmentChange.h"
#include "Moxel Daemon/Daemon.h"
#include "Moxel Daemon/Motion/TraceParser.h"
#include "TestFolder.h"

#include <algorithm>
#include <atomic>
#include <utility>

namespace moxel {

namespace {

using daemon::ClientDescription;
using daemon::Daemon;
using daemon::Observation;

TestClient describe(const ClientDescription &client) {
    TestClient result;
    result.clientID = client.clientID;
    if (client.application) {
        result.name = client.application->clientName.value_or("");
        result.signature = client.application->signature.value_or(0);
        result.mode = client.application->mode.value_or(0);
    }
    result.eventMask = client.eventMask;
    result.buttonMask = client.buttonMask;
    result.activeActionSet = client.exports.activeSet;
    for (const daemon::ExportedAction &action : client.exports.actions)
        result.actions.push_back({action.identifier, action.label});
    result.imageCount = client.exports.imageCount;
    result.settingCount = client.exports.settingCount;
    return result;
}

std::vector<TestClient> registeredClients(const std::vector<ClientDescription> &all) {
    std::vector<TestClient> registered;
    for (const ClientDescription &client : all)
        if (client.registered)
            registered.push_back(describe(client));
    return registered;
}

/// A trace of one event.
daemon::TraceBlock only(daemon::TraceEvent event) {
    daemon::TraceBlock trace;
    trace.steps.push_back({std::chrono::nanoseconds(0), std::move(event)});
    return trace;
}

/// There is one daemon at a time, because there is one environment.
std::atomic<bool> isTaken = false;

} // namespace

class TestDaemon::Implementation {
  public:
    explicit Implementation(TestFolder &folder) : folder_(folder) {}
    ~Implementation() {
        daemon_.reset();
        isTaken = false;
    }
    Implementation(const Implementation &) = delete;
    Implementation &operator=(const Implementation &) = delete;

    Result<void> start() {
        if (daemon_)
            return {};
        Result<std::unique_ptr<Daemon>> started = Daemon::start(options);
        if (!started.ok())
            return started.error();
        daemon_ = *std::move(started);
        return {};
    }
    void stop() { daemon_.reset(); }

    /// Null while the daemon is stopped.
    [[nodiscard]] Daemon *daemon() const { return daemon_.get(); }

    daemon::Options options;

  private:
    TestFolder &folder_;
    EnvironmentChange bus_{"MOXEL_HID_BUS", folder_.bus()};
    EnvironmentChange hidraw_{"MOXEL_HIDRAW", "off"};
    EnvironmentChange configuration_{"XDG_CONFIG_HOME", folder_.configuration()};
    std::unique_ptr<Daemon> daemon_;
};

TestDaemon::TestDaemon(std::unique_ptr<Implementation> implementation)
    : implementation_(std::move(implementation)) {}

TestDaemon::~TestDaemon() = default;

Result<std::unique_ptr<TestDaemon>> TestDaemon::start(const TestDaemonOptions &options) {
    Result<TestFolder *> folder = TestFolder::ofThisProcess();
    if (!folder.ok())
        return folder.error();
    if (isTaken.exchange(true))
        return Error{"there is a test daemon in this process already", 0};
    (*folder)->clear();
    auto implementation = std::make_unique<Implementation>(**folder);
    implementation->options.busFolder = (*folder)->bus();
    implementation->options.exportFolder = (*folder)->exports();
    implementation->options.user = options.user;
    for (const std::string &fault : options.faults)
        if (Result<void> added = daemon::addFault(implementation->options.faults, fault); !added.ok())
            return added.error();
    if (Result<void> started = implementation->start(); !started.ok())
        return started.error();
    return std::unique_ptr<TestDaemon>(new TestDaemon(std::move(implementation)));
}

const std::string &TestDaemon::exportFolder() const noexcept { return implementation_->options.exportFolder; }

// ---------------------------------------------------------------------------------------------- What happens

void TestDaemon::motion(const std::array<int16_t, 6> &axes) {
    if (Daemon *daemon = implementation_->daemon())
        (void)daemon->playTrace(only(daemon::MotionEvent{axes})); // Fails with endless loops only.
}

void TestDaemon::buttons(uint32_t mask) {
    if (Daemon *daemon = implementation_->daemon())
        (void)daemon->playTrace(only(daemon::ButtonsEvent{mask}));
}

Result<void> TestDaemon::play(std::string_view trace) {
    const Result<daemon::TraceBlock> parsed = daemon::parseTrace(trace);
    if (!parsed.ok())
        return parsed.error();
    Daemon *daemon = implementation_->daemon();
    return daemon != nullptr ? daemon->playTrace(*parsed) : Error{"the daemon is stopped", 0};
}

Result<void> TestDaemon::playFile(const std::string &path) {
    const Result<daemon::TraceBlock> parsed = daemon::loadTrace(path);
    if (!parsed.ok())
        return parsed.error();
    Daemon *daemon = implementation_->daemon();
    return daemon != nullptr ? daemon->playTrace(*parsed) : Error{"the daemon is stopped", 0};
}

bool TestDaemon::waitUntilPlayed(Timeout timeout) const {
    const Daemon *daemon = implementation_->daemon();
    return daemon == nullptr ||
           daemon->waitUntil([](const Observation &seen) { return seen.traceIsOver; }, timeout);
}

// ---------------------------------------------------------------------------------------------- Faults

Result<void> TestDaemon::addFault(std::string_view fault) {
    if (Result<void> added = daemon::addFault(implementation_->options.faults, fault); !added.ok())
        return added;
    if (Daemon *daemon = implementation_->daemon())
        daemon->setFaults(implementation_->options.faults);
    return {};
}

void TestDaemon::removeFaults() {
    implementation_->options.faults = {};
    if (Daemon *daemon = implementation_->daemon())
        daemon->setFaults({});
}

void TestDaemon::stop() { implementation_->stop(); }

Result<void> TestDaemon::startAgain() { return implementation_->start(); }

// ---------------------------------------------------------------------------------------------- Applications

std::vector<TestClient> TestDaemon::clients() const {
    const Daemon *daemon = implementation_->daemon();
    return daemon != nullptr ? registeredClients(daemon->clients()) : std::vector<TestClient>();
}

std::optional<TestClient> TestDaemon::waitForClient(Timeout timeout) const {
    const Daemon *daemon = implementation_->daemon();
    const auto client = daemon != nullptr ? daemon->waitForClient(timeout) : std::nullopt;
    return client ? std::optional(describe(*client)) : std::nullopt;
}

bool TestDaemon::waitUntil(const std::function<bool(const std::vector<TestClient> &)> &holds,
                           Timeout timeout) const {
    const Daemon *daemon = implementation_->daemon();
    if (daemon == nullptr)
        return holds({});
    return daemon->waitUntil([&](const Observation &seen) { return holds(registeredClients(seen.clients)); },
                             timeout);
}

std::optional<TestControl> TestDaemon::waitForControl(uint32_t code, Timeout timeout) const {
    const Daemon *daemon = implementation_->daemon();
    if (daemon == nullptr)
        return std::nullopt;
    std::optional<TestControl> result;
    (void)daemon->waitForRequest(
        [&](const daemon::ReceivedRequest &request) {
            const auto control = daemon::controlRequest(request.dictionary);
            if (control && control->code == code)
                result = TestControl{request.clientID, control->code, control->parameter};
            return result.has_value();
        },
        timeout);
    return result;
}

std::optional<std::vector<uint8_t>> TestDaemon::waitForMessage(Timeout timeout) const {
    const Daemon *daemon = implementation_->daemon();
    const auto message = daemon != nullptr ? daemon->waitForMessage(timeout) : std::nullopt;
    if (!message)
        return std::nullopt;
    return std::vector<uint8_t>(message->bytes.begin(), message->bytes.end());
}

} // namespace moxel
