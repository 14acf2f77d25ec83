#include "Moxel Daemon/Protocol/DedicatedChannel.h"

#include "Moxel Daemon/Archive/KeyedArchiveWriter.h"
#include "Moxel Daemon/Protocol/DaemonReports.h"
#include "Platform/Log.h"
#include "Platform/LogText.h"

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <utility>

namespace moxel::daemon {

namespace {

/// The one byte of a packet acknowledgement that tells what it is.
constexpr uint8_t packetAcknowledgementCode = 0x32;

std::string summaryOf(const ReceivedRequest &request) {
    const std::string size = std::to_string(request.bytes.size()) + " bytes";
    if (request.name.empty())
        return size + " of raw data";
    std::string summary = "request \"" + request.name + "\" of " + size;
    if (const std::optional<ControlRequest> control = controlRequest(request.dictionary)) {
        std::array<char, 64> text{};
        std::snprintf(text.data(), text.size(), ", code 0x%08" PRIX32 ", parameter %" PRId32, control->code,
                      control->parameter);
        summary += text.data();
    }
    return summary;
}

/// What faults make of an archive: its magic is gone.
void spoil(Data &archive) { std::fill_n(archive.begin(), std::min<size_t>(archive.size(), 8), uint8_t{'?'}); }

} // namespace

std::string DedicatedChannel::nameForID(uint64_t channelID) {
    std::array<char, 17> digits{};
    std::snprintf(digits.data(), digits.size(), "%" PRIX64, channelID);
    return std::string("MxlVirtualHIDData_ID") + digits.data();
}

DedicatedChannel::DedicatedChannel(ChannelServices &services, Delegate &delegate, const Options &options,
                                   RunLoop &runLoop, uint64_t channelID, int32_t processID)
    : DataChannel(services),
      delegate_(delegate),
      runLoop_(runLoop),
      inbox_(options.fullBlock, options.sliceTimeout),
      joiner_(runLoop, options.sliceTimeout,
              [this](ReceivedMessage message) { this->services().journal.add(std::move(message)); }),
      outbox_(
          runLoop, options.packetTimeout,
          [this](uint16_t size, bool wantsAnswer) { sendInput(dataWaitingReport(size, wantsAnswer)); },
          [this] { this->services().queuesChanged(); }) {
    description_.channelID = channelID;
    description_.channelName = nameForID(channelID);
    description_.processID = processID;
}

DedicatedChannel::~DedicatedChannel() { joiner_.finish(); }

// ------------------------------------------------------------------------------------------ Sending

bool DedicatedChannel::sendState(MoxelStateRecord record) {
    record.client = description_.clientID;
    const std::optional<MoxelStateRecord> wanted = filter_.apply(record);
    return wanted && sendInput(stateReport(*wanted)) > 0;
}

Result<void> DedicatedChannel::sendDictionary(const Dictionary &dictionary, bool wantsAnswer,
                                              size_t packetSize) {
    Result<Data> archive = writeKeyedArchive(dictionary);
    if (!archive.ok())
        return archive.error();
    if (faults().malformedArchive)
        spoil(*archive);
    if (!outbox_.send(packetsOf(*archive, packetSize, wantsAnswer, faults())))
        return Error{"too much waits for " + name() + " already", 0};
    return {};
}

void DedicatedChannel::askToRegisterAgain() { sendInput(registerAgainReport()); }

void DedicatedChannel::queryStoredData() { sendInput(storedDataQueryReport()); }

// ------------------------------------------------------------------------------------------ Reports

void DedicatedChannel::openCountChanged() {
    description_.openCount = openCount();
    describe();
}

Reply DedicatedChannel::handleReport(const Peer &, uint8_t reportID, std::span<const uint8_t> payload) {
    if (reportID == wire::storageSlot1Write)
        inbox_.store(payload);
    else if (reportID == wire::applicationInfo)
        handleApplicationInfo(payload);
    else if (reportID == wire::controlReport)
        return {HIDStatus::success, {}, handleControl(payload)};
    return {};
}

Reply DedicatedChannel::handleRead(uint8_t) {
    std::optional<Data> packet = outbox_.content();
    if (!packet)
        return {HIDStatus::error, {}};
    return {HIDStatus::success, std::move(*packet), [this] {
                ++description_.packetsRead;
                describe();
                outbox_.wasRead();
            }};
}

void DedicatedChannel::handleApplicationInfo(std::span<const uint8_t> payload) {
    MoxelAppInfoRecord record{};
    if (payload.size() != sizeof record) {
        complain("an application-information record of " + std::to_string(payload.size()) +
                 " bytes is ignored");
        return;
    }
    std::memcpy(&record, payload.data(), sizeof record);
    description_.exitState = record.exitState;
    description_.applicationName = std::string(record.name, ::strnlen(record.name, sizeof record.name));
    describe();
}

/// What a control packet asks for, to be done once its reply is out.
std::function<void()> DedicatedChannel::handleControl(std::span<const uint8_t> payload) {
    wire::PacketAcknowledgement acknowledgement{};
    wire::MxControlPacket packet{};
    if (payload.size() == sizeof acknowledgement) {
        std::memcpy(&acknowledgement, payload.data(), sizeof acknowledgement);
        if (acknowledgement.m_DataID == wire::packetAcknowledgement &&
            acknowledgement.length == sizeof acknowledgement && acknowledgement.one == 1 &&
            acknowledgement.code == packetAcknowledgementCode)
            return [this] { handlePacketAcknowledgement(); };
    } else if (payload.size() == sizeof packet) {
        std::memcpy(&packet, payload.data(), sizeof packet);
        if (packet.m_DataID == wire::controlMessage)
            return [this, packet] { handleRequest(packet); };
    }
    complain("a control packet that makes no sense is ignored");
    return {};
}

void DedicatedChannel::handlePacketAcknowledgement() {
    ++description_.acknowledgements;
    describe();
    outbox_.wasAcknowledged();
}

// ------------------------------------------------------------------------------------------ Requests

void DedicatedChannel::handleRequest(const wire::MxControlPacket &packet) {
    if (packet.code == wire::storedDataReply) {
        ++description_.storedDataReplies;
        describe();
        return;
    }
    std::optional<ReceivedRequest> request = inbox_.take(packet.request, RequestInbox::Clock::now());
    if (!request) {
        complain("a request of " + std::to_string(packet.request.length) +
                 " bytes was announced but not placed");
        return;
    }
    request->channelID = description_.channelID;
    request->clientID = description_.clientID;
    request->requestID = packet.code;
    if (!request->problem.empty())
        complain("the request \"" + request->name + "\" is not well formed: " + request->problem);
    logLine(LogLevel::info, name() + ": " + summaryOf(*request));
    serve(*request);
    if (request->acknowledged)
        acknowledge();
    joiner_.take(*request);
    services().journal.add(std::move(*request));
}

void DedicatedChannel::serve(const ReceivedRequest &request) {
    if (request.name == "regclient") {
        if (const std::optional<RegistrationRequest> registration = registrationRequest(request.dictionary))
            registerClient(*registration);
    } else if (request.name == "setclientmasks") {
        const MaskRequest masks = maskRequest(request.dictionary).value_or(MaskRequest{});
        filter_.eventMask = masks.eventMask.value_or(filter_.eventMask);
        filter_.buttonMask = masks.buttonMask.value_or(filter_.buttonMask);
        describe();
    } else if (const std::optional<ExportRequest> exported = exportRequest(request.dictionary)) {
        takeExport(*exported);
    }
}

void DedicatedChannel::takeExport(const ExportRequest &request) {
    if (!description_.application) {
        complain("an export is ignored: the client is not registered");
        return;
    }
    ClientExports &exports = description_.exports;
    if (Result<void> served = delegate_.serveExport(*description_.application, request, exports);
        !served.ok())
        complain(served.error().message);
    buttonActions_.setActionCount(exports.actions.size());
    describe();
    logLine(LogLevel::info, name() + ": " + std::to_string(exports.actions.size()) +
                                " actions of the set \"" + printableText(exports.activeSet) +
                                "\" are on buttons, " + std::to_string(exports.imageCount) + " images, " +
                                std::to_string(exports.settingCount) + " settings");
}

void DedicatedChannel::registerClient(const RegistrationRequest &request) {
    if (description_.clientID == 0)
        description_.clientID = delegate_.newClientID();
    if (description_.clientID == 0) {
        complain("all client identifiers are taken");
        return;
    }
    ++description_.registrations;
    description_.application = request.application;
    filter_.eventMask = request.application.mask.value_or(0);
    filter_.buttonMask = request.application.buttonMask.value_or(0);
    describe();
    if (!faults().noRegistrationAnswer)
        perform(faults().registrationAnswerDelay, &DedicatedChannel::answerRegistration);
}

void DedicatedChannel::answerRegistration() {
    const bool isAgain = std::exchange(description_.registered, true);
    describe(); // Before the client can know, so that who hears from the client finds it registered.
    sendInput(registrationAnswerReport(description_.clientID, description_.channelID));
    logLine(LogLevel::info, name() + ": registered as client " + std::to_string(description_.clientID));
    delegate_.clientRegistered(*this, isAgain);
}

void DedicatedChannel::acknowledge() {
    if (!faults().noAcknowledgement)
        perform(faults().acknowledgementDelay, &DedicatedChannel::sendAcknowledgement);
}

void DedicatedChannel::sendAcknowledgement() {
    sendInput(acknowledgementReport());
    if (faults().duplicateAcknowledgement)
        sendInput(acknowledgementReport());
}

void DedicatedChannel::perform(std::chrono::milliseconds delay, void (DedicatedChannel::*action)()) {
    if (delay.count() == 0) {
        (this->*action)();
        return;
    }
    const Result<void> scheduled = runLoop_.performAfterDelay(delay, [weak = weak_from_this(), action] {
        if (const std::shared_ptr<DedicatedChannel> channel = weak.lock())
            (channel.get()->*action)();
    });
    if (!scheduled.ok())
        complain(scheduled.error().message);
}

/// Shows the client as it is now.
void DedicatedChannel::describe() {
    description_.eventMask = filter_.eventMask;
    description_.buttonMask = filter_.buttonMask;
    services().journal.update([this](Observation &observation) {
        for (ClientDescription &client : observation.clients)
            if (client.channelID == description_.channelID)
                client = description_;
    });
}

} // namespace moxel::daemon
