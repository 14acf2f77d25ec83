// What input devices, traces and movement do to the clients.
#include "Moxel Daemon/DaemonCore.h"

#include "Platform/Log.h"

#include <algorithm>
#include <chrono>

namespace moxel::daemon {

namespace {

uint64_t nowInNanoseconds() {
    return static_cast<uint64_t>(
        std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count());
}

} // namespace

// ------------------------------------------------------------------------------------------ What happens

void DaemonCore::happen(const TraceEvent &event) {
    if (const auto *motion = std::get_if<MotionEvent>(&event)) {
        std::copy(motion->axis.begin(), motion->axis.end(), device_.axis);
        sendDeviceState(capMoved);
    } else if (const auto *buttons = std::get_if<ButtonsEvent>(&event)) {
        device_.buttons = buttons->buttons;
        device_.buttons8 = static_cast<uint16_t>(buttons->buttons & 0xFF);
        sendDeviceState(buttonsChanged);
        pressActions();
    } else if (const auto *application = std::get_if<ApplicationEvent>(&event)) {
        sendApplicationEvent(*application);
    } else if (const auto *message = std::get_if<MessageEvent>(&event)) {
        const Result<void> sent = sendDictionary(Daemon::allClients, message->message,
                                                 {.wantsAnswer = options_.traceAsksAcknowledgement});
        if (!sent.ok())
            logLine(LogLevel::error, "Error: " + sent.error().message);
    } else if (const auto *ask = std::get_if<AskEvent>(&event)) {
        if (*ask == AskEvent::toRegisterAgain)
            requestReRegistration(Daemon::allClients);
        else
            queryStoredData(Daemon::allClients);
    }
    journal_.update([](Observation &observation) { ++observation.traceEvents; });
}

void DaemonCore::sendDeviceState(uint16_t command, int16_t parameter, int32_t value) {
    MoxelStateRecord record = device_;
    record.command = command;
    record.param = parameter;
    record.value = value;
    record.time = nowInNanoseconds();
    sendStates(Daemon::allClients, std::span(&record, 1));
}

void DaemonCore::sendApplicationEvent(const ApplicationEvent &event) {
    const uint16_t buttons8 = device_.buttons8;
    device_.appEventPressed = event.isPressed ? 1 : 0; // Shares its place with the buttons.
    sendDeviceState(applicationEvent, event.identifier, event.value);
    device_.buttons8 = buttons8;
}

void DaemonCore::pressActions() {
    for (const std::shared_ptr<DedicatedChannel> &client : channels_) {
        for (const ActionEvent &event : client->buttonsChanged(device_.buttons)) {
            MoxelStateRecord record = device_;
            record.command = applicationEvent;
            record.param = event.number;
            record.time = nowInNanoseconds();
            record.appEventPressed = event.isPressed ? 1 : 0;
            client->sendState(record);
        }
    }
    noteQueues();
}

// ------------------------------------------------------------------------------------------ Who makes it
// happen

Result<void> DaemonCore::playTrace(const TraceBlock &trace, const PlayOptions &options) {
    if (options.loop && trace.duration.count() == 0)
        return Error{"a trace that takes no time cannot be looped", 0};
    preparePlayer(options);
    player_->append({std::chrono::nanoseconds(0),
                     TraceRepeat{options.loop ? 0U : 1U, std::make_shared<const TraceBlock>(trace)}});
    player_->end();
    startPlayerWhenReady();
    return {};
}

Result<void> DaemonCore::playTraceFrom(int descriptor, const PlayOptions &options) {
    preparePlayer(options);
    stream_ = std::make_unique<TraceStream>(*runLoop_, descriptor, *player_);
    if (Result<void> started = stream_->start(); !started.ok()) {
        stopMotion();
        return started;
    }
    startPlayerWhenReady();
    return {};
}

void DaemonCore::preparePlayer(const PlayOptions &options) {
    stopMotion();
    journal_.update([](Observation &observation) {
        observation.traceIsOver = false;
        observation.traceProblem.clear();
    });
    EventSink &sink = *this;
    player_ =
        std::make_unique<TracePlayer>(*runLoop_, sink, options.speed, [this](const std::string &problem) {
            journal_.update([&problem](Observation &observation) {
                observation.traceIsOver = true;
                observation.traceProblem = problem;
            });
            if (options_.whenTraceEnds)
                options_.whenTraceEnds(problem);
        });
    playerWaitsForClient_ = options.waitForClient;
}

void DaemonCore::startPlayerWhenReady() {
    const bool hasClient = std::any_of(channels_.begin(), channels_.end(),
                                       [](const auto &client) { return client->description().registered; });
    if (!player_ || player_->hasStarted() || (playerWaitsForClient_ && !hasClient))
        return;
    player_->start();
}

Result<void> DaemonCore::startMovement(double rate) {
    stopMotion();
    EventSink &sink = *this;
    movement_ = std::make_unique<Movement>(*runLoop_, sink);
    return movement_->start(rate);
}

void DaemonCore::stopMotion() {
    stream_.reset();
    player_.reset();
    movement_.reset();
}

} // namespace moxel::daemon
