// "moxelctl export": hands the driver commands, and shows them when they come back.
#include "ActionTree.h"
#include "ClientSession.h"
#include "Commands.h"
#include "Complaint.h"
#include "DriverLog.h"
#include "EventLoop.h"
#include "EventMask.h"
#include "ExitCode.h"
#include "ExportedApplication.h"
#include "InputFile.h"
#include "Output.h"
#include "QuotedText.h"
#include "Values/Format.h"

#include <nlohmann/json.hpp>

#include <cstdio>
#include <cstring>

namespace moxel::tool {

namespace {

class ExportCommand final : public Command {
  public:
    ExportCommand() : Command("export", "Hand the driver commands, and show them when they are pressed") {}

    int run() override {
        const Result<std::vector<uint8_t>> content = readInput(path_);
        if (!content.ok()) {
            complain(content.error().message);
            return failure;
        }
        const Result<ActionTree> tree = ActionTree::read(*content);
        if (!tree.ok()) {
            complain(inputName(path_) + ": " + tree.error().message,
                     "\"moxelctl export --help\" shows the form.");
            return failure;
        }
        if (!hasStore())
            return failure;
        EventLoop loop;
        ClientSession session;
        if (const int code = session.begin(handlers(), name_, everything); code != success)
            return code;
        if (const int code = exportAll(session.clientID(), *tree); code != success)
            return code;
        actions_ = tree->activeActions();
        if (const int code = tellExported(*tree); code != success || !watches())
            return code;
        return watch(loop);
    }

  private:
    void describe(CLI::App &command) override {
        command.add_option("FILE", path_, "File that describes them; - is standard input")
            ->required()
            ->type_name("");
        command.add_option("--name", name_, "Register under this name")
            ->type_name("NAME")
            ->capture_default_str();
        command.add_flag("--watch", watches_, "Stay and show actions that are pressed and released");
        command.add_option("--count", count_, "Watch until so many were pressed")
            ->check(CLI::PositiveNumber)
            ->type_name("N");
        command.add_option("--seconds", seconds_, "Watch so long at most")
            ->check(CLI::Range(0.0, 1e9))
            ->type_name("N");
        command.add_flag("--json", json_, "Print JSON objects, one a line");
        command.footer(
            R"(
The file is JSON or a property list of the same form: action sets, of which one is active, and
settings. What has children inside a set is a category. All but "sets" and "id" may be left
out.

  {"sets": [{"id": "edit", "label": "Editing", "children": [
     {"id": "copy", "label": "Copy", "description": "Copies", "image": "/icons/copy.png"},
     {"id": "more", "label": "More", "children": [{"id": "cut", "label": "Cut"}]}]}],
   "active": "edit",
   "settings": {"speed": "fast"}}

The reference driver puts the actions of the active set on the buttons in their order, those of
a category where the category stands: here Copy on the first button and Cut on the second.

With --count or --seconds the exit code is 1 when fewer than --count, or none, were pressed.

Examples:
  moxelctl export Examples/exporting.json
  moxelctl export Examples/exporting.json --watch
      show actions until Ctrl-C
  moxelctl export commands.plist --count 1 --seconds 60
      wait for a button)");
    }

    [[nodiscard]] bool watches() const { return watches_ || count_ || seconds_; }

    Handlers handlers() {
        return {[](uint32_t, uint32_t message, void *argument, void *context) {
                    if (message == kMoxelMsgDeviceState)
                        static_cast<ExportCommand *>(context)->take(argument);
                },
                [](uint32_t, void *) {}, [](uint32_t, void *) {}, this};
    }

    // ------------------------------------------------------------------------------------------ Exporting

    [[nodiscard]] static int exportAll(uint16_t clientID, const ActionTree &tree) {
        const DriverLog log;
        const auto check = [&log](int16_t result, const char *what) -> int {
            if (result == kMoxelResultOK)
                return success;
            const std::string error = log.lastError();
            const bool isUnanswered = error.starts_with("Timeout");
            complain(std::string(isUnanswered ? "the driver did not take the " : "cannot export the ") +
                         what + ": " + (error.empty() ? "the file cannot be written" : error),
                     "MOXEL_LOG=stderr shows each step.");
            return isUnanswered ? noAnswer : failure;
        };
        int code = check(MoxelClientWriteCommands(clientID, kMoxelExportTree, 0, tree.sets()), "commands");
        if (code == success && !tree.images().empty())
            code = check(MoxelClientWriteImages(clientID, kMoxelExportImages, tree.images().data(),
                                                tree.images().size()),
                         "images");
        for (const auto &[name, value] : tree.settings())
            if (code == success)
                code = check(MoxelClientSetSettingValue(clientID, name.c_str(), value.c_str()), "settings");
        return code == success
                   ? check(MoxelClientActivateActionSet(clientID, tree.activeSet().c_str()), "active set")
                   : code;
    }

    [[nodiscard]] int tellExported(const ActionTree &tree) const {
        if (json_)
            return printResult(nlohmann::ordered_json{{"sets", tree.setCount()},
                                                      {"actions", tree.actionCount()},
                                                      {"images", tree.images().size()},
                                                      {"settings", tree.settings().size()},
                                                      {"active", tree.activeSet()}}
                                   .dump() +
                               "\n");
        return printResult(format("exported %zu sets, %zu actions, %zu images, %zu settings; %s is active\n",
                                  tree.setCount(), tree.actionCount(), tree.images().size(),
                                  tree.settings().size(), quotedText(tree.activeSet())));
    }

    // ------------------------------------------------------------------------------------------ Watching

    [[nodiscard]] int watch(EventLoop &loop) {
        const EventLoop::End end =
            loop.run({.seconds = seconds_, .isDone = [this] { return count_ && pressed_ >= *count_; }});
        if (end == EventLoop::End::driverLeft) {
            complain("the driver went away", "Start it (moxeld) and then this program again.");
            return noDriver;
        }
        if (end != EventLoop::End::timeIsUp || (!count_ && pressed_ > 0))
            return success;
        complain(format("only %zu actions were pressed", pressed_),
                 "An action is on a button when its set is active and the button exists.");
        return failure;
    }

    void take(const void *argument) {
        MoxelStateRecord record;
        std::memcpy(&record, argument, sizeof record);
        const auto number = static_cast<size_t>(record.param);
        if (record.command != kMoxelStateApplicationEvent || number < 1 || number > actions_.size() ||
            (count_ && pressed_ >= *count_))
            return;
        const NumberedAction &action = actions_[number - 1];
        const bool isPressed = record.appEventPressed != 0;
        pressed_ += isPressed ? 1 : 0;
        if (json_)
            std::printf("{\"action\": %s, \"label\": %s, \"pressed\": %s}\n",
                        quotedText(action.identifier).c_str(), quotedText(action.label).c_str(),
                        isPressed ? "true" : "false");
        else
            std::printf("%s %s (%s)\n", isPressed ? "pressed " : "released", quotedText(action.label).c_str(),
                        quotedText(action.identifier).c_str());
    }

    std::string path_;
    std::string name_ = "moxelctl";
    std::optional<size_t> count_;
    std::optional<double> seconds_;
    bool watches_ = false;
    bool json_ = false;
    std::vector<NumberedAction> actions_;
    size_t pressed_ = 0;
};

} // namespace

std::unique_ptr<Command> makeExportCommand() { return std::make_unique<ExportCommand>(); }

} // namespace moxel::tool
