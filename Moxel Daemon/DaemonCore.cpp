#include "Moxel Daemon/DaemonCore.h"

#include "Moxel Daemon/Devices/InputDevice.h"
#include "Platform/Log.h"
#include "Platform/Thread.h"

#include <algorithm>
#include <chrono>

namespace moxel::daemon {

namespace {

constexpr uint16_t dedicatedProductID = 2;
/// A channel whose owner cannot be told is taken away when nobody has had it open for so long.
constexpr std::chrono::seconds disuseLimit{5};
/// Clients that are remembered after they have gone.
constexpr size_t departedLimit = 256;

} // namespace

DaemonCore::DaemonCore(const Options &options, std::string baseChannelName,
                       std::unique_ptr<Publisher> publisher, std::shared_ptr<RunLoop> runLoop,
                       Journal &journal)
    : options_(options),
      baseChannelName_(std::move(baseChannelName)),
      runLoop_(std::move(runLoop)),
      journal_(journal),
      faults_(options.faults),
      exports_(options.exportFolder.empty() ? ExportFolder::defaultPath() : options.exportFolder),
      services_{journal, faults_, options.inputReportSize, [this] { peersChanged(); },
                [this] { noteQueues(); }},
      publisher_(std::move(publisher)),
      base_(services_, *this) {
    device_.version = 1;
    device_.address = 1;
}

Result<void> DaemonCore::start() {
    if (!faults_.noBaseChannel)
        if (Result<void> published = publishBase(); !published.ok())
            return published;
    if (options_.devices.areWanted()) {
        EventSink &sink = *this;
        inputDevices_ = std::make_unique<DeviceSource>(*runLoop_, sink, options_.devices, &InputDevice::open);
        inputDevices_->start();
    }
    return {};
}

std::function<void()> DaemonCore::unlessEnded(std::function<void()> work) const {
    return [alive = std::weak_ptr(isAlive_), work = std::move(work)] {
        if (!alive.expired())
            work();
    };
}

void DaemonCore::later(std::function<void()> work) const {
    Thread::current()->perform(unlessEnded(std::move(work)));
}

// ------------------------------------------------------------------------------------------ Channels

Result<void> DaemonCore::publishBase() {
    if (base_.isPublished())
        return {};
    DeviceDescription device;
    device.name = baseChannelName_;
    device.manufacturer = options_.baseManufacturer;
    return base_.publish(*publisher_, device);
}

void DaemonCore::removeBase() {
    base_.withdraw();
    reviewPeers();
}

void DaemonCore::setFaults(const Faults &faults) {
    faults_ = faults;
    if (faults_.noBaseChannel) {
        removeBase();
    } else if (Result<void> published = publishBase(); !published.ok()) {
        logLine(LogLevel::error, "Error: " + published.error().message);
    }
}

void DaemonCore::createChannel(uint64_t channelID, const Peer &peer) {
    if (faults_.noDedicatedChannel)
        return;
    const auto publish = [this, channelID, processID = peer.processID] {
        if (Result<void> published = publishChannel(channelID, processID); !published.ok()) {
            logLine(LogLevel::error, "Error: " + published.error().message);
        } else if (processID == 0) {
            unowned_[channelID] = false;
            watchUse(channelID);
        }
    };
    if (faults_.dedicatedChannelDelay.count() == 0) {
        publish();
        return;
    }
    const Result<void> scheduled =
        runLoop_->performAfterDelay(faults_.dedicatedChannelDelay, unlessEnded(publish));
    if (!scheduled.ok())
        logLine(LogLevel::error, "Error: " + scheduled.error().message);
}

Result<void> DaemonCore::publishChannel(uint64_t channelID, int32_t processID) {
    if (channel(channelID))
        return Error{DedicatedChannel::nameForID(channelID) + " is there already", 0};
    if (channels_.size() + 1 >= publisher_->deviceLimit()) // The base channel is one more.
        return Error{"there are too many dedicated channels", 0};
    DedicatedChannel::Delegate &delegate = *this;
    auto made =
        std::make_shared<DedicatedChannel>(services_, delegate, options_, *runLoop_, channelID, processID);
    DeviceDescription device;
    device.name = made->description().channelName;
    device.productID = dedicatedProductID;
    if (Result<void> published = made->publish(*publisher_, device); !published.ok())
        return published;
    (void)made->buttonsChanged(device_.buttons); // These are down already.
    channels_.push_back(made);
    journal_.update(
        [&made](Observation &observation) { observation.clients.push_back(made->description()); });
    logLine(LogLevel::info, device.name + " published for process " + std::to_string(processID));
    return {};
}

void DaemonCore::terminateChannel(uint64_t channelID) {
    later([this, channelID] { removeChannel(channelID); });
}

bool DaemonCore::removeChannel(uint64_t channelID) {
    const auto found = std::find_if(channels_.begin(), channels_.end(), [channelID](const auto &candidate) {
        return candidate->description().channelID == channelID;
    });
    if (found == channels_.end())
        return false;
    logLine(LogLevel::info, (*found)->name() + " removed");
    unowned_.erase(channelID);
    channels_.erase(found);
    journal_.update([channelID](Observation &observation) {
        const auto client = std::find_if(
            observation.clients.begin(), observation.clients.end(),
            [channelID](const ClientDescription &candidate) { return candidate.channelID == channelID; });
        observation.departed.push_back(std::move(*client));
        observation.clients.erase(client);
        if (observation.departed.size() > departedLimit)
            observation.departed.pop_front();
    });
    noteQueues();
    return true;
}

Result<uint64_t> DaemonCore::publishDevice(const DeviceDescription &device) {
    auto made = std::make_unique<PlainChannel>(services_);
    if (Result<void> published = made->publish(*publisher_, device); !published.ok())
        return published.error();
    devices_.emplace(++lastDevice_, std::move(made));
    return uint64_t{lastDevice_};
}

bool DaemonCore::removeDevice(uint64_t number) { return devices_.erase(number) > 0; }

/// Handlers may not destroy channels, so what follows from a change is done later, once for many changes.
void DaemonCore::peersChanged() {
    journal_.update([this](Observation &observation) {
        observation.baseConnections = base_.connectionCount();
        observation.baseOpenCount = base_.openCount();
    });
    if (reviewIsDue_)
        return;
    reviewIsDue_ = true;
    later([this] {
        reviewIsDue_ = false;
        reviewPeers();
    });
}

/// Takes the channels of processes away that have ended without taking their leave.
void DaemonCore::reviewPeers() {
    std::vector<uint64_t> abandoned;
    for (const std::shared_ptr<DedicatedChannel> &candidate : channels_) {
        const int32_t owner = candidate->description().processID;
        if (owner != 0 && !base_.isConnectedTo(owner) && !candidate->isConnectedTo(owner))
            abandoned.push_back(candidate->description().channelID);
    }
    for (const uint64_t channelID : abandoned)
        removeChannel(channelID);
    for (const auto &[channelID, isWatched] : unowned_)
        watchUse(channelID);
}

/// Looks later whether a channel is in use; the time it takes to reopen one does no harm.
void DaemonCore::watchUse(uint64_t channelID) {
    DedicatedChannel *candidate = channel(channelID);
    if (unowned_[channelID] || candidate == nullptr || candidate->openCount() > 0)
        return;
    // The channel that has the identifier by then may be another one.
    const auto look = [this, watched = candidate->weak_from_this()] {
        if (const auto later = watched.lock())
            reviewUse(*later);
    };
    const RunLoop::Seconds rest = candidate->lastUse() + disuseLimit - DataChannel::Clock::now();
    const Result<void> scheduled =
        runLoop_->performAfterDelay(std::max(rest, RunLoop::Seconds(0)), unlessEnded(look));
    unowned_[channelID] = scheduled.ok();
}

void DaemonCore::reviewUse(DedicatedChannel &channel) {
    const uint64_t channelID = channel.channelID();
    unowned_[channelID] = false;
    if (channel.openCount() == 0 && DataChannel::Clock::now() >= channel.lastUse() + disuseLimit)
        removeChannel(channelID);
    else
        watchUse(channelID);
}

DedicatedChannel *DaemonCore::channel(uint64_t channelID) const {
    const auto found = std::find_if(channels_.begin(), channels_.end(), [channelID](const auto &candidate) {
        return candidate->description().channelID == channelID;
    });
    return found == channels_.end() ? nullptr : found->get();
}

// ------------------------------------------------------------------------------------------ Clients

uint16_t DaemonCore::newClientID() {
    for (uint32_t attempt = 0; attempt < UINT16_MAX; ++attempt) {
        lastClientID_ = lastClientID_ == UINT16_MAX ? 1 : static_cast<uint16_t>(lastClientID_ + 1);
        const bool isTaken = std::any_of(channels_.begin(), channels_.end(), [this](const auto &candidate) {
            return candidate->description().clientID == lastClientID_;
        });
        if (!isTaken)
            return lastClientID_;
    }
    return 0;
}

void DaemonCore::clientRegistered(DedicatedChannel &channel, bool isAgain) {
    if (faults_.dropChannelAfterRegistration)
        terminateChannel(channel.description().channelID);
    if (inputDevices_ && !isAgain)
        for (const Dictionary &message : inputDevices_->arrivals())
            if (Result<void> sent = channel.sendDictionary(message, options_.traceAsksAcknowledgement,
                                                           DataOutbox::payloadLimit);
                !sent.ok())
                logLine(LogLevel::error, "Error: " + sent.error().message);
    startPlayerWhenReady();
}

Result<void> DaemonCore::serveExport(const ApplicationRecord &application, const ExportRequest &request,
                                     ClientExports &exports) {
    return exports_.serve(application, request, exports);
}

size_t DaemonCore::forClients(uint16_t clientID, const std::function<void(DedicatedChannel &)> &act) const {
    size_t count = 0;
    for (const std::shared_ptr<DedicatedChannel> &candidate : channels_) {
        const ClientDescription &client = candidate->description();
        if (client.clientID == 0 || (clientID != Daemon::allClients && client.clientID != clientID))
            continue;
        act(*candidate);
        ++count;
    }
    return count;
}

size_t DaemonCore::sendStates(uint16_t clientID, std::span<const MoxelStateRecord> records) {
    size_t sent = 0;
    forClients(clientID, [&](DedicatedChannel &client) {
        for (const MoxelStateRecord &record : records)
            sent += client.sendState(record) ? 1 : 0;
    });
    noteQueues();
    return sent;
}

Result<void> DaemonCore::sendDictionary(uint16_t clientID, const Dictionary &dictionary,
                                        const DictionaryOptions &options) {
    Result<void> result;
    const size_t count = forClients(clientID, [&](DedicatedChannel &client) {
        if (Result<void> sent = client.sendDictionary(dictionary, options.wantsAnswer, options.packetSize);
            !sent.ok())
            result = std::move(sent);
    });
    noteQueues();
    if (count == 0 && clientID != Daemon::allClients)
        return Error{"there is no client " + std::to_string(clientID), 0};
    return result;
}

Result<void> DaemonCore::sendPacket(uint16_t clientID, const OutgoingPacket &packet) {
    bool fits = true;
    const size_t count =
        forClients(clientID, [&](DedicatedChannel &client) { fits = client.sendPacket(packet) && fits; });
    noteQueues();
    if (count == 0)
        return Error{"there is no client " + std::to_string(clientID), 0};
    return fits ? Result<void>() : Error{"too much waits for a client already", 0};
}

size_t DaemonCore::sendInputReport(uint64_t channelID, std::span<const uint8_t> report) {
    DataChannel *target =
        channelID == Daemon::baseChannel ? static_cast<DataChannel *>(&base_) : channel(channelID);
    const size_t sent = target ? target->sendInput(Data(report.begin(), report.end())) : 0;
    noteQueues();
    return sent;
}

size_t DaemonCore::requestReRegistration(uint16_t clientID) {
    return forClients(clientID, [](DedicatedChannel &client) { client.askToRegisterAgain(); });
}

size_t DaemonCore::queryStoredData(uint16_t clientID) {
    return forClients(clientID, [](DedicatedChannel &client) { client.queryStoredData(); });
}

void DaemonCore::noteQueues() {
    size_t longest = base_.queuedBytes();
    for (const auto &candidate : channels_)
        longest = std::max(longest, candidate->queuedBytes());
    for (const auto &[number, device] : devices_)
        longest = std::max(longest, device->queuedBytes());
    const auto sending = static_cast<size_t>(std::count_if(
        channels_.begin(), channels_.end(), [](const auto &client) { return client->isSending(); }));
    journal_.update([longest, sending](Observation &observation) {
        observation.queuedBytes = longest;
        observation.sendingClients = sending;
    });
}

} // namespace moxel::daemon
