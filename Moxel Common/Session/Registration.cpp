// Registers a session with the daemon and takes the registration back.
#include "ExportedCall.h"
#include "Helpers/Condition.h"
#include "Helpers/Logging.h"
#include "Helpers/TextConversion.h"
#include "Platform/Process.h"
#include "Platform/Thread.h"
#include "Protocol/WireLayouts.h"
#include "Session/ApplicationBundle.h"
#include "Session/ClientRegistry.h"
#include <Moxel/MoxelClient.h>
#include <Moxel/MoxelClientAPI.h>
#include <Moxel/MoxelStrings.h>

#include <cstring>

namespace moxel {

namespace {

constexpr std::chrono::milliseconds dedicatedChannelLimit{2500};
constexpr std::chrono::milliseconds registrationAnswerLimit{2000};
constexpr uint32_t defaultSwitches = 0x80000000;

Value describe(const HIDDeviceReference &device) { return device ? Value(device->description()) : Value(); }

/// The application's name as the driver sees it: the given name, else the executable's.
String applicationNameOf(const MxlApplication &record) {
    for (const Value &name : {record.name(), record.appFileName()}) {
        if (name)
            return name.kind() == Kind::string ? name.asString() : String(name.description());
    }
    return "";
}

MoxelAppInfoRecord makeAppInfoRecord(uint16_t exitState, const String &name) {
    constexpr size_t longestName = 23;
    MoxelAppInfoRecord record{};
    record.exitState = exitState;
    const std::string_view text = prefixOfUTF8(name.view(), longestName, sizeof record.name);
    std::memcpy(record.name, text.data(), text.size());
    return record;
}

} // namespace

// ------------------------------------------------------------------------------------------ Registration

uint16_t MoxelClientAPI::registerMoxelClient(uint32_t signature, const uint8_t *name, uint16_t mode,
                                             uint32_t andMask) {
    constexpr const char *selector = "-[MoxelClientAPI registerMoxelClient:name:mode:andMask:]";
    logInfo("*** %s, client=%p", selector, static_cast<const void *>(this));
    if (!m_refHIDChannelBase() || !m_bHIDChannelBaseOpen())
        return 0;
    const std::shared_ptr<Condition> condition = m_conditionSignal();
    const bool isReRegistration = [&] {
        const std::lock_guard lock(*condition);
        return m_bReRegistrationRequest();
    }();
    if (isReRegistration) {
        logInfo("%s - RE-Registration .. using appinfo: %@", selector, applicationInfo()->description());
    } else {
        fillApplicationInfo(signature, name, mode, andMask);
        requestChannelCreation(selector);
    }
    {
        // A first registration waits for the daemon's answer; a repeated one is answered already.
        const std::lock_guard lock(*condition);
        setM_bClientRegistered(isReRegistration);
        condition->signal();
    }
    logInfo(
        "****************** %s Waiting for final driver responses and flag changes. bIsReRegistration=%i, "
        "m_bHIDChannelDedicatedOpen=%i",
        selector, isReRegistration, m_bHIDChannelDedicatedOpen());
    if (!waitForDedicatedChannel()) {
        logError("%s, Error: Timeout - Failed to connect to dedicated communication channel!", selector);
        return 0;
    }
    logInfo("%s, Dedicated communication channel established! Sending registration data:", selector);
    if (!sendRegistrationData(isReRegistration)) {
        logError("%s, Failed to send registration data!! Returning with no valid handle!", selector);
        return 0;
    }
    if (!waitForRegistrationAnswer()) {
        logError("%s, Error: Timeout - Failed to complete application registration!", selector);
        return 0;
    }
    const uint16_t clientID = applicationInfo()->clientid().uint16Value();
    logInfo("%s, RegisterMoxelClient() -> Registration complete! ClientID = %i %x. Done.", selector, clientID,
            clientID);
    if (setAppInfoRecordExitState(wire::running))
        logInfo("%s, AppInfoRecord set.", selector);
    enterRegisteredClient(shared_from_this(), clientID);
    return clientID;
}

void MoxelClientAPI::fillApplicationInfo(uint32_t signature, const uint8_t *name, uint16_t mode,
                                         uint32_t mask) {
    const Ref<MxlApplication> record = applicationInfo();
    record->setClientid(0);
    record->setMode(mode);
    record->setMask(mask);
    record->setButtonMask(mask & 0xFF);
    record->setSwitches(defaultSwitches);
    const MainBundle bundle = mainBundle();
    record->setBundleid(applicationBundleIdentifier(bundle));
    record->setSignature(signature);
    record->setAppFileName(bundle.executableName ? Value(*bundle.executableName) : Value());
    record->setExecutablePath(bundle.executablePath ? Value(*bundle.executablePath) : Value());
    record->setProcessid(processIdentifier());
    const String nameText = name ? stringWithPascalString(name) : String();
    record->setName(nameText);
    record->setClientName(nameText);
    record->setChannelID(channelID());
}

bool MoxelClientAPI::sendChannelControl(uint16_t code) {
    wire::MxControlPacket packet{};
    packet.m_DataID = wire::controlMessage;
    packet.code = code;
    packet.channelID = applicationInfo()->channelID().uint64Value();
    return SetReport(m_refHIDChannelBase().get(), wire::baseChannelTag, wire::controlReport, &packet,
                     sizeof packet);
}

void MoxelClientAPI::requestChannelCreation(const char *selector) {
    // A failed send is no error yet: the wait for the channel decides.
    const bool sent = sendChannelControl(wire::createChannel);
    logInfo("****************** %s returning %i (%@), channel creation request for cID=%llx", selector, sent,
            successOrFailure(sent), applicationInfo()->channelID().uint64Value());
}

bool MoxelClientAPI::waitForDedicatedChannel() {
    constexpr const char *selector = "-[MoxelClientAPI registerMoxelClient:name:mode:andMask:]";
    const std::shared_ptr<Condition> condition = m_conditionSignal();
    const auto deadline = Condition::Clock::now() + dedicatedChannelLimit;
    bool signalled = true;
    bool open = false;
    {
        const std::lock_guard lock(*condition);
        logInfo(
            "****************** %s preWaiting for dedicated cahnnel: m_bHIDChannelDedicatedOpen=%i, ref=%@, "
            "signalled=%i ",
            selector, m_bHIDChannelDedicatedOpen(), describe(m_refHIDChannelDedicated()), signalled);
        for (;;) {
            const bool connected = m_refHIDChannelDedicated() != nullptr;
            open = connected && m_bHIDChannelDedicatedOpen();
            if (open || !signalled)
                break;
            logInfo("****************** %s Waiting for dedicated cahnnel: m_bHIDChannelDedicatedOpen=%i",
                    selector, m_bHIDChannelDedicatedOpen());
            signalled = condition->waitUntil(deadline);
        }
    }
    logInfo("****************** %s postWaiting for dedicated cahnnel: m_bHIDChannelDedicatedOpen=%i, ref=%@, "
            "signalled=%i ",
            selector, m_bHIDChannelDedicatedOpen(), describe(m_refHIDChannelDedicated()), signalled);
    return open;
}

bool MoxelClientAPI::sendRegistrationData(bool isReRegistration) {
    const Dictionary request{{"req", "regclient"}, {"app", applicationInfo()}, {"type", isReRegistration}};
    const Result<Data> archive = archivedDataWithRootObject(request);
    return archive.ok() && sendUserRequestData(*archive, m_refHIDChannelDedicated(), wire::userRequestID,
                                               wire::userRequestCommand, isReRegistration);
}

bool MoxelClientAPI::waitForRegistrationAnswer() {
    const std::shared_ptr<Condition> condition = m_conditionSignal();
    const auto deadline = Condition::Clock::now() + registrationAnswerLimit;
    const std::lock_guard lock(*condition);
    while (!m_bClientRegistered()) {
        if (!condition->waitUntil(deadline))
            break;
    }
    return m_bClientRegistered();
}

bool MoxelClientAPI::setAppInfoRecordExitState(uint16_t state) {
    constexpr const char *selector = "-[MoxelClientAPI setAppInfoRecordExitState:]";
    if (!m_bClientRegistered())
        return false;
    const String name = applicationNameOf(*applicationInfo());
    logInfo("%s, Apname=%@", selector, name);
    const MoxelAppInfoRecord record = makeAppInfoRecord(state, name);
    const HIDDeviceReference channel = m_refHIDChannelDedicated();
    if (!SetReport(channel.get(), channelID(), wire::applicationInfo, &record, sizeof record))
        return false;
    logInfo("%s, Wrote to %@. Exitcode=%x, name=%s", selector, describe(channel), state,
            std::string_view(record.name, strnlen(record.name, sizeof record.name)));
    return true;
}

// ------------------------------------------------------------------------------------------ Unregistration

bool MoxelClientAPI::unregisterConnection() {
    constexpr const char *selector = "-[MoxelClientAPI unregisterConnection]";
    static std::atomic<uint8_t> callcount{0};
    const auto calls = static_cast<uint8_t>(callcount.fetch_add(1) + 1);
    logInfo("****************** %s, %p, Called %i times...", selector, static_cast<const void *>(this),
            calls);
    if (!setAppInfoRecordExitState(wire::leaving))
        return false;
    if (const HIDDeviceReference channel = m_refHIDChannelDedicated()) {
        if (const HIDStatus status = channel->close(); status != HIDStatus::success)
            logError("ERROR: There was an error closing the dedicated channel device %llu, error %i!",
                     channelID(), static_cast<uint32_t>(status));
        setM_refHIDChannelDedicated(nullptr);
        setM_bHIDChannelDedicatedOpen(false);
    }
    const bool sent = sendChannelControl(wire::terminateChannel);
    logInfo("****************** %s returning %i (%@), termination request for cID=%llx", selector, sent,
            successOrFailure(sent), applicationInfo()->channelID().uint64Value());
    const std::shared_ptr<Condition> condition = m_conditionSignal();
    const std::lock_guard lock(*condition);
    setM_bClientRegistered(false);
    condition->signal();
    return true;
}

namespace {

void unregisterClient(uint16_t clientID) {
    constexpr const char *function = "void UnregisterMoxelClient(uint16_t)";
    logInfo("<<<<<<<<<<<<<<<<<< %s clientID %d, thread = %lx", function, clientID, currentThreadKey());
    const std::lock_guard lock(MoxelClientAPI::classLock());
    const ClientRegistry::Client client = CurrentClientViaClientID(clientID);
    if (!client) {
        logError("%s, Error: No valid client entry found! Can not unregister! Check your thread, please!!!",
                 function);
        return;
    }
    logInfo("%s m_bClientRegistered =%i, channelID=%llx", function, client->m_bClientRegistered(),
            client->applicationInfo()->channelID().uint64Value());
    const bool isRegistered = [&client] {
        const std::shared_ptr<Condition> condition = client->m_conditionSignal();
        const std::lock_guard conditionLock(*condition);
        return client->m_bClientRegistered();
    }();
    if (isRegistered) {
        if (client->unregisterConnection())
            client->closeBaseChannel();
        else
            logError("%s, Error: Call to terminate ", function);
    }
    gPendingClients().set(currentThreadKey(), client, currentThreadKey());
    gClients().removeClient(client);
}

uint16_t registerPendingClient(uint32_t signature, const uint8_t *name, uint16_t mode, uint32_t mask) {
    constexpr const char *function = "uint16_t RegisterMoxelClient(uint32_t, uint8_t *, uint16_t, uint32_t)";
    const std::lock_guard lock(MoxelClientAPI::classLock());
    const ClientRegistry::Client client = CurrentPendingClient();
    logInfo("%s, RegisterMoxelClient, thread = %lx, class? %p, client=%p", function, currentThreadKey(),
            static_cast<const void *>(&MoxelClientAPI::classLock()), static_cast<const void *>(client.get()));
    if (!client)
        return 0;
    const uint16_t clientID = client->registerMoxelClient(signature, name, mode, mask);
    enterRegisteredClient(client, clientID);
    return clientID;
}

} // namespace

} // namespace moxel

using namespace moxel;

uint16_t RegisterMoxelClient(uint32_t signature, uint8_t *name, uint16_t mode, uint32_t mask) {
    return exportedCall("RegisterMoxelClient", uint16_t{0},
                        [&] { return registerPendingClient(signature, name, mode, mask); });
}

void UnregisterMoxelClient(uint16_t clientID) {
    exportedCall("UnregisterMoxelClient", [clientID] { unregisterClient(clientID); });
}
