#include "Moxel Daemon/Daemon.h"

#include "Moxel Daemon/Bus/BusPublisher.h"
#include "Moxel Daemon/DaemonCore.h"
#include "Moxel Daemon/Kernel/UhidPublisher.h"
#include "Platform/Session.h"

#include <algorithm>
#include <future>
#include <type_traits>
#include <utility>

namespace moxel::daemon {

namespace {

/// The user on the console; 0 when there is none, or when it cannot be told.
uint32_t consoleUser() {
    const std::optional<SessionDescription> session = currentSession();
    if (!session || !session->onConsole.value_or(false) || !session->userName)
        return 0;
    return userIdentifierForName(*session->userName).value_or(0);
}

/// The first of what is kept that fits, as soon as there is one.
template <class Kept, class Fits>
std::optional<typename Kept::value_type> waitForFirst(const Journal &journal, Kept Observation::*kept,
                                                      const Fits &fits, Daemon::Timeout timeout) {
    std::optional<typename Kept::value_type> result;
    (void)journal.waitUntil(
        [&](const Observation &observation) {
            const auto found = std::ranges::find_if(observation.*kept, fits);
            if (found != (observation.*kept).end())
                result = *found;
            return result.has_value();
        },
        timeout);
    return result;
}

} // namespace

Daemon::Daemon(Options options, std::string busFolder, std::string baseChannelName)
    : options_(std::move(options)),
      busFolder_(std::move(busFolder)),
      baseChannelName_(std::move(baseChannelName)),
      journal_(options_.logEntries, options_.logBytes) {}

Result<std::unique_ptr<Daemon>> Daemon::start(Options options) {
    std::string folder = options.busFolder.empty() ? BusFolder::defaultPath() : options.busFolder;
    if (options.bus == Options::Bus::uhid)
        folder = UhidMaker::devicePath;
    std::string name = options.baseName;
    if (name.empty())
        name = BaseChannel::nameForUser(options.user ? *options.user : consoleUser());
    std::unique_ptr<Daemon> daemon(new Daemon(std::move(options), std::move(folder), std::move(name)));
    if (Result<void> running = daemon->run(); !running.ok())
        return running.error();
    return daemon;
}

Result<std::unique_ptr<Publisher>> Daemon::makePublisher() const {
    const auto generalized = [](auto made) -> Result<std::unique_ptr<Publisher>> {
        if (!made.ok())
            return made.error();
        return std::unique_ptr<Publisher>(std::move(*made));
    };
    if (options_.bus == Options::Bus::uhid)
        return generalized(UhidPublisher::create());
    return generalized(BusPublisher::create(busFolder_));
}

/// Starts the thread and waits until it serves or has failed.
Result<void> Daemon::run() {
    std::promise<Result<void>> started;
    Result<std::shared_ptr<Thread>> thread = Thread::start("moxeld", [this, &started] {
        Result<std::unique_ptr<Publisher>> publisher = makePublisher();
        if (!publisher.ok()) {
            started.set_value(publisher.error());
            return;
        }
        Result<std::shared_ptr<RunLoop>> runLoop = RunLoop::current();
        if (!runLoop.ok()) {
            started.set_value(runLoop.error());
            return;
        }
        runLoop_ = *runLoop;
        DaemonCore core(options_, baseChannelName_, std::move(*publisher), runLoop_, journal_);
        core_ = &core;
        const Result<void> result = core.start();
        const bool isRunning = result.ok();
        started.set_value(result);
        if (isRunning)
            runLoop_->run();
    });
    if (!thread.ok())
        return thread.error();
    Result<void> result = started.get_future().get();
    if (!result.ok())
        (*thread)->join();
    else
        thread_ = std::move(*thread);
    return result;
}

Daemon::~Daemon() {
    if (!thread_)
        return;
    runLoop_->stop();
    thread_->join();
}

template <class Function>
auto Daemon::call(Function &&function) const {
    using Outcome = std::invoke_result_t<Function, DaemonCore &>;
    if constexpr (std::is_void_v<Outcome>) {
        thread_->perform([&] { function(*core_); }, Thread::Wait::untilDone);
    } else {
        std::optional<Outcome> outcome;
        thread_->perform([&] { outcome.emplace(function(*core_)); }, Thread::Wait::untilDone);
        if (outcome)
            return std::move(*outcome);
        // The run loop has failed, and the thread has ended with it.
        if constexpr (std::is_constructible_v<Outcome, Error>)
            return Outcome(Error{"the daemon's thread has ended", 0});
        else
            return Outcome{};
    }
}

// ------------------------------------------------------------------------------------------ Looking

Observation Daemon::observe() const {
    return journal_.read([](const Observation &observation) { return observation; });
}

std::vector<ClientDescription> Daemon::clients() const {
    return journal_.read([](const Observation &observation) { return observation.clients; });
}

std::optional<ClientDescription> Daemon::client(uint16_t clientID) const {
    const std::vector<ClientDescription> all = clients();
    const auto found = std::find_if(all.begin(), all.end(), [clientID](const ClientDescription &candidate) {
        return candidate.clientID == clientID;
    });
    return found == all.end() ? std::nullopt : std::optional(*found);
}

bool Daemon::waitUntil(const Journal::Predicate &predicate, Timeout timeout) const {
    return journal_.waitUntil(predicate, timeout);
}

std::optional<ClientDescription>
Daemon::waitForClient(Timeout timeout, const std::function<bool(const ClientDescription &)> &fits) const {
    return waitForFirst(journal_, &Observation::clients, fits, timeout);
}

std::optional<ReceivedReport> Daemon::waitForReport(uint64_t sequence, Timeout timeout) const {
    return waitForReport([sequence](const ReceivedReport &report) { return report.sequence == sequence; },
                         timeout, sequence);
}

std::optional<ReceivedReport> Daemon::waitForReport(const std::function<bool(const ReceivedReport &)> &fits,
                                                    Timeout timeout, uint64_t from) const {
    std::optional<ReceivedReport> result;
    uint64_t next = from; // Every report is looked at once.
    const bool found = journal_.waitUntil(
        [&](const Observation &observation) {
            for (const ReceivedReport &report : observation.reports) {
                if (report.sequence < next)
                    continue;
                next = report.sequence + 1;
                if (!fits(report))
                    continue;
                result = report;
                return true;
            }
            return false;
        },
        timeout);
    return found ? result : std::nullopt;
}

std::optional<ReceivedRequest>
Daemon::waitForRequest(const std::function<bool(const ReceivedRequest &)> &fits, Timeout timeout) const {
    return waitForFirst(journal_, &Observation::requests, fits, timeout);
}

std::optional<ReceivedMessage>
Daemon::waitForMessage(Timeout timeout, const std::function<bool(const ReceivedMessage &)> &fits) const {
    return waitForFirst(journal_, &Observation::messages, fits, timeout);
}

bool Daemon::waitUntilQueued(size_t bytes, Timeout timeout) const {
    return journal_.waitUntil(
        [bytes](const Observation &observation) { return observation.queuedBytes <= bytes; }, timeout);
}

// ------------------------------------------------------------------------------------------ Sending

size_t Daemon::sendState(uint16_t clientID, const MoxelStateRecord &record) {
    return sendStates(clientID, std::span(&record, 1));
}

size_t Daemon::sendStates(uint16_t clientID, std::span<const MoxelStateRecord> records) {
    return call([&](DaemonCore &core) { return core.sendStates(clientID, records); });
}

Result<void> Daemon::sendDictionary(uint16_t clientID, const Dictionary &dictionary,
                                    DictionaryOptions options) {
    return call([&](DaemonCore &core) { return core.sendDictionary(clientID, dictionary, options); });
}

Result<void> Daemon::sendPacket(uint16_t clientID, const OutgoingPacket &packet) {
    return call([&](DaemonCore &core) { return core.sendPacket(clientID, packet); });
}

size_t Daemon::sendInputReport(uint64_t channelID, std::span<const uint8_t> report) {
    return call([&](DaemonCore &core) { return core.sendInputReport(channelID, report); });
}

size_t Daemon::requestReRegistration(uint16_t clientID) {
    return call([&](DaemonCore &core) { return core.requestReRegistration(clientID); });
}

size_t Daemon::queryStoredData(uint16_t clientID) {
    return call([&](DaemonCore &core) { return core.queryStoredData(clientID); });
}

// ------------------------------------------------------------------------------------------ Devices, faults

void Daemon::setFaults(const Faults &faults) {
    call([&](DaemonCore &core) { core.setFaults(faults); });
}

Faults Daemon::faults() const {
    return call([](DaemonCore &core) -> Faults { return core.faults(); });
}

void Daemon::removeBaseChannel() {
    call([](DaemonCore &core) { core.removeBase(); });
}

Result<void> Daemon::publishBaseChannel() {
    return call([](DaemonCore &core) { return core.publishBase(); });
}

Result<void> Daemon::publishChannel(uint64_t channelID) {
    return call([&](DaemonCore &core) { return core.publishChannel(channelID, 0); });
}

bool Daemon::removeChannel(uint64_t channelID) {
    return call([&](DaemonCore &core) { return core.removeChannel(channelID); });
}

Result<uint64_t> Daemon::publishDevice(const DeviceDescription &device) {
    return call([&](DaemonCore &core) { return core.publishDevice(device); });
}

bool Daemon::removeDevice(uint64_t number) {
    return call([&](DaemonCore &core) { return core.removeDevice(number); });
}

// ------------------------------------------------------------------------------------------ Motion

Result<void> Daemon::playTrace(const TraceBlock &trace, PlayOptions options) {
    return call([&](DaemonCore &core) { return core.playTrace(trace, options); });
}

Result<void> Daemon::playTraceFrom(int descriptor, PlayOptions options) {
    return call([&](DaemonCore &core) { return core.playTraceFrom(descriptor, options); });
}

Result<void> Daemon::startMovement(double rate) {
    return call([&](DaemonCore &core) { return core.startMovement(rate); });
}

void Daemon::stopMotion() {
    call([](DaemonCore &core) { core.stopMotion(); });
}

} // namespace moxel::daemon
