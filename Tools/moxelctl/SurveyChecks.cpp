#include "SurveyChecks.h"

#include "DriverDiagnosis.h"
#include "Values/Format.h"

#include <algorithm>
#include <sys/stat.h>

namespace moxel::tool {

namespace {

using State = SurveyedDevice::State;

const SurveyedDevice *readyBaseChannel(const std::vector<SurveyedBus> &buses) {
    const std::string wanted = baseChannelName();
    for (const SurveyedBus &bus : buses) {
        const auto found = std::ranges::find_if(bus.devices, [&wanted](const SurveyedDevice &device) {
            return device.state == State::ready && device.name == wanted;
        });
        if (found != bus.devices.end())
            return &*found;
    }
    return nullptr;
}

std::string octal(unsigned mode) {
    std::string digits(4, '0');
    for (size_t digit = digits.size(); digit > 0; mode /= 8)
        digits[--digit] = static_cast<char>('0' + mode % 8);
    return digits;
}

std::string ownerAndMode(const std::string &folder) {
    struct stat status {};
    if (::stat(folder.c_str(), &status) != 0)
        return folder; // It went meanwhile, which the next check tells.
    return format("%s belongs to user %u, mode %s", folder, status.st_uid, octal(status.st_mode & 07777));
}

std::string publisherOf(const SurveyedDevice &channel) {
    std::string text = channel.program.empty() ? "it answers" : channel.program + " answers";
    if (channel.process)
        text += format(", process %d", *channel.process);
    return text + ", on " + channel.name;
}

} // namespace

Check checkBusFolder(const std::vector<SurveyedBus> &buses) {
    const SurveyedBus &bus = buses.front();
    if (bus.state == SurveyedBus::State::usable)
        return Check::ok("bus", ownerAndMode(bus.place));
    if (bus.state == SurveyedBus::State::missing && readyBaseChannel(buses) != nullptr)
        return Check::ok("bus", bus.place + " does not exist; the driver uses devices of the kernel");
    const Finding finding = findingOfBus(bus);
    return Check::wrong("bus", finding.problem, finding.remedy, noDriver);
}

Check checkDriver(const std::vector<SurveyedBus> &buses) {
    if (const SurveyedDevice *channel = readyBaseChannel(buses))
        return Check::ok("driver", publisherOf(*channel));
    if (buses.front().state != SurveyedBus::State::usable && buses.size() == 1)
        return Check::skipped("driver", "there is no bus to look at");
    const SurveyedBus &bus = buses.front().state == SurveyedBus::State::usable ? buses.front() : buses.back();
    const Finding finding = findingOfDevices(bus);
    return Check::wrong("driver", finding.problem, finding.remedy, noDriver);
}

Check checkDevices(const std::vector<SurveyedBus> &buses) {
    size_t count = 0;
    for (const SurveyedBus &bus : buses) {
        if (&bus == &buses.front())
            continue; // The folder.
        count += bus.devices.size();
        const auto closed = std::ranges::find_if(
            bus.devices, [](const SurveyedDevice &device) { return device.state != State::ready; });
        if (closed != bus.devices.end())
            return Check::wrong(
                "devices", "this user cannot use " + closed->place + ": " + closed->problem,
                "Put that rule, or the driver's 70-moxel.rules, into /etc/udev/rules.d, then:\n"
                "  udevadm control --reload && udevadm trigger --subsystem-match=hidraw",
                noDriver);
    }
    if (count == 0)
        return Check::ok("devices", "the kernel has none of the driver's");
    return Check::ok("devices",
                     format("this user may use all %zu that the kernel has of the driver's", count));
}

Check checkSession(std::optional<bool> isOnConsole) {
    if (!isOnConsole)
        return Check::ok("session", "whether it is on the console cannot be told, which counts as yes");
    if (*isOnConsole)
        return Check::ok("session", "it is the one on the console");
    return Check::wrong("session",
                        "this login session is not on the console: the driver's events do not reach it",
                        "Change to this session (\"loginctl activate\"), or start the program in the one on "
                        "the console.",
                        failure);
}

} // namespace moxel::tool
