// Does what each message of the daemon asks for, and hands the application what is meant for it.
#include "Helpers/Logging.h"
#include "Platform/Thread.h"
#include "Protocol/CallerThreadWatch.h"
#include "Protocol/Delivery.h"
#include "Protocol/StateForwarder.h"
#include "Protocol/WireLayouts.h"
#include <Moxel/MoxelClientAPI.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

namespace moxel {

namespace {

/// Messages that may wait for a caller thread that does not run its loop; state records aside.
constexpr int32_t forwardedMessageLimit = 4096;
/// Once their payloads add up to so much, nothing more is taken.
constexpr size_t forwardedByteLimit = size_t{64} << 20;

/// The daemon's dictionary as the application gets it: the length of an archive, and the archive.
Data pairingBlock(const Dictionary &message) {
    const Result<Data> archive = archivedDataWithRootObject(message);
    if (!archive.ok()) {
        logError("Error: a pairing message is dropped: %@", archive.error().message);
        return nullptr;
    }
    const uint64_t length = archive->size();
    std::vector<uint8_t> block(sizeof length + archive->size());
    std::memcpy(block.data(), &length, sizeof length);
    std::ranges::copy(archive->bytes(), block.begin() + sizeof length);
    return Data(std::move(block));
}

/// The message with the value of "ctrlcmd" under "req" instead.
Dictionary renamedControlCommand(const Dictionary &message) {
    MutableDictionary copy = message.mutableCopy();
    if (const Value &command = message["ctrlcmd"])
        copy.set("req", command);
    copy.remove("ctrlcmd");
    return copy.copy();
}

} // namespace

// ------------------------------------------------------------------------------------------ Requests by name

void MoxelClientAPI::parseDict(const Dictionary &dictionary, const String &withRequest) {
    const std::string_view request = withRequest.view();
    stateForwarder_->keepOrder();
    if (request == "cmdsync")
        deliverCommandSync(dictionary);
    else if (request == "moxclientctrl")
        logError("%s, received MOXCLIENTCTRL!!!!!!!!!!!!!!!!!!!!! Why?! This shall never happen!",
                 "-[MoxelClientAPI parseDict:withRequest:]");
    else if (request == "uprf")
        deliverPreferences(dictionary);
    else if (request == "udev") {
        setM_uDeviceID(uint32_t{dictionary["vid"].uint16Value()} << 16 | dictionary["pid"].uint16Value());
    } else if (request == "devadd")
        deliverDeviceAdded(dictionary);
    else if (request == "devrm")
        deliverDeviceRemoved(dictionary);
    else if (request == "pairinfo")
        deliverPairingInformation(renamedControlCommand(dictionary));
    else if (request == "cabdev")
        deliverPairingInformation(dictionary);
}

void MoxelClientAPI::deliverCommandSync(const Dictionary &message) {
    std::array<uint8_t, wire::commandSyncBlockSize> block{};
    const Data data = message["data"].asData();
    std::ranges::copy(data.bytes().first(std::min(data.size(), block.size())), block.begin());
    deliverMessage(kMoxelMsgCommandSync, block.data(), [&] {
        return Dictionary{
            {"handler", int{delivery::commandSync}}, {"pid", message["pid"]}, {"data", Data(block)}};
    });
}

void MoxelClientAPI::deliverPreferences(const Dictionary &message) {
    const uint32_t argument = message["arg"].uint32Value();
    setM_dataDevicePrefs(message["prefs"].asData());
    // NOLINTNEXTLINE(performance-no-int-to-ptr): a threaded handler gets the number in place of a pointer.
    deliverMessage(kMoxelMsgPrefsChanged, reinterpret_cast<void *>(uintptr_t{argument}), [&] {
        return Dictionary{{"handler", int{delivery::preferencesChanged}},
                          {"pid", uint32_t{kMoxelAnyProduct}},
                          {"arg", argument}};
    });
}

void MoxelClientAPI::deliverPairingInformation(const Dictionary &message) {
    if (!hasMessageHandler())
        return;
    Data block = pairingBlock(message);
    if (!block)
        return;
    deliverMessage(kMoxelMsgPairingInfo, &block, [&] {
        return Dictionary{{"handler", int{delivery::pairingInformation}},
                          {"pid", uint32_t{kMoxelAnyProduct}},
                          {"arg", block}};
    });
}

void MoxelClientAPI::deliverDeviceAdded(const Dictionary &message) {
    if (!message.contains("pid"))
        return;
    const uint32_t deviceID = message["pid"].uint32Value();
    if (!deviceAddedHandler_ && !deviceAddedHandler2_)
        return;
    if (allowThreadedCallback_)
        callAddedHandler(deviceID);
    else
        forwardToCallerThread({{"handler", int{delivery::deviceAdded}}, {"pid", deviceID}});
}

void MoxelClientAPI::deliverDeviceRemoved(const Dictionary &message) {
    if (!message.contains("pid"))
        return;
    const uint32_t deviceID = message["pid"].uint32Value();
    const MoxelRemovedHandlerProc plain = deviceRemovedHandler_;
    const _MoxelRemovedHandlerProc withContext = deviceRemovedHandler2_;
    if (!plain && !withContext)
        return;
    // One handler here; callRemovedHandlers(), which delivers what is forwarded, calls both.
    if (!allowThreadedCallback_)
        forwardToCallerThread({{"handler", int{delivery::deviceRemoved}}, {"pid", deviceID}});
    else if (plain)
        plain(deviceID);
    else
        withContext(deviceID, m_ptrClient());
}

// ------------------------------------------------------------------------------------------ Delivery

template <class MakeForwarded>
void MoxelClientAPI::deliverMessage(uint32_t message, void *argument, MakeForwarded &&forwarded) {
    if (!hasMessageHandler())
        return;
    if (allowThreadedCallback_)
        callMessageHandler(kMoxelAnyProduct, message, argument);
    else
        forwardToCallerThread(forwarded());
}

std::shared_ptr<void> MoxelClientAPI::placeInCallerQueue(size_t bytes) {
    if (forwardedMessages_ >= forwardedMessageLimit || forwardedBytes_ >= forwardedByteLimit) {
        logError(
            "Error: a message is dropped because %i others wait for a thread that does not run its run loop",
            forwardedMessages_.load());
        return nullptr;
    }
    ++forwardedMessages_;
    forwardedBytes_ += bytes;
    callerThreadWatch_->posted();
    // The pointer only has to differ from null; what counts is the deleter.
    return {this, [client = weak_from_this(), bytes](void *) {
                if (const std::shared_ptr<MoxelClientAPI> counted = client.lock()) {
                    counted->callerThreadWatch_->taken();
                    --counted->forwardedMessages_;
                    counted->forwardedBytes_ -= bytes;
                }
            }};
}

void MoxelClientAPI::forwardToCallerThread(const Dictionary &message) {
    const std::shared_ptr<Thread> thread = callerThread();
    if (!thread)
        return;
    const size_t bytes = message["arg"].asData().size() + message["data"].asData().size();
    if (std::shared_ptr<void> place = placeInCallerQueue(bytes))
        thread->perform([client = shared_from_this(), message, place = std::move(place)]() mutable {
            place.reset(); // It does not wait any more.
            client->callerThreadProxy(message);
        });
}

} // namespace moxel
