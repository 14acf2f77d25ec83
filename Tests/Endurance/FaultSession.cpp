#include "Endurance/FaultSession.h"

#include "Endurance/Allocations.h"
#include "Endurance/DaemonProgram.h"
#include "Endurance/FaultPlaces.h"
#include "Endurance/ProcessState.h"
#include "Moxel Daemon/Archive/PlainPropertyList.h"
#include <Moxel/MoxelClient.h>
#include <Moxel/MoxelRunLoop.h>

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <optional>
#include <thread>
#include <unistd.h>

namespace moxel::endurance {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using Fault = FaultPlan::Fault;
using Step = FaultPlan::Step;

constexpr uint32_t signature = 0x4661756C;
/// What a busy machine may add to the stated limit of a call.
constexpr milliseconds grace{500};
/// What a thread that was left to itself may take to end.
constexpr milliseconds patience{10000};
constexpr std::chrono::seconds stopDuration{3};

std::atomic<uint64_t> handledStates{0};

void message(uint32_t, uint32_t type, void *argument) {
    if (type == kMoxelMsgDeviceState && static_cast<const MoxelStateRecord *>(argument)->version > 0)
        ++handledStates;
}
void device(uint32_t) {}

/// Disturbs the daemon after a while, unless the session is over before.
class Disturbance {
  public:
    Disturbance(DaemonProgram &daemon, const FaultPlan &plan) {
        if (plan.fault != Fault::daemonKilled && plan.fault != Fault::daemonStopped)
            return;
        thread_ = std::thread([this, &daemon, kills = plan.fault == Fault::daemonKilled,
                               delay = std::chrono::microseconds(plan.delayMicroseconds)] {
            const Allocations::Exempt exempt;
            if (isOverWithin(delay))
                return;
            daemon.signal(kills ? SIGKILL : SIGSTOP);
            if (kills)
                return;
            (void)isOverWithin(stopDuration);
            daemon.signal(SIGCONT);
        });
    }
    ~Disturbance() {
        {
            const std::lock_guard lock(mutex_);
            isOver_ = true;
        }
        changed_.notify_all();
        if (thread_.joinable())
            thread_.join();
    }
    Disturbance(const Disturbance &) = delete;
    Disturbance &operator=(const Disturbance &) = delete;

  private:
    template <class Duration>
    bool isOverWithin(Duration duration) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, duration, [this] { return isOver_; });
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    bool isOver_ = false;
    std::thread thread_;
};

class FaultSession {
  public:
    FaultSession(const FaultPlan &plan, const FaultSetting &setting)
        : plan_(plan), setting_(setting), places_(setting.scratch + "/config") {}

    FaultOutcome run() {
        prepareEnvironment();
        if (!places_.prepare(plan_.fault)) {
            std::fprintf(stderr, "skipped: %s\n", places_.problem().c_str());
            return FaultOutcome::skipped;
        }
        runCleanly("the session before");
        ProcessState before = ProcessState::now();
        // What is made once and kept is no leak: a leak comes every time.
        constexpr int rounds = 3;
        Allocations::keepOrigins();
        for (int round = 1; isFine_; ++round) {
            Allocations::markOrigins();
            runWithFault();
            runCleanly("the session after");
            checkFiles();
            // The last look is a patient one.
            const ProcessState after =
                ProcessState::atRest(before, patience, round == rounds ? patience : milliseconds(100));
            if (after.threads <= before.threads && after.descriptors <= before.descriptors &&
                after.blocks <= before.blocks)
                break;
            if (round == rounds) {
                complain("something is left each time: before " + before.description() + ", after " +
                         after.description());
                Allocations::writeAddedOrigins(STDERR_FILENO);
            }
            before = after;
        }
        return isFine_ ? FaultOutcome::passed : FaultOutcome::failed;
    }

  private:
    void complain(const std::string &text) {
        std::fprintf(stderr, "COMPLAINT: %s\n", text.c_str());
        isFine_ = false;
    }

    void prepareEnvironment() const {
        const auto set = [](const char *name, const std::string &value) { ::setenv(name, value.c_str(), 1); };
        set("MOXEL_HID_BUS", setting_.scratch + "/bus");
        set("MOXEL_HIDRAW", "off");
        set("MOXEL_LOG", plan_.logs ? "stderr" : "off");
        set("XDG_CONFIG_HOME", setting_.scratch + "/config");
        set("XDG_DATA_DIRS", setting_.resources);
        set("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent");
    }

