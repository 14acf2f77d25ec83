#include "DriverDiagnosis.h"

#include "Complaint.h"
#include "Values/Format.h"
#include <Moxel/MoxelClient.h>

#include <algorithm>

namespace moxel::tool {

namespace {

Finding findingOfBaseChannel(const SurveyedDevice &channel) {
    const std::string name = "the channel " + channel.place;
    switch (channel.state) {
    case SurveyedDevice::State::stale:
        return {name + " is dead: " + channel.problem, "Start the driver (moxeld) again."};
    case SurveyedDevice::State::untrusted:
        return {name + " is not used: " + channel.problem,
                "Run the driver as this user or as root, or this program as the driver's user."};
    case SurveyedDevice::State::ready:
        return {"the driver does not let this program open its channel " + channel.name, restartDriver};
    case SurveyedDevice::State::unreachable:
        return {name + " cannot be used: " + channel.problem, "Give this user the right to use it."};
    default:
        return {name + " does not work: " + channel.problem, "The driver hangs: stop it and start it again."};
    }
}

} // namespace

Finding findingOfBus(const SurveyedBus &bus) {
    const std::string problem = "the bus folder " + bus.place + " is not used: " + bus.problem;
    switch (bus.state) {
    case SurveyedBus::State::missing:
        return {
            "there is no bus folder " + bus.place,
            "Start the driver (moxeld). If it runs already, set MOXEL_HID_BUS to the folder that it uses."};
    case SurveyedBus::State::untrusted:
        return {problem, "Make it yours alone:\n"
                         "  chown \"$(id -u)\" " +
                             bus.place + " && chmod go-w " + bus.place +
                             "\n"
                             "or set MOXEL_HID_BUS to another folder, for the driver and for this program."};
    default:
        return {problem,
                "Set MOXEL_HID_BUS to a folder that you may read, for the driver and for this program."};
    }
}

Finding findingOfDevices(const SurveyedBus &bus) {
    const std::string wanted = baseChannelName();
    const auto isWanted = [&wanted](const SurveyedDevice &device) {
        return device.name == wanted || device.place.ends_with("/" + wanted + ".hid");
    };
    if (const auto found = std::ranges::find_if(bus.devices, isWanted); found != bus.devices.end())
        return findingOfBaseChannel(*found);
    if (bus.devices.empty())
        return {"the bus folder " + bus.place + " is empty", "Start the driver (moxeld)."};
    return {format("the bus folder %s holds no channel %s, the one for user %u, who is on the console",
                   bus.place, wanted, MoxelGetSessionUserID()),
            "\"moxelctl list\" shows what it holds. Start the driver for that user:\n" +
                format("  moxeld --user %u", MoxelGetSessionUserID())};
}

std::string baseChannelName() { return format("MxlVirtualHIDData_Base%08X", MoxelGetSessionUserID()); }

void explainMissingDriver() {
    for (const SurveyedBus &bus : surveyHIDBuses(kMoxelVendorID)) {
        const Finding finding =
            bus.state == SurveyedBus::State::usable ? findingOfDevices(bus) : findingOfBus(bus);
        complain("no driver answers: " + finding.problem, finding.remedy);
    }
}

} // namespace moxel::tool
