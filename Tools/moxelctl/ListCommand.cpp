// "moxelctl list": what stands on the buses, whose it is, and whether it works.
#include "Commands.h"
#include "Complaint.h"
#include "DriverDiagnosis.h"
#include "ExitCode.h"
#include "Number.h"
#include "Output.h"
#include "Platform/HIDSurvey.h"
#include "Platform/LogText.h"
#include "Values/Format.h"
#include <Moxel/MoxelClient.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <nlohmann/json.hpp>

namespace moxel::tool {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::string_view basePrefix = "MxlVirtualHIDData_Base";
constexpr std::string_view dedicatedPrefix = "MxlVirtualHIDData_ID";

const char *stateName(SurveyedDevice::State state) {
    constexpr const char *names[] = {"ready", "silent", "stale", "untrusted", "malformed", "unreachable"};
    return names[static_cast<size_t>(state)];
}

const char *stateName(SurveyedBus::State state) {
    constexpr const char *names[] = {"usable", "missing", "untrusted", "unreadable"};
    return names[static_cast<size_t>(state)];
}

/// What kind of channel a name tells of.
struct Channel {
    enum class Kind { base, dedicated, other } kind = Kind::other;
    int64_t number = 0; ///< User identifier of a base channel, channel identifier of a dedicated one.

    explicit Channel(const std::string &name) {
        for (const auto &[prefix, candidate] :
             {std::pair(basePrefix, Kind::base), std::pair(dedicatedPrefix, Kind::dedicated)}) {
            if (!name.starts_with(prefix))
                continue;
            if (const auto found = numberFromText("0x" + name.substr(prefix.size()), 0,
                                                  std::numeric_limits<int64_t>::max())) {
                kind = candidate;
                number = *found;
            }
        }
    }
};

const char *kindName(Channel::Kind kind) {
    constexpr const char *names[] = {"base", "dedicated", "other"};
    return names[static_cast<size_t>(kind)];
}

/// A client makes its channel identifier from the time: milliseconds since 1970.
std::string timeText(int64_t milliseconds) {
    const auto seconds = static_cast<time_t>(milliseconds / 1000);
    std::tm parts{};
    std::array<char, 32> text{};
    if (::localtime_r(&seconds, &parts) == nullptr ||
        std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &parts) == 0)
        return "at an unknown time";
    return text.data();
}

std::string roleText(const Channel &channel) {
    switch (channel.kind) {
    case Channel::Kind::base:
        return format("base channel for user %lld", channel.number);
    case Channel::Kind::dedicated:
        return "channel of a client, made " + timeText(channel.number);
    default:
        return "not a channel of the driver";
    }
}

std::string ownerText(const SurveyedDevice &device) {
    std::string text = device.user ? format("user %u", *device.user) : "unknown";
    if (device.process)
        text += format(", process %d", *device.process);
    if (!device.program.empty())
        text += " (" + printableText(device.program) + ")";
    return text;
}

std::string stateText(const SurveyedDevice &device) {
    return stateName(device.state) + (device.problem.empty() ? "" : ": " + printableText(device.problem));
}

std::string deviceText(const SurveyedDevice &device) {
    const std::string name =
        device.name.empty() ? device.place.substr(device.place.rfind('/') + 1) : device.name;
    std::string text = "  " + printableText(name) + "\n";
    if (!device.name.empty())
        text += "    is       " + roleText(Channel(device.name)) + "\n";
    text += "    owner    " + ownerText(device) + "\n";
    text += "    state    " + stateText(device) + "\n";
    return text;
}

std::string busText(const SurveyedBus &bus) {
    std::string text = "bus " + printableText(bus.place);
    if (!bus.problem.empty())
        return text + ": " + printableText(bus.problem) + "\n";
    text += bus.devices.empty() ? ": empty\n" : "\n";
    for (const SurveyedDevice &device : bus.devices)
        text += deviceText(device);
    if (bus.unseenDevices > 0)
        text += format("  ... and %zu more\n", bus.unseenDevices);
    return text;
}

Json deviceJson(const SurveyedDevice &device) {
    const Channel channel(device.name);
    Json object{{"place", device.place},
                {"name", device.name},
                {"kind", kindName(channel.kind)},
                {"state", stateName(device.state)},
                {"problem", device.problem}};
    if (channel.kind == Channel::Kind::base)
        object["forUser"] = channel.number;
    if (channel.kind == Channel::Kind::dedicated)
        object["channel"] = channel.number;
    object["user"] = device.user ? Json(*device.user) : Json();
    object["process"] = device.process ? Json(*device.process) : Json();
    object["program"] = device.program;
    object["manufacturer"] = device.manufacturer;
    object["product"] = device.product;
    object["serialNumber"] = device.serialNumber;
    object["vendorID"] = device.vendorID;
    object["productID"] = device.productID;
    return object;
}

Json busJson(const SurveyedBus &bus) {
    Json devices = Json::array();
    for (const SurveyedDevice &device : bus.devices)
        devices.push_back(deviceJson(device));
    return {{"place", bus.place},
            {"state", stateName(bus.state)},
            {"problem", bus.problem},
            {"devices", std::move(devices)},
            {"unseenDevices", bus.unseenDevices}};
}

/// Whether a session of this user would find its driver.
bool hasDriver(const std::vector<SurveyedBus> &buses) {
    return std::ranges::any_of(buses, [](const SurveyedBus &bus) {
        return std::ranges::any_of(bus.devices, [](const SurveyedDevice &device) {
            return device.state == SurveyedDevice::State::ready && device.name == baseChannelName();
        });
    });
}

class ListCommand final : public Command {
  public:
    ListCommand() : Command("list", "Show the channels on the buses, their owners and states") {}

    int run() override {
        const std::vector<SurveyedBus> buses = surveyHIDBuses(kMoxelVendorID);
        std::string text;
        Json list = Json::array();
        for (const SurveyedBus &bus : buses) {
            text += busText(bus);
            list.push_back(busJson(bus));
        }
        if (json_)
            text =
                Json{{"buses", std::move(list)}}.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
        if (const int code = printResult(text); code != success)
            return code;
        if (hasDriver(buses))
            return success;
        explainMissingDriver();
        return noDriver;
    }

  private:
    void describe(CLI::App &command) override {
        command.add_flag("--json", json_, "Print one JSON object");
        command.footer(
            "\nStates of a channel: ready (it answers), silent (it accepts connections and does not "
            "answer),\n"
            "stale (left behind by a publisher that is gone), untrusted (its publisher is neither root nor\n"
            "this user), malformed (it breaks the rules of the bus), unreachable.\n"
            "\n"
            "Succeeds when there is a base channel for this session that is ready; exit code 3 otherwise.\n"
            "\n"
            "Examples:\n"
            "  moxelctl list\n"
            "  moxelctl list --json | jq '.buses[].devices[] | select(.state != \"ready\")'");
    }

    bool json_ = false;
};

} // namespace

std::unique_ptr<Command> makeListCommand() { return std::make_unique<ListCommand>(); }

} // namespace moxel::tool