    /// Has a daemon run with these arguments, the one that runs if it is such a one.
    void needDaemon(const std::vector<std::string> &arguments) {
        if (daemon_ && !daemon_->hasEnded() && arguments == daemonArguments_)
            return;
        daemon_.reset();
        daemon_.emplace(setting_.daemon, setting_.scratch + "/bus", arguments);
        daemonArguments_ = arguments;
        if (!daemon_->hasStarted())
            complain("the daemon does not start");
    }

    /// Calls a function of the library and measures how long it takes.
    template <class Function>
    auto call(const char *name, milliseconds limit, Function &&function) {
        struct Timer {
            FaultSession &session;
            const char *name;
            milliseconds limit;
            Clock::time_point start = Clock::now();
            ~Timer() {
                const auto taken = std::chrono::duration_cast<milliseconds>(Clock::now() - start);
                if (taken > limit + grace)
                    session.complain(std::string(name) + " took " + std::to_string(taken.count()) +
                                     " ms; its limit is " + std::to_string(limit.count()) + " ms");
            }
        };
        const Timer timer{*this, name, limit};
        const Allocations::Tested tested;
        return function();
    }

    int16_t install() {
        return call("SetMoxelHandlers", milliseconds(2000),
                    [this] { return SetMoxelHandlers(message, device, device, plan_.isThreaded); });
    }
    uint16_t enroll() {
        uint8_t name[] = "\006faults";
        return call("RegisterMoxelClient", milliseconds(4500),
                    [&name] { return RegisterMoxelClient(signature, name, 0, 0xFFFFFFFF); });
    }
    void withdraw(uint16_t clientID) {
        call("UnregisterMoxelClient", milliseconds(4000), [clientID] { UnregisterMoxelClient(clientID); });
    }
    void cleanUp() {
        call("CleanupMoxelHandlers", milliseconds(1000), [] { CleanupMoxelHandlers(); });
    }

    // ------------------------------------------------------------------------------------ The calls between

    int16_t exportTree() {
        return call("MoxelClientWriteCommands", milliseconds(2000), [] {
            MoxelCommandSyncNode_s action{};
            action.type = kMoxelNodeAction;
            action.id = "save";
            action.label = "Save";
            MoxelCommandSyncNode_s set{};
            set.type = kMoxelNodeActionSet;
            set.id = "edit";
            set.label = "Edit";
            set.children = &action;
            return MoxelClientWriteCommands(0, kMoxelExportTree, 0, &set);
        });
    }
    int16_t exportImages() {
        return call("MoxelClientWriteImages", milliseconds(2000), [] {
            static const uint8_t picture[] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n', 0, 0, 0, 0};
            MoxelImage_s image{};
            image.type = kMoxelImageData;
            image.id = "save";
            image.image = {picture, sizeof picture, 0};
            return MoxelClientWriteImages(0, kMoxelExportImages, &image, 1);
        });
    }
    int16_t storeSetting(const char *value) {
        return call("MoxelClientSetSettingValue", milliseconds(2000),
                    [value] { return MoxelClientSetSettingValue(0, "speed", value); });
    }
    std::string readSetting() {
        std::array<char, 64> buffer{};
        uint64_t length = buffer.size();
        (void)call("MoxelClientGetSettingValue", milliseconds(0),
                   [&] { return MoxelClientGetSettingValue(0, "speed", buffer.data(), &length); });
        return buffer.data();
    }
    int16_t sendMessage(size_t size) {
        static const std::array<uint8_t, 5000> bytes{};
        const size_t slices = size / 2042 + 1;
        return call("MoxelClientSendMessage", milliseconds(2000 * slices),
                    [size] { return MoxelClientSendMessage(0, 0, bytes.data(), size); });
    }
    int16_t control(uint32_t code) {
        int32_t result = 0;
        return call("MoxelControl", milliseconds(2000),
                    [&result, code] { return MoxelControl(code, 1, &result); });
    }
    void dispatch() {
        // A daemon may ask for another registration, which is done in here.
        (void)call("MoxelRunLoopDispatch", milliseconds(100 + 4500), [] { return MoxelRunLoopDispatch(50); });
    }

