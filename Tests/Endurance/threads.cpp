// Many threads in every exported function at once, with sessions that come and go under events; for
// ThreadSanitizer.
#include "Endurance/Random.h"
#include "Moxel Daemon/Daemon.h"
#include "Platform/NotificationCenter.h"
#include "Platform/Thread.h"
#include "Session/ClientRegistry.h"
#include "Values/Data.h"
#include "Values/KeyedArchive.h"
#include <Moxel/CFileObserver.h>
#include <Moxel/MoxelClient.h>
#include <Moxel/MoxelClientAPI.h>
#include <Moxel/MoxelRunLoop.h>
#include <Moxel/MxlPlistDictionaries.h>

#include <CLI/CLI.hpp>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace moxel;
using endurance::Random;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr uint32_t signature = 0x54687264;

std::atomic<bool> isOver{false};
/// Client identifiers that some thread has registered; others use them too.
std::array<std::atomic<uint16_t>, 64> knownClients{};
std::atomic<uint64_t> calls{0};
std::atomic<uint64_t> sessions{0};
std::atomic<uint64_t> events{0};
std::atomic<uint64_t> endedInHandlers{0};

/// Every session that was begun, so that it can be awaited that all are gone.
class BegunSessions {
  public:
    /// The session that the calling thread has just installed.
    void add() {
        const std::lock_guard lock(mutex_);
        begun_.push_back(CurrentPendingClient());
    }
    /// How many there still are.
    size_t alive() {
        const std::lock_guard lock(mutex_);
        std::erase_if(begun_, [](const auto &session) { return session.expired(); });
        return begun_.size();
    }

  private:
    std::mutex mutex_;
    std::vector<std::weak_ptr<MoxelClientAPI>> begun_;
};
BegunSessions begunSessions;

/// What a session's handlers know.
struct Context {
    std::atomic<bool> isThreaded{false};
    std::atomic<uint16_t> client{0};
    std::atomic<uint64_t> heard{0};
    // Numbers of the events in whose handlers it is done.
    std::atomic<uint32_t> unregisterAt{0};
    std::atomic<uint32_t> trespassAt{0}; ///< A call that may wait, on the library's own thread.
};

uint16_t someClient(Random &random) { return knownClients[random.below(knownClients.size())]; }

/// Calls that wait for nobody.
void askFreely(uint32_t device) {
    (void)MoxelCheckUserActive();
    (void)MoxelGetSessionUserID();
    (void)MoxelSetButtonLabels(device, nullptr);
    (void)MoxelRunLoopGetFD();
    (void)MoxelRunLoopDispatch(0); // Refused inside a handler.
    calls += 5;
}

void askWhatIsKnown(uint32_t device) {
    MoxelDevicePrefs preferences;
    (void)MoxelGetCurrentDevicePrefs(device, &preferences);
    ++calls;
    askFreely(device);
}

void message(uint32_t product, uint32_t type, void *argument, void *context) {
    auto &mine = *static_cast<Context *>(context);
    ++events;
    const uint64_t number = ++mine.heard;
    if (type == kMoxelMsgDeviceState && static_cast<const MoxelStateRecord *>(argument)->version == 0)
        std::abort();
    if (mine.isThreaded) {
        // Not allowed, and it may cost 2 s: it waits for whoever makes a call, who waits for an answer that
        // this thread would read. Nothing worse may come of it.
        if (number == mine.trespassAt)
            askWhatIsKnown(product);
        else if (number % 16 == 0)
            askFreely(product);
        return;
    }
    if (number % 16 == 0)
        askWhatIsKnown(product);
    // On the application's thread a handler may make every call.
    int32_t result = 0;
    if (number % 64 == 0)
        (void)MoxelControl(0x74657374, 1, &result);
    if (number == mine.unregisterAt) {
        UnregisterMoxelClient(mine.client);
        ++endedInHandlers;
    }
}
void added(uint32_t device, void *context) {
    auto &mine = *static_cast<Context *>(context);
    ++mine.heard;
    mine.isThreaded ? askFreely(device) : askWhatIsKnown(device);
}
void removed(uint32_t device, void *context) { added(device, context); }

void plainMessage(uint32_t, uint32_t, void *) { ++events; }
void plainDevice(uint32_t) { ++events; }

