#include "TraceText.h"

#include "HexDump.h"
#include "Values/Format.h"

#include <algorithm>
#include <cstring>

namespace moxel::tool {

namespace {

/// A trace's limit less room for the time.
constexpr size_t longestText = 4000;
constexpr std::string_view cabledRequest = "cabdev";

std::string comment(const Event &event) {
    std::string text = "# not in a trace: ";
    for (const char character : toText(event).substr(10)) // Without the time.
        text += character == '\n' ? ' ' : character;
    if (text.size() > longestText)
        text = format("# not in a trace: %s, too long", kindName(event.kind));
    return text;
}

std::string motionText(const MoxelStateRecord &record) {
    return format("motion %d %d %d %d %d %d", record.axis[0], record.axis[1], record.axis[2], record.axis[3],
                  record.axis[4], record.axis[5]);
}

std::string applicationText(const Event &event) {
    if (event.record.command != kMoxelStateApplicationEvent)
        return comment(event);
    std::string text = format("appevent %d %s", event.record.param,
                              event.record.appEventPressed != 0 ? "pressed" : "released");
    if (event.record.value != 0)
        text += format(" value=%d", event.record.value);
    return text;
}

std::string preferencesText(const Event &event, const std::optional<MoxelDevicePrefs> &preferences) {
    std::string text = format("prefs arg=%u", event.number);
    if (preferences) {
        const auto *bytes = reinterpret_cast<const uint8_t *>(&*preferences);
        text += " data=" + plainHex({bytes, sizeof *preferences});
    }
    return text;
}

/// Whether a trace can name an entry so.
bool isTraceKey(std::string_view key) {
    return !key.empty() && key.find_first_of(" \t\r\n#=\"") == std::string_view::npos;
}

/// A number, true, false or a text between quotation marks; absent for anything else.
std::optional<std::string> traceValue(const Value &value) {
    switch (value.kind()) {
    case Kind::boolean:
        return value.boolValue() ? "true" : "false";
    case Kind::integer:
        return std::to_string(value.int64Value());
    case Kind::unsignedInteger:
        return std::to_string(value.uint64Value());
    case Kind::string: {
        const String string = value.asString();
        if (!string.isWellFormed() || string.view().find('\n') != std::string_view::npos)
            return std::nullopt;
        std::string text = "\"";
        for (const char character : string.view()) {
            if (character == '"' || character == '\\')
                text += '\\';
            text += character;
        }
        return text += '"';
    }
    default:
        return std::nullopt;
    }
}

/// The library hands both kinds out alike; the request tells which it was.
std::string pairingText(const Event &event) {
    const Dictionary content = event.content.asDictionary();
    const Value &request = content["req"];
    const std::optional<std::string> command = traceValue(request);
    if (request.kind() != Kind::string || !command)
        return comment(event);
    std::string text = request.asString().view() == cabledRequest ? "cabled" : "pairing command=" + *command;
    for (const auto &[key, value] : content) {
        if (key.view() == "req")
            continue;
        const std::optional<std::string> entry = traceValue(value);
        if (!entry || !isTraceKey(key.view()) || key.view() == "command")
            return comment(event);
        text += " " + key.string() + "=" + *entry;
    }
    return text;
}

std::string plainText(const Event &event, const std::optional<MoxelDevicePrefs> &preferences) {
    switch (event.kind) {
    case Event::Kind::motion:
        return motionText(event.record);
    case Event::Kind::buttons:
        return format("buttons 0x%X", event.record.buttons);
    case Event::Kind::application:
        return applicationText(event);
    case Event::Kind::added:
        return format("added 0x%08X", event.productID);
    case Event::Kind::removed:
        return format("removed 0x%08X", event.productID);
    case Event::Kind::preferences:
        return preferencesText(event, preferences);
    case Event::Kind::sync:
        return format("sync pid=%u data=", event.productID) + plainHex(event.content.asData().bytes());
    case Event::Kind::pairing:
        return pairingText(event);
    default:
        return comment(event);
    }
}

} // namespace

std::string traceText(const Event &event, const std::optional<MoxelDevicePrefs> &preferences) {
    std::string text = plainText(event, preferences);
    return text.size() > longestText ? comment(event) : text;
}

std::string identityText(uint32_t deviceID) {
    return format("identity 0x%04X 0x%04X", deviceID >> 16, deviceID & 0xFFFF);
}

std::string traceTime(std::chrono::duration<double> time) {
    const auto microseconds = std::chrono::duration_cast<std::chrono::microseconds>(time).count();
    return format("%lld.%06lld", microseconds / 1'000'000, microseconds % 1'000'000);
}

} // namespace moxel::tool