    void take(Step step) {
        switch (step) {
        case Step::control:
            (void)control(0x74657374);
            return;
        case Step::deviceID:
            (void)control(kMoxelCtlGetDeviceID);
            return;
        case Step::mask:
            return call("SetMoxelClientMask", milliseconds(2000), [] { SetMoxelClientMask(0, 0x3F); });
        case Step::buttonMask:
            return call("SetMoxelClientButtonMask", milliseconds(2000),
                        [] { SetMoxelClientButtonMask(0, 0xFF); });
        case Step::message:
            (void)sendMessage(100);
            return;
        case Step::longMessage:
            (void)sendMessage(5000);
            return;
        case Step::tree:
            (void)exportTree();
            return;
        case Step::images:
            (void)exportImages();
            return;
        case Step::setting:
            (void)storeSetting("fast");
            return;
        case Step::readSetting:
            (void)readSetting();
            return;
        case Step::actionSet:
            (void)call("MoxelClientActivateActionSet", milliseconds(2000),
                       [] { return MoxelClientActivateActionSet(0, "edit"); });
            return;
        case Step::preferences: {
            MoxelDevicePrefs preferences;
            (void)call("MoxelGetCurrentDevicePrefs", milliseconds(0),
                       [&] { return MoxelGetCurrentDevicePrefs(1, &preferences); });
            return;
        }
        case Step::dispatch:
            return dispatch();
        }
    }

    // ------------------------------------------------------------------------------------ Sessions

    void runWithFault() {
        std::vector<std::string> arguments{"--trace", setting_.trace, "--loop", "--speed", "10"};
        for (const std::string &each : plan_.switches)
            arguments.insert(arguments.end(), {"--fault", each});
        needDaemon(arguments);
        if (!isFine_)
            return;
        places_.spoil(plan_);
        const DescriptorLimit limit(plan_);
        {
            const Disturbance disturbance(*daemon_, plan_);
            if (plan_.fault == Fault::allocation)
                Allocations::failFrom(plan_.firstAllocation, plan_.failedAllocations);
            if (install() == kMoxelResultOK) {
                if (const uint16_t clientID = enroll(); clientID != 0) {
                    for (const Step step : plan_.steps)
                        take(step);
                    withdraw(clientID);
                }
            }
            cleanUp();
            Allocations::failNoMore();
        }
        places_.repair();
        // A call without a result cannot tell that it failed, so the application makes it again.
        limit.lift();
        withdraw(0);
        cleanUp();
    }

    void runCleanly(const char *which) {
        needDaemon({"--movement", "--rate", "300"});
        if (!isFine_)
            return;
        const auto expect = [&](bool isRight, const char *what) {
            if (!isRight)
                complain(std::string(which) + ": " + what);
        };
        // On a busy machine a session may come too late for its limits.
        const auto comesBy = Clock::now() + 3 * patience;
        uint16_t clientID = 0;
        while (clientID == 0 && Clock::now() < comesBy) {
            if (install() == kMoxelResultOK)
                clientID = enroll();
            if (clientID == 0)
                cleanUp();
        }
        expect(clientID != 0, "no registration");
        if (clientID != 0) {
            expect(control(0x74657374) == 0, "a control code is not acknowledged");
            expect(storeSetting("slow") == 0, "a setting is not stored");
            expect(readSetting() == "slow", "a setting is lost");
            expect(exportTree() == 0, "actions are not exported");
            expect(exportImages() == 0, "images are not exported");
            const uint64_t handled = handledStates;
            const auto deadline = Clock::now() + patience;
            while (handledStates == handled && Clock::now() < deadline)
                dispatch();
            expect(handledStates != handled, "no event arrives");
            withdraw(clientID);
        }
        cleanUp();
        // A message that waits for the caller's thread keeps its session.
        while (call("MoxelRunLoopDispatch", milliseconds(100 + 4500),
                    [] { return MoxelRunLoopDispatch(0); }) > 0)
            continue;
    }

    // ------------------------------------------------------------------------------------ Looking

    void checkFiles() {
        for (const auto &entry :
             std::filesystem::recursive_directory_iterator(setting_.scratch + "/config")) {
            if (!entry.is_regular_file())
                continue;
            const std::filesystem::path &path = entry.path();
            if (path.extension() == ".tmp")
                complain(path.string() + " is left over");
            if (path.extension() != ".plist")
                continue;
            std::ifstream file(path, std::ios::binary);
            const std::vector<char> content{std::istreambuf_iterator<char>(file), {}};
            const auto *bytes = reinterpret_cast<const uint8_t *>(content.data());
            if (const auto list = daemon::readPropertyList({bytes, content.size()}); !list.ok())
                complain(path.string() + " is not whole: " + list.error().message);
        }
    }

    const FaultPlan &plan_;
    const FaultSetting &setting_;
    FaultPlaces places_;
    bool isFine_ = true;
    std::optional<DaemonProgram> daemon_;
    std::vector<std::string> daemonArguments_;
};

} // namespace

FaultOutcome runFaultSession(const FaultPlan &plan, const FaultSetting &setting) {
    const Allocations::Exempt exempt;
    return FaultSession(plan, setting).run();
}

} // namespace moxel::endurance
