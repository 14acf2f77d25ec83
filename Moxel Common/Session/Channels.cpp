// Recognises the driver's virtual HID devices, opens them and keeps the channel references current.
#include "Helpers/Condition.h"
#include "Helpers/Logging.h"
#include "Helpers/TextConversion.h"
#include "Platform/Thread.h"
#include "Session/ChannelCallbacks.h"
#include <Moxel/HIDUtility.h>
#include <Moxel/MoxelClientAPI.h>

#include <array>

namespace moxel {

namespace {

constexpr const char *dedicatedChannelPrefix = "MxlVirtualHIDData_ID";
constexpr size_t manufacturerRoom = 256;
/// Lets a new device settle before its first report.
constexpr std::chrono::milliseconds settlingPause{25};

String manufacturerOf(HIDDevice *device) {
    std::array<char32_t, manufacturerRoom> wide{};
    if (!HIDUtility::getStringProperty(device, hidManufacturerKey.data(), wide.data(), wide.size()))
        return String("");
    return stringByTrimmingWhitespace(stringFromUTF32(wide.data()));
}

bool contains(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}

const char *yesOrNo(bool yes) { return yes ? "YES" : "NO"; }

} // namespace

void ChannelConnectedEntry(void *context, HIDStatus, HIDManager *sender, const HIDDeviceReference &device) {
    constexpr const char *function = "void ChannelConnectedEntry(void *, IOReturn, void *, IOHIDDeviceRef)";
    auto &client = *static_cast<MoxelClientAPI *>(context);
    logInfo("%s ---- %@", function, device->description());
    // For diagnosis: each says so on standard output when the device lacks it.
    HIDUtility::getIntProperty(device.get(), hidPrimaryUsageKey.data());
    HIDUtility::getIntProperty(device.get(), hidPrimaryUsagePageKey.data());
    HIDUtility::getVendorID(device.get());
    HIDUtility::getProductID(device.get());

    const String manufacturer = manufacturerOf(device.get());
    if (manufacturer != String("Moxel") && manufacturer != String("com.moxel")) {
        logInfo("%s, Ignoring Manufacturer %@", function, manufacturer);
        return;
    }
    logInfo("*** %s, MoxelClientAPI/client=%p", function, context);
    const std::string clientID = format("%llX", client.channelID());
    if (char name[HIDUtility::classNameRoom]; HIDUtility::getClassName(name, device.get())) {
        if (contains(name, client.m_strBaseChannelName().view()))
            client.baseChannelConnected(device, sender);
        logInfo("%s, stringname=%@ <> %@ stringClientID=%@, k=%s", function, String(name),
                format("%s%@", dedicatedChannelPrefix, clientID), clientID, name);
        if (contains(name, clientID) && contains(name, dedicatedChannelPrefix))
            client.channelConnected(device, sender);
    }
    logInfo("%s, EXIT, connected? %@", function, yesOrNo(client.m_refHIDChannelBase() != nullptr));
}

void ChannelDisconnectedEntry(void *context, HIDStatus, HIDManager *sender,
                              const HIDDeviceReference &device) {
    logInfo("*** %s, MoxelClientAPI/client=%p, dev=%@",
            "void ChannelDisconnectedEntry(void *, IOReturn, void *, IOHIDDeviceRef)", context,
            device->description());
    if (context)
        static_cast<MoxelClientAPI *>(context)->channelDisconnected(device, sender);
}

void MoxelClientAPI::baseChannelConnected(const HIDDeviceReference &device, HIDManager *) {
    constexpr const char *selector = "-[MoxelClientAPI baseChannelConnected:fromSender:]";
    logInfo("%s, channelBaseConnected %@", selector, device->description());
    const std::shared_ptr<Condition> condition = m_conditionSignal();
    {
        const std::lock_guard lock(*condition);
        setM_refHIDChannelBase(device);
        condition->signal();
    }
    const HIDStatus status = device->open();
    logInfo("%s, channelBaseConnected open returns %i", selector, static_cast<uint32_t>(status));
    if (status == HIDStatus::success) {
        device->registerInputReportCallback(m_bReportBuffer_, HandleIncomingDataEntryBase, this);
        const std::lock_guard lock(*condition);
        setM_bHIDChannelBaseOpen(true);
        condition->signal();
    } else {
        logError("%s. Error!! Failed to open application channel!", selector);
    }
    logInfo("%s, channelBaseConnected exit, connected? %@, open? %i ", selector,
            yesOrNo(m_refHIDChannelBase() != nullptr), m_bHIDChannelBaseOpen());
}

void MoxelClientAPI::channelConnected(const HIDDeviceReference &device, HIDManager *) {
    constexpr const char *selector = "-[MoxelClientAPI channelConnected:fromSender:]";
    logInfo("%s, self=%p, channelConnected %@", selector, static_cast<const void *>(this),
            device->description());
    setM_refHIDChannelDedicated(device); // Wakes nobody: who waits for the channel waits until it is open.
    if (device->open() != HIDStatus::success) {
        logError("%s. Error!! Failed to pen application channel!", selector);
        return;
    }
    device->registerInputReportCallback(m_bReportBuffer_, HandleIncomingDataDedicated, this);
    std::this_thread::sleep_for(settlingPause);
    const std::shared_ptr<Condition> condition = m_conditionSignal();
    const std::lock_guard lock(*condition);
    setM_bHIDChannelDedicatedOpen(true);
    condition->signal();
}

void MoxelClientAPI::channelDisconnected(const HIDDeviceReference &device, HIDManager *) {
    const std::shared_ptr<Condition> condition = m_conditionSignal();
    const std::lock_guard lock(*condition);
    if (device == m_refHIDChannelDedicated()) {
        setM_refHIDChannelDedicated(nullptr);
        setM_bHIDChannelDedicatedOpen(false);
    }
    if (device == m_refHIDChannelBase()) {
        setM_refHIDChannelBase(nullptr);
        setM_bHIDChannelBaseOpen(false);
    }
    condition->signal();
}

void MoxelClientAPI::closeBaseChannel() {
    if (const HIDDeviceReference base = m_refHIDChannelBase()) {
        if (const HIDStatus status = base->close(); status != HIDStatus::success)
            logError("ERROR: There was an error closing the base channel device, error %i!",
                     static_cast<uint32_t>(status));
    }
    setM_refHIDChannelBase(nullptr);
    setM_bHIDChannelBaseOpen(false);
}

} // namespace moxel
