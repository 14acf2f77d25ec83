#include "Moxel Daemon/Protocol/Faults.h"

#include "Moxel Daemon/Protocol/Numbers.h"

#include <array>

namespace moxel::daemon {

namespace {

/// False when the value makes no sense.
using Setter = bool (*)(Faults &faults, std::string_view value);

template <bool Faults::*member>
bool setFlag(Faults &faults, std::string_view value) {
    faults.*member = true;
    return value.empty();
}

template <Faults::Milliseconds Faults::*member>
bool setDelay(Faults &faults, std::string_view value) {
    const std::optional<uint32_t> milliseconds = parseNumber<uint32_t>(value);
    faults.*member = Faults::Milliseconds(milliseconds.value_or(0));
    return milliseconds.has_value();
}

template <std::optional<uint16_t> Faults::*member>
bool setNumber(Faults &faults, std::string_view value) {
    faults.*member = parseNumber<uint16_t>(value);
    return (faults.*member).has_value();
}

template <std::map<uint8_t, HIDStatus> Faults::*member>
bool refuseReport(Faults &faults, std::string_view value) {
    const size_t colon = value.find(':');
    const std::optional<uint8_t> report = parseNumber<uint8_t>(value.substr(0, colon));
    std::optional<uint32_t> status = static_cast<uint32_t>(HIDStatus::error);
    if (colon != std::string_view::npos)
        status = parseNumber<uint32_t>(value.substr(colon + 1));
    if (!report || !status)
        return false;
    (faults.*member)[*report] = static_cast<HIDStatus>(*status);
    return true;
}

struct NamedFault {
    std::string_view name;
    std::string_view value; ///< How the value is written; empty for none.
    std::string_view meaning;
    Setter set;
};

constexpr std::array namedFaults{
    NamedFault{"no-base-channel", "", "the base channel is not published", setFlag<&Faults::noBaseChannel>},
    NamedFault{"refuse-base-open", "", "opening the base channel fails", setFlag<&Faults::refuseBaseOpen>},
    NamedFault{"no-dedicated-channel", "", "create-channel messages are ignored",
               setFlag<&Faults::noDedicatedChannel>},
    NamedFault{"refuse-dedicated-open", "", "opening a dedicated channel fails",
               setFlag<&Faults::refuseDedicatedOpen>},
    NamedFault{"late-dedicated-channel", "=MS", "dedicated channels appear MS milliseconds late",
               setDelay<&Faults::dedicatedChannelDelay>},
    NamedFault{"drop-channel-after-registration", "",
               "a dedicated channel goes as soon as its client is registered",
               setFlag<&Faults::dropChannelAfterRegistration>},
    NamedFault{"unresponsive", "", "requests on the bus are neither served nor answered",
               setFlag<&Faults::unresponsive>},
    NamedFault{"refuse-set-report", "=ID[:STATUS]", "writing report ID fails (status 0xE00002BC or STATUS)",
               refuseReport<&Faults::refusedSetReports>},
    NamedFault{"refuse-get-report", "=ID[:STATUS]", "reading report ID fails",
               refuseReport<&Faults::refusedGetReports>},
    NamedFault{"no-registration-answer", "", "registrations are not answered",
               setFlag<&Faults::noRegistrationAnswer>},
    NamedFault{"late-registration-answer", "=MS", "registrations are answered MS milliseconds late",
               setDelay<&Faults::registrationAnswerDelay>},
    NamedFault{"no-acknowledgement", "", "requests are not acknowledged",
               setFlag<&Faults::noAcknowledgement>},
    NamedFault{"late-acknowledgement", "=MS", "requests are acknowledged MS milliseconds late",
               setDelay<&Faults::acknowledgementDelay>},
    NamedFault{"duplicate-acknowledgement", "", "requests are acknowledged twice",
               setFlag<&Faults::duplicateAcknowledgement>},
    NamedFault{"announced-size", "=N", "packets are announced with N bytes",
               setNumber<&Faults::announcedSize>},
    NamedFault{"payload-length", "=N", "packets claim N payload bytes", setNumber<&Faults::payloadLength>},
    NamedFault{"data-id", "=N", "packets carry data identifier N instead of 2", setNumber<&Faults::dataID>},
    NamedFault{"no-last-packet", "", "the last packet of every message is not sent",
               setFlag<&Faults::noLastPacket>},
    NamedFault{"malformed-archive", "", "messages are no keyed archives", setFlag<&Faults::malformedArchive>},
};

} // namespace

Result<void> addFault(Faults &faults, std::string_view text) {
    const size_t equals = text.find('=');
    const std::string_view name = text.substr(0, equals);
    const std::string_view value = equals == std::string_view::npos ? "" : text.substr(equals + 1);
    for (const NamedFault &fault : namedFaults) {
        if (fault.name != name)
            continue;
        Faults changed = faults;
        if (!fault.set(changed, value))
            return Error{"the fault \"" + std::string(text) + "\" should be written " +
                             std::string(fault.name) + std::string(fault.value),
                         0};
        faults = std::move(changed);
        return {};
    }
    return Error{"there is no fault \"" + std::string(name) + "\"; there are:\n" + faultList(), 0};
}

std::string faultList() {
    constexpr size_t meaningColumn = 36;
    std::string list;
    for (const NamedFault &fault : namedFaults) {
        std::string line = "  " + std::string(fault.name) + std::string(fault.value);
        line.resize(std::max(line.size() + 1, meaningColumn), ' ');
        list += line + std::string(fault.meaning) + "\n";
    }
    return list;
}

} // namespace moxel::daemon
