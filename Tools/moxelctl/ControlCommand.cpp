// "moxelctl control": sends the driver a control code.
#include "ClientSession.h"
#include "Commands.h"
#include "Complaint.h"
#include "ControlCode.h"
#include "DriverLog.h"
#include "EventLoop.h"
#include "ExitCode.h"
#include "Number.h"
#include "Output.h"
#include "Values/Format.h"

#include <nlohmann/json.hpp>

namespace moxel::tool {

namespace {

class ControlCommand final : public Command {
  public:
    ControlCommand() : Command("control", "Send the driver a control code") {}

    int run() override {
        EventLoop loop;
        ClientSession session;
        if (const int code = session.begin(noHandlers(), "moxelctl"); code != success)
            return code;
        const DriverLog log;
        int32_t value = 0;
        int16_t result = MoxelControl(code_, parameter_, &value);
        if (code_ == kMoxelCtlGetDeviceID && seconds_ > 0) {
            awaitDevice(loop);
            result = MoxelControl(code_, parameter_, &value);
        }
        if (result == kMoxelResultOK)
            return printResult(json_ ? jsonResult(value) : textResult(value));
        complain("the driver does not acknowledge \"" + textFromControlCode(code_) + "\": " + log.lastError(),
                 "It may not know the code, or hang: \"moxelctl list\" shows whether it answers.");
        return noAnswer;
    }

  private:
    void describe(CLI::App &command) override {
        command
            .add_option_function<std::string>(
                "CODE",
                [this](const std::string &text) {
                    const std::optional<uint32_t> code = controlCodeFromText(text);
                    if (!code)
                        throw CLI::ValidationError("CODE", "\"" + text +
                                                               "\" is neither four characters nor a number");
                    code_ = *code;
                },
                "Four characters, or a number: 0x6D766964")
            ->required()
            ->type_name("");
        command
            .add_option_function<std::string>(
                "PARAM",
                [this](const std::string &text) {
                    const std::optional<int64_t> number = numberFromText(text, -0x80000000LL, 0xFFFFFFFFLL);
                    if (!number)
                        throw CLI::ValidationError("PARAM", "\"" + text + "\" is no number of 32 bits");
                    parameter_ = static_cast<int32_t>(static_cast<uint32_t>(*number));
                },
                "Parameter, 32 bits (default: 0); a negative one stands behind \"--\"")
            ->type_name("");
        command
            .add_option("--wait", seconds_,
                        "For mvid: wait up to so many seconds for the driver to name a device")
            ->check(CLI::Range(0.0, 3600.0))
            ->type_name("N");
        command.add_flag("--json", json_, "Print one JSON object");
        command.footer(
            R"(
The library answers mvid itself (the current device: vendor and product identifier, or
0x4D580001 while the driver has not named one) and ignores mveh. Every other code goes to
the driver, which acknowledges it and returns nothing.

Examples:
  moxelctl control mvid
  moxelctl control mvid --wait 2 --json
  moxelctl control mvxx 0x10
  moxelctl control mvxx -- -1)");
    }

    /// Nothing is delivered when the driver names a device, so it has to be looked for.
    void awaitDevice(EventLoop &loop) const {
        constexpr int milliseconds = 20;
        int32_t value = 0;
        const auto isNamed = [&] {
            return MoxelControl(kMoxelCtlGetDeviceID, 0, &value) == kMoxelResultOK &&
                   value != kMoxelDefaultDeviceID;
        };
        (void)loop.run({.seconds = seconds_, .isDone = isNamed, .refresh = [] { return milliseconds; }});
    }

    [[nodiscard]] std::string textResult(int32_t value) const {
        if (code_ == kMoxelCtlGetDeviceID)
            return format("device 0x%08X (vendor 0x%04X, product 0x%04X)\n", value, vendorOf(value),
                          productOf(value));
        if (code_ == kMoxelCtlIgnored)
            return "mveh: ignored by the library\n";
        return format("%s %d: acknowledged\n", textFromControlCode(code_), parameter_);
    }

    [[nodiscard]] std::string jsonResult(int32_t value) const {
        nlohmann::ordered_json object{
            {"code", textFromControlCode(code_)}, {"number", code_}, {"param", parameter_}};
        if (code_ == kMoxelCtlGetDeviceID) {
            object["device"] = static_cast<uint32_t>(value);
            object["vendor"] = vendorOf(value);
            object["product"] = productOf(value);
        }
        return object.dump() + "\n";
    }

    static uint32_t vendorOf(int32_t device) { return static_cast<uint32_t>(device) >> 16; }
    static uint32_t productOf(int32_t device) { return static_cast<uint32_t>(device) & 0xFFFF; }

    uint32_t code_ = 0;
    int32_t parameter_ = 0;
    double seconds_ = 0;
    bool json_ = false;
};

} // namespace

std::unique_ptr<Command> makeControlCommand() { return std::make_unique<ControlCommand>(); }

} // namespace moxel::tool