// ------------------------------------------------------------------------------------------ Calls

void exportSomething(Random &random, uint16_t client) {
    MoxelCommandSyncNode_s action{};
    action.type = kMoxelNodeAction;
    action.id = "save";
    action.label = "Save";
    MoxelCommandSyncNode_s set{};
    set.type = kMoxelNodeActionSet;
    set.id = random.oneIn(2) ? "edit" : "view";
    set.children = &action;
    static const uint8_t picture[] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n', 0, 0, 0, 0};
    MoxelImage_s image{};
    image.type = kMoxelImageData;
    image.id = "save";
    image.image = {picture, sizeof picture, 0};
    std::array<char, 64> buffer{};
    uint64_t length = buffer.size();
    switch (random.below(5)) {
    case 0:
        (void)MoxelClientWriteCommands(client, kMoxelExportTree, 0, &set);
        return;
    case 1:
        (void)MoxelClientWriteImages(client, kMoxelExportImages, &image, 1);
        return;
    case 2:
        (void)MoxelClientSetSettingValue(client, "speed", random.oneIn(2) ? "fast" : "slow");
        return;
    case 3:
        (void)MoxelClientGetSettingValue(client, "speed", buffer.data(), &length);
        return;
    default:
        (void)MoxelClientActivateActionSet(client, set.id);
    }
}

/// Reports that no request is made of, so that they disturb none.
void useTransport(Random &random, uint16_t client) {
    const ClientRegistry::Client owner = CurrentClientViaClientID(client);
    const HIDDeviceReference channel = owner ? owner->m_refHIDChannelDedicated() : nullptr;
    const uint64_t tag = owner ? owner->channelID() : 0;
    const std::array<uint8_t, 32> bytes{};
    std::array<uint8_t, 256> buffer{};
    uint16_t length = buffer.size();
    switch (random.below(8)) {
    case 0:
        (void)SetReport(channel.get(), tag, 0x44, bytes.data(), bytes.size());
        return;
    case 1:
        (void)VDataChannel_SendReportID0_SetReport(channel.get(), tag, bytes.data(), bytes.size());
        return;
    case 2:
        (void)SetStorageDataSlot0(channel.get(), tag, bytes.data(), bytes.size());
        return;
    case 3:
        (void)SetStorageDataSlot1(nullptr, tag, bytes.data(), bytes.size());
        return;
    case 4:
        (void)VDataChannel_SendReportID1_SetReport(channel.get(), tag, nullptr, 38);
        return;
    case 5:
        (void)GetReport(channel.get(), 0x54, buffer.data(), &length);
        return;
    case 6:
        (void)GetStorageDataSlot0(channel.get(), buffer.data(), &length);
        return;
    default: {
        const MoxelAppInfoRecord record{};
        (void)VDataChannel_SetAppInfoRecord(channel.get(), tag, &record);
    }
    }
}

void useSharedObjects(Random &random) {
    const String text("Aa%20b");
    std::free(CFStringCopyUTF8String(&text));
    const Data data(std::span<const uint8_t>(reinterpret_cast<const uint8_t *>("data"), 4));
    if (MoxelDataGetLength(&data) != 4 || MoxelDataGetBytePtr(&data)[0] != 'd')
        std::abort();
    if (const auto store = MxlPlistDictionaries::sharedDefaultDictionaries())
        (void)store->stringUserMappingPath();
    const NotificationSubscription subscription = NotificationCenter::defaultCenter().subscribe(
        "MoxelThreads", nullptr, [](const Notification &) { ++calls; });
    NotificationCenter::defaultCenter().post({"MoxelThreads", nullptr});
    if (random.oneIn(64))
        if (const auto observer = CFileObserver::init()) {
            (void)observer->observeFolder(String(std::filesystem::temp_directory_path().string()));
            fsEvtCallback(nullptr, observer.get(), 0, nullptr, nullptr, nullptr);
            observer->stopObservation();
        }
}

