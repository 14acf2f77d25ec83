// Registers a session with the daemon.
#include "Control/RequestSending.h"
#include "ExportedCall.h"
#include "Helpers/Condition.h"
#include "Helpers/Logging.h"
#include "Helpers/TextConversion.h"
#include "Platform/Process.h"
#include "Protocol/WireLayouts.h"
#include "Session/ApplicationBundle.h"
#include "Session/ClientRegistry.h"
#include <Moxel/MoxelClient.h>
#include <Moxel/MoxelClientAPI.h>
#include <Moxel/MoxelStrings.h>

#include <cstring>

namespace moxel {

namespace {

constexpr const char *registerSelector = "-[MoxelClientAPI registerMoxelClient:name:mode:andMask:]";
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

uint16_t MoxelClientAPI::registerMoxelClient(uint32_t signature, const uint8_t *name, uint16_t mode,
                                             uint32_t andMask) {
    logInfo("*** %s, client=%p", registerSelector, static_cast<const void *>(this));
    if (!m_refHIDChannelBase() || !m_bHIDChannelBaseOpen())
        return 0;
    const std::shared_ptr<Condition> condition = m_conditionSignal();
    const bool isReRegistration = [&] {
        const std::lock_guard lock(*condition);
        return m_bReRegistrationRequest();
    }();
    if (isReRegistration) {
        logInfo("%s - RE-Registration .. using appinfo: %@", registerSelector,
                applicationInfo()->description());
    } else {
        fillApplicationInfo(signature, name, mode, andMask);
        requestChannelCreation(registerSelector);
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
        registerSelector, isReRegistration, m_bHIDChannelDedicatedOpen());
    if (!waitForDedicatedChannel()) {
        logError("%s, Error: Timeout - Failed to connect to dedicated communication channel!",
                 registerSelector);
        return 0;
    }
    logInfo("%s, Dedicated communication channel established! Sending registration data:", registerSelector);
    if (!sendRegistrationData(isReRegistration)) {
        logError("%s, Failed to send registration data!! Returning with no valid handle!", registerSelector);
        return 0;
    }
    if (!waitForRegistrationAnswer()) {
        logError("%s, Error: Timeout - Failed to complete application registration!", registerSelector);
        return 0;
    }
    const uint16_t clientID = applicationInfo()->clientid().uint16Value();
    logInfo("%s, RegisterMoxelClient() -> Registration complete! ClientID = %i %x. Done.", registerSelector,
            clientID, clientID);
    if (setAppInfoRecordExitState(wire::running))
        logInfo("%s, AppInfoRecord set.", registerSelector);
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
    const std::shared_ptr<Condition> condition = m_conditionSignal();
    const auto deadline = Condition::Clock::now() + dedicatedChannelLimit;
    bool signalled = true;
    bool open = false;
    {
        const std::lock_guard lock(*condition);
        logInfo(
            "****************** %s preWaiting for dedicated cahnnel: m_bHIDChannelDedicatedOpen=%i, ref=%@, "
            "signalled=%i ",
            registerSelector, m_bHIDChannelDedicatedOpen(), describe(m_refHIDChannelDedicated()), signalled);
        for (;;) {
            const bool connected = m_refHIDChannelDedicated() != nullptr;
            open = connected && m_bHIDChannelDedicatedOpen();
            if (open || !signalled)
                break;
            logInfo("****************** %s Waiting for dedicated cahnnel: m_bHIDChannelDedicatedOpen=%i",
                    registerSelector, m_bHIDChannelDedicatedOpen());
            signalled = condition->waitUntil(deadline);
        }
    }
    logInfo("****************** %s postWaiting for dedicated cahnnel: m_bHIDChannelDedicatedOpen=%i, ref=%@, "
            "signalled=%i ",
            registerSelector, m_bHIDChannelDedicatedOpen(), describe(m_refHIDChannelDedicated()), signalled);
    return open;
}

bool MoxelClientAPI::sendRegistrationData(bool isReRegistration) {
    const Dictionary request{{"req", "regclient"}, {"app", applicationInfo()}, {"type", isReRegistration}};
    const Result<Data> archive = archivedDataWithRootObject(request);
    return archive.ok() && sendRequest(*this, *archive, isReRegistration);
}

bool MoxelClientAPI::waitForRegistrationAnswer() {
    const std::shared_ptr<Condition> condition = m_conditionSignal();
    const auto deadline = Condition::Clock::now() + registrationAnswerLimit;
    const std::lock_guard lock(*condition);
    return condition->waitUntil(deadline, [this] { return m_bClientRegistered(); });
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

namespace {

uint16_t registerPendingClient(uint32_t signature, const uint8_t *name, uint16_t mode, uint32_t mask) {
    constexpr const char *function = "uint16_t RegisterMoxelClient(uint32_t, uint8_t *, uint16_t, uint32_t)";
    const std::lock_guard lock(MoxelClientAPI::classLock());
    const ClientRegistry::Client client = CurrentPendingClient();
    logInfo("%s, RegisterMoxelClient, thread = %lx, class? %p, client=%p", function, currentThreadKey(),
            static_cast<const void *>(&MoxelClientAPI::classLock()), static_cast<const void *>(client.get()));
    if (!client)
        return 0;
    const uint16_t clientID = client->registerMoxelClient(signature, name, mode, mask);
    enterRegisteredClient(client, clientID); // After a failure too; after a success it changes nothing more.
    return clientID;
}

} // namespace

} // namespace moxel

using namespace moxel;

uint16_t RegisterMoxelClient(uint32_t signature, uint8_t *name, uint16_t mode, uint32_t mask) {
    return exportedCall("RegisterMoxelClient", uint16_t{0},
                        [&] { return registerPendingClient(signature, name, mode, mask); });
}
