// The driver of an application's own tests: a daemon inside the test's process, which does what the test
// says.
#pragma once

#include "Platform/Result.h"
#include <Moxel/MoxelBase.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace moxel {

/// An action of an exported set.
struct TestAction {
    std::string identifier; ///< As the application gave it.
    std::string label;      ///< Text shown to the user.
};

/// An application as the daemon knows it.
struct TestClient {
    uint16_t clientID = 0;           ///< What RegisterMoxelClient returned.
    std::string name;                ///< As it was given to RegisterMoxelClient.
    uint32_t signature = 0;          ///< Likewise.
    uint16_t mode = 0;               ///< Likewise.
    uint32_t eventMask = 0;          ///< The one that holds now.
    uint32_t buttonMask = 0;         ///< The one that holds now, one bit a button.
    std::string activeActionSet;     ///< Its identifier; empty while there is none.
    std::vector<TestAction> actions; ///< Of that set; the first one stands on button 1.
    size_t imageCount = 0;           ///< Images that it has exported.
    size_t settingCount = 0;         ///< Settings that it has stored.
};

/// A control code that an application sent.
struct TestControl {
    uint16_t clientID = 0; ///< Who sent it.
    uint32_t code = 0;     ///< Four characters, the first one in the most significant byte.
    int32_t parameter = 0; ///< What was sent with the code.
};

/// How a daemon is started.
struct TestDaemonOptions {
    /// What it does wrong from the start; see TestDaemon::addFault().
    std::vector<std::string> faults;
    /// The user whose base channel it publishes; by default whoever is on the console.
    std::optional<uint32_t> user;
};

/// Serves the sessions of this process, on a bus of its own: needs no hardware and no rights, and neither
/// sees nor disturbs another daemon of the machine.
///
/// While it lives, MOXEL_HID_BUS, MOXEL_HIDRAW and XDG_CONFIG_HOME lead to a temporary folder. So make it
/// before the application's sessions, on the main thread, while no other thread looks at the environment; one
/// at a time. What applications export lies in that folder, which is removed when the process ends.
///
/// All members may be called from any thread, but one at a time. Those that wait return as soon as what they
/// wait for is there.
class MOXEL_EXPORT TestDaemon {
  public:
    /// How long something may take.
    using Timeout = std::chrono::milliseconds;

    /// Returns when sessions can be opened. Fails when there is a daemon in this process already, or the
    /// system lacks something; the error says what.
    [[nodiscard]] static Result<std::unique_ptr<TestDaemon>> start(const TestDaemonOptions &options = {});
    ~TestDaemon();
    TestDaemon(const TestDaemon &) = delete;
    TestDaemon &operator=(const TestDaemon &) = delete;

    /// Where applications' exports lie, a folder for each.
    [[nodiscard]] const std::string &exportFolder() const noexcept;

    // ---------------------------------------------------------------------------------- What happens

    /// Moves the cap: translation x, y, z, then rotation x, y, z, 350 at full deflection. Registered clients
    /// whose event masks want it get a state record. Ends what play() began.
    void motion(const std::array<int16_t, 6> &axes);
    /// Exactly these buttons are down now, one bit each. Clients also get the application events of the
    /// actions that stand on the buttons. Ends what play() began.
    void buttons(uint32_t mask);
    /// Plays a trace, in the form that Documentation/Traces.md describes, in its own time; what was played
    /// before ends. What happens while no client is registered is lost. The error names the line that is
    /// wrong, and nothing is played then.
    [[nodiscard]] Result<void> play(std::string_view trace);
    /// The same with a file of at most 16 MiB.
    [[nodiscard]] Result<void> playFile(const std::string &path);
    /// False when the time is up before the trace.
    [[nodiscard]] bool waitUntilPlayed(Timeout timeout) const;

    // ---------------------------------------------------------------------------------- What goes wrong

    /// Does something wrong from now on, such as "no-acknowledgement" or "late-registration-answer=250";
    /// `moxeld --help` lists what there is. The error lists it too.
    [[nodiscard]] Result<void> addFault(std::string_view fault);
    /// Does everything right from now on.
    void removeFaults();
    /// The driver is gone, as after a crash.
    void stop();
    /// It is there again, and remembers no client. Its faults are those that it had.
    [[nodiscard]] Result<void> startAgain();

    // ---------------------------------------------------------------------------------- What applications do

    /// Registered clients, in the order in which they came; none while the daemon is stopped.
    [[nodiscard]] std::vector<TestClient> clients() const;
    /// The first registered client; absent when the time is up before there is one.
    [[nodiscard]] std::optional<TestClient> waitForClient(Timeout timeout) const;
    /// False when the time is up before the predicate holds, which must not call the daemon.
    [[nodiscard]] bool waitUntil(const std::function<bool(const std::vector<TestClient> &)> &holds,
                                 Timeout timeout) const;
    /// The first control code of that number that an application sent; absent when the time is up.
    [[nodiscard]] std::optional<TestControl> waitForControl(uint32_t code, Timeout timeout) const;
    /// The bytes of the first message that an application sent whole; absent when the time is up.
    [[nodiscard]] std::optional<std::vector<uint8_t>> waitForMessage(Timeout timeout) const;

  private:
    class MOXEL_HIDDEN Implementation;
    MOXEL_HIDDEN explicit TestDaemon(std::unique_ptr<Implementation> implementation);

    std::unique_ptr<Implementation> implementation_;
};

} // namespace moxel
