// "moxelctl settings": stores and reads single settings.
#include "ClientSession.h"
#include "Commands.h"
#include "Complaint.h"
#include "DriverLog.h"
#include "ExitCode.h"
#include "ExportedApplication.h"
#include "Output.h"

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace moxel::tool {

namespace {

using Json = nlohmann::ordered_json;

/// Longest value that is read.
constexpr size_t valueLimit = size_t{1} << 20;

class SettingsCommand final : public Command {
  public:
    SettingsCommand() : Command("settings", "Store or read a setting") {}

    int run() override {
        if (!hasStore())
            return failure;
        ClientSession session;
        if (const int code = session.begin(noHandlers(), name_); code != success)
            return code;
        return get_->parsed() ? get(session.clientID()) : set(session.clientID());
    }

  private:
    void describe(CLI::App &command) override {
        command.require_subcommand(1);
        get_ = command.add_subcommand("get", "Print a setting's value");
        CLI::App *set = command.add_subcommand("set", "Store a setting");
        get_->add_option("NAME", setting_, "Name of the setting")->required()->type_name("");
        set->add_option("NAME", setting_, "Name of the setting")->required()->type_name("");
        set->add_option("VALUE", value_, "Its new value")->required()->type_name("");
        get_->add_flag("--json", json_, "Print one JSON object");
        for (CLI::App *action : {get_, set})
            action->add_option("--name", name_, "Register under this name, whose settings these are")
                ->type_name("NAME")
                ->capture_default_str();
        command.footer(
            R"(
Settings belong to this program under the name that it registers with. A setting that was never
set reads as (null).

Examples:
  moxelctl settings set speed fast
  moxelctl settings get speed)");
    }

    [[nodiscard]] int set(uint16_t clientID) const {
        const DriverLog log;
        if (MoxelClientSetSettingValue(clientID, setting_.c_str(), value_.c_str()) != kMoxelResultOK) {
            complain("the setting cannot be stored: " +
                     (log.lastError().empty() ? "the file cannot be written" : log.lastError()));
            return failure;
        }
        if (log.lastError().empty())
            return success;
        complain("the setting is stored, but the driver did not take it: " + log.lastError());
        return noAnswer;
    }

    [[nodiscard]] std::string jsonText(const char *value) const {
        return Json{{"name", setting_}, {"value", value}}.dump(-1, ' ', false,
                                                               Json::error_handler_t::replace) +
               "\n";
    }

    [[nodiscard]] int get(uint16_t clientID) const {
        std::vector<char> buffer(valueLimit);
        uint64_t length = buffer.size();
        if (MoxelClientGetSettingValue(clientID, setting_.c_str(), buffer.data(), &length) == kMoxelResultOK)
            return printResult(json_ ? jsonText(buffer.data()) : std::string(buffer.data()) + "\n");
        complain("no setting has been stored under the name \"" + name_ + "\"",
                 "\"moxelctl settings set\" stores one.");
        return failure;
    }

    CLI::App *get_ = nullptr;
    std::string name_ = "moxelctl";
    std::string setting_;
    std::string value_;
    bool json_ = false;
};

} // namespace

std::unique_ptr<Command> makeSettingsCommand() { return std::make_unique<SettingsCommand>(); }

} // namespace moxel::tool