void callSomething(Random &random) {
    ++calls;
    const uint16_t client = random.oneIn(4) ? someClient(random) : uint16_t{0};
    const std::array<uint8_t, 5000> bytes{};
    int32_t result = 0;
    switch (random.below(12)) {
    case 0:
        (void)MoxelControl(random.oneIn(2) ? uint32_t{kMoxelCtlIgnored} : uint32_t{kMoxelCtlGetDeviceID}, 0,
                           &result);
        return;
    case 1:
        (void)MoxelClientControl(client, 0x74657374, 1, &result);
        return;
    case 2:
        return SetMoxelClientMask(client, 0xFFFFFFFF);
    case 3:
        return SetMoxelClientButtonMask(client, 0xFFFF);
    case 4:
        (void)MoxelClientSendMessage(client, 1, bytes.data(), random.below(2000));
        return;
    case 5:
        (void)MoxelClientSendMessage(client, 1, bytes.data(), bytes.size());
        return;
    case 6:
        return exportSomething(random, client);
    case 7:
        return useTransport(random, client);
    case 8:
        return askWhatIsKnown(1);
    case 9:
        return useSharedObjects(random);
    case 10:
        if (random.oneIn(16)) {
            UnregisterMoxelClient(someClient(random)); // Of another thread, whose session this one has then.
            CleanupMoxelHandlers();
        }
        return;
    default:
        (void)MoxelRunLoopDispatch(static_cast<int>(random.below(5)));
    }
}

// ------------------------------------------------------------------------------------------ Sessions

int16_t installSome(Random &random, Context &context) {
    if (random.oneIn(8))
        return InstallMoxelHandlers(plainMessage, plainDevice, plainDevice);
    if (random.oneIn(8))
        return SetMoxelHandlers(plainMessage, plainDevice, plainDevice, context.isThreaded);
    return _SetMoxelHandlers(message, added, removed, &context, context.isThreaded);
}

bool install(Random &random, Context &context, uint32_t unregisterAt) {
    context.heard = 0;
    context.isThreaded = random.oneIn(2);
    context.unregisterAt = unregisterAt;
    context.trespassAt = random.oneIn(16) ? 8 : 0;
    if (installSome(random, context) != kMoxelResultOK)
        return false;
    begunSessions.add();
    return true;
}

uint16_t enroll(size_t place) {
    uint8_t name[] = "\007threads";
    const uint16_t client = RegisterMoxelClient(signature, name, 0, 0xFFFFFFFF);
    knownClients[place] = client;
    sessions += client != 0 ? 1 : 0;
    return client;
}

/// A session in which the thread makes calls of all kinds.
void liveOneSession(Random &random, size_t place) {
    // A handler that another thread still runs may outlive the cleanup by a moment.
    static std::array<std::array<Context, 2>, 64> contexts;
    static thread_local size_t turn = 0;
    Context &context = contexts[place][turn++ % 2];
    if (install(random, context, random.oneIn(2) ? static_cast<uint32_t>(1 + random.below(8)) : 0)) {
        context.client = enroll(place);
        for (uint64_t count = random.below(60); count > 0 && !isOver; --count)
            callSomething(random);
        knownClients[place] = 0;
        UnregisterMoxelClient(0);
    }
    CleanupMoxelHandlers();
}

/// A session whose thread ends without a word, while events go to it; this thread ends the session then.
void abandonOneSession(Random &random, size_t place) {
    static std::array<Context, 64> contexts;
    Context &context = contexts[place];
    uint16_t client = 0;
    std::thread([&] {
        if (install(random, context, 0))
            client = enroll(place);
        context.client = client;
        if (client == 0) {
            UnregisterMoxelClient(0); // A registration that failed stands under 0 for this thread.
            CleanupMoxelHandlers();
        } else {
            (void)MoxelRunLoopDispatch(static_cast<int>(random.below(20)));
        }
    }).join();
    knownClients[place] = 0;
    if (client == 0)
        return;
    UnregisterMoxelClient(client);
    CleanupMoxelHandlers();
}

void work(uint64_t seed, size_t place) {
    Random random(seed, place);
    while (!isOver) {
        if (random.oneIn(6))
            abandonOneSession(random, place);
        else
            liveOneSession(random, place);
    }
    // Another thread may have unregistered a session of this one after its end.
    UnregisterMoxelClient(0);
    CleanupMoxelHandlers();
}

