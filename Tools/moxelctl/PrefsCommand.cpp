// "moxelctl prefs": shows the device preferences that the driver sends.
#include "ClientSession.h"
#include "Commands.h"
#include "Complaint.h"
#include "DevicePreferences.h"
#include "EventLoop.h"
#include "ExitCode.h"
#include "HexDump.h"
#include "Number.h"
#include "Output.h"
#include "Values/Format.h"

#include <nlohmann/json.hpp>

namespace moxel::tool {

namespace {

std::string textOf(const MoxelDevicePrefs &preferences) {
    return format("device    0x%08X\n", preferences.deviceID) + "header    " + spacedHex(preferences.header) +
           format("\nsettings  %zu bytes\n", sizeof preferences.settings) +
           hexDump(preferences.settings, "  ");
}

std::string jsonOf(const MoxelDevicePrefs &preferences) {
    const nlohmann::ordered_json object{{"device", preferences.deviceID},
                                        {"header", plainHex(preferences.header)},
                                        {"settings", plainHex(preferences.settings)}};
    return object.dump() + "\n";
}

class PrefsCommand final : public Command {
  public:
    PrefsCommand() : Command("prefs", "Show the device preferences that the driver sends") {}

    int run() override {
        EventLoop loop;
        ClientSession session;
        if (const int code = session.begin(handlers(), "moxelctl"); code != success)
            return code;
        std::optional<MoxelDevicePrefs> preferences;
        const EventLoop::End end = loop.run({.seconds = seconds_, .isDone = [&] {
                                                 preferences = wasTold_ ? current() : std::nullopt;
                                                 return preferences.has_value();
                                             }});
        if (preferences)
            return printResult(json_ ? jsonOf(*preferences) : textOf(*preferences));
        return explain(end);
    }

  private:
    void describe(CLI::App &command) override {
        deviceOption_ = command
                            .add_option_function<std::string>(
                                "--device",
                                [this](const std::string &text) {
                                    const std::optional<int64_t> number = numberFromText(text, 0, 0xFFFFFFFF);
                                    if (!number)
                                        throw CLI::ValidationError(
                                            "--device", "\"" + text + "\" is no number of 32 bits");
                                    device_ = static_cast<uint32_t>(*number);
                                },
                                "Identifier of the device (default: any that the driver has named)")
                            ->type_name("ID");
        command.add_option("--seconds", seconds_, "Wait so long for the driver to send them")
            ->check(CLI::Range(0.0, 1e9))
            ->type_name("N")
            ->capture_default_str();
        command.add_flag("--json", json_, "Print one JSON object");
        command.footer(
            R"(
The driver sends preferences when a client registers and when they change. What the bytes
mean beyond the device's identifier is the driver's.

Examples:
  moxelctl prefs
  moxelctl prefs --device 0x4D580001 --json
  moxelctl prefs --seconds 60
      wait for a change)");
    }

    Handlers handlers() {
        return {[](uint32_t, uint32_t message, void *, void *context) {
                    auto &command = *static_cast<PrefsCommand *>(context);
                    command.wasTold_ = command.wasTold_ || message == kMoxelMsgPrefsChanged;
                },
                [](uint32_t deviceID, void *context) {
                    static_cast<PrefsCommand *>(context)->known_.add(deviceID);
                },
                [](uint32_t, void *) {}, this};
    }

    [[nodiscard]] std::optional<MoxelDevicePrefs> current() const {
        if (deviceOption_->empty())
            return known_.latest();
        MoxelDevicePrefs preferences;
        return MoxelGetCurrentDevicePrefs(device_, &preferences) == kMoxelResultOK
                   ? std::optional(preferences)
                   : std::nullopt;
    }

    [[nodiscard]] int explain(EventLoop::End end) const {
        if (end == EventLoop::End::driverLeft) {
            complain("the driver went away before it sent preferences", "Start it (moxeld) again.");
            return noDriver;
        }
        if (wasTold_)
            complain("the driver sent preferences of another device",
                     deviceOption_->empty()
                         ? "Name the device with --device; \"moxelctl monitor\" shows devices that arrive."
                         : "Leave out --device to see those of the device that the driver has named.");
        else
            complain("the driver sent no preferences",
                     "Wait longer with --seconds, and change a preference meanwhile.");
        return failure;
    }

    DevicePreferences known_;
    const CLI::Option *deviceOption_ = nullptr;
    uint32_t device_ = 0;
    double seconds_ = 2;
    bool json_ = false;
    bool wasTold_ = false;
};

} // namespace

std::unique_ptr<Command> makePrefsCommand() { return std::make_unique<PrefsCommand>(); }

} // namespace moxel::tool