/// Waits until the last session is gone: a message that waits for the main thread keeps its session, and so
/// does the session's own thread where it was in a handler when the session was cleaned up.
size_t awaitSessionsEnd() {
    const Clock::time_point deadline = Clock::now() + std::chrono::seconds(30);
    while (begunSessions.alive() > 0 && Clock::now() < deadline)
        (void)MoxelRunLoopDispatch(10);
    return begunSessions.alive();
}

// ---------------------------------------------------------------------- The daemon's side

/// Sends events of all kinds to everybody until the time is over, and runs the main thread's loop.
void sendUntil(daemon::Daemon &moxeld, Clock::time_point end) {
    int32_t number = 0;
    while (Clock::now() < end) {
        MoxelStateRecord record{};
        record.version = 1;
        record.command = static_cast<uint16_t>(number % 12);
        record.value = number;
        (void)moxeld.sendState(daemon::Daemon::allClients, record);
        const int32_t device = number % 3 + 1;
        if (number % 10 == 0)
            (void)moxeld.sendDictionary(daemon::Daemon::allClients, {{"req", "devadd"}, {"pid", device}});
        if (number % 10 == 5)
            (void)moxeld.sendDictionary(daemon::Daemon::allClients, {{"req", "devrm"}, {"pid", device}});
        if (number % 50 == 20)
            (void)moxeld.sendDictionary(daemon::Daemon::allClients,
                                        {{"req", "uprf"}, {"arg", number}, {"prefs", daemon::Data(152)}});
        if (number % 500 == 300)
            (void)moxeld.requestReRegistration(daemon::Daemon::allClients);
        ++number;
        (void)MoxelRunLoopDispatch(2); // Events for threads that have ended come here.
    }
}

} // namespace

int main(int argumentCount, char **arguments) {
    int seconds = 60;
    size_t threads = 32;
    uint64_t seed = 1;
    CLI::App app("Many threads in every exported function at once.");
    app.add_option("--seconds", seconds)->check(CLI::PositiveNumber)->capture_default_str();
    app.add_option("--threads", threads)
        ->check(CLI::Range(size_t{1}, knownClients.size()))
        ->capture_default_str();
    app.add_option("--seed", seed, "Draws the calls; their interleaving is the machine's")
        ->capture_default_str();
    CLI11_PARSE(app, argumentCount, arguments);

    std::string scratch = (std::filesystem::temp_directory_path() / "moxel-threads-XXXXXX").string();
    if (::mkdtemp(scratch.data()) == nullptr)
        return 2;
    ::setenv("MOXEL_HID_BUS", (scratch + "/bus").c_str(), 1);
    ::setenv("MOXEL_HIDRAW", "off", 1);
    ::setenv("MOXEL_LOG", "off", 0);
    ::setenv("XDG_CONFIG_HOME", (scratch + "/config").c_str(), 1);
    ::setenv("XDG_DATA_DIRS", MOXEL_DATA_FOLDER, 1);
    ::setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent", 1);
    {
        daemon::Options options;
        options.busFolder = scratch + "/bus";
        const auto moxeld = daemon::Daemon::start(std::move(options));
        if (!moxeld.ok()) {
            std::fprintf(stderr, "%s\n", moxeld.error().message.c_str());
            return 2;
        }
        std::vector<std::thread> workers;
        for (size_t place = 0; place < threads; ++place)
            workers.emplace_back(work, seed, place);
        sendUntil(**moxeld, Clock::now() + std::chrono::seconds(seconds));
        isOver = true;
        for (std::thread &worker : workers)
            worker.join();
    }
    const size_t left = awaitSessionsEnd();
    std::filesystem::remove_all(scratch);
    std::printf(
        "%zu threads, %d s: %llu sessions, %llu calls, %llu events, %llu sessions ended in handlers\n",
        threads, seconds, static_cast<unsigned long long>(sessions), static_cast<unsigned long long>(calls),
        static_cast<unsigned long long>(events), static_cast<unsigned long long>(endedInHandlers));
    if (left > 0)
        std::fprintf(stderr, "%zu sessions are left\n", left);
    return sessions > 0 && events > 0 && left == 0 && gClients().size() == 0 && gPendingClients().size() == 0
               ? 0
               : 1;
}
