#include "Event.h"

#include "Values/Format.h"
#include "Values/KeyedArchive.h"

#include <cmath>
#include <cstring>
#include <nlohmann/json.hpp>
#include <span>

namespace moxel::tool {

namespace {

/// Commands of a state record, as the reference daemon uses them.
enum Command : uint16_t {
    buttonCommand = 2,
    motionCommand = 3,
    applicationCommand = 10,
    applicationButtonCommand = 11
};

Event::Kind kindOf(const MoxelStateRecord &record) {
    switch (record.command) {
    case motionCommand:
        return Event::Kind::motion;
    case buttonCommand:
        return Event::Kind::buttons;
    case applicationCommand:
    case applicationButtonCommand:
        return Event::Kind::application;
    default:
        return Event::Kind::state;
    }
}

/// The dictionary behind the forwarded argument of a pairing message: its archive's length, then the archive.
Value pairingContent(const void *argument) {
    uint64_t length;
    std::memcpy(&length, argument, sizeof length);
    const auto *archive = static_cast<const uint8_t *>(argument) + sizeof length;
    Result<Value> content = unarchiveObjectWithData(std::span(archive, length));
    return content.ok() ? *std::move(content) : Value();
}

/// On one line.
std::string compact(const Value &value) {
    std::string text;
    for (const char character : value.description()) {
        const bool isSpace = character == '\n' || character == ' ';
        if (!isSpace || (!text.empty() && text.back() != ' '))
            text += isSpace ? ' ' : character;
    }
    return text;
}

std::string stateText(const MoxelStateRecord &record) {
    return format("axes %d %d %d %d %d %d  buttons 0x%08X", record.axis[0], record.axis[1], record.axis[2],
                  record.axis[3], record.axis[4], record.axis[5], record.buttons);
}

std::string content(const Event &event) {
    switch (event.kind) {
    case Event::Kind::motion:
    case Event::Kind::buttons:
        return stateText(event.record);
    case Event::Kind::application:
        return format("command %d  param %d  value %d  pressed %d", event.record.command, event.record.param,
                      event.record.value, event.record.appEventPressed);
    case Event::Kind::state:
        return format("command %d  param %d  value %d  ", event.record.command, event.record.param,
                      event.record.value) +
               stateText(event.record);
    case Event::Kind::added:
    case Event::Kind::removed:
        return format("device 0x%08X", event.productID);
    case Event::Kind::pairing:
    case Event::Kind::settings:
        return compact(event.content);
    default:
        return "";
    }
}

} // namespace

Event messageEvent(uint32_t productID, uint32_t message, const void *argument) {
    Event event;
    event.productID = productID;
    event.message = message;
    switch (message) {
    case kMoxelMsgDeviceState:
        std::memcpy(&event.record, argument, sizeof event.record);
        event.kind = kindOf(event.record);
        break;
    case kMoxelMsgPrefsChanged:
        event.kind = Event::Kind::preferences;
        break;
    case kMoxelMsgCommandSync:
        event.kind = Event::Kind::sync;
        break;
    case kMoxelMsgPairingInfo:
        event.kind = Event::Kind::pairing;
        event.content = argument ? pairingContent(argument) : Value();
        break;
    case kMoxelMsgSettingsFileChanged:
        event.kind = Event::Kind::settings;
        event.content =
            static_cast<const MoxelSettingsChange *>(argument)->reason == 1 ? "removed" : "changed";
        break;
    default:
        event.kind = Event::Kind::other;
    }
    return event;
}

Event deviceEvent(Event::Kind kind, uint32_t deviceID) {
    Event event;
    event.kind = kind;
    event.productID = deviceID;
    return event;
}

const char *kindName(Event::Kind kind) {
    constexpr const char *names[] = {"motion",      "buttons", "application", "state",    "added", "removed",
                                     "preferences", "sync",    "pairing",     "settings", "other"};
    return names[static_cast<size_t>(kind)];
}

std::string toText(const Event &event) {
    const auto milliseconds = std::llround(event.time.count() * 1000);
    std::string line =
        format("%4lld.%03lld  %-11s  ", milliseconds / 1000, milliseconds % 1000, kindName(event.kind));
    line += content(event);
    return line.substr(0, line.find_last_not_of(' ') + 1);
}

std::string toJson(const Event &event) {
    nlohmann::ordered_json object{{"time", event.time.count()}, {"event", kindName(event.kind)}};
    switch (event.kind) {
    case Event::Kind::motion:
    case Event::Kind::buttons:
    case Event::Kind::application:
    case Event::Kind::state:
        object["product"] = event.productID;
        object["command"] = event.record.command;
        object["param"] = event.record.param;
        object["value"] = event.record.value;
        object["axes"] = std::vector<int>(event.record.axis, event.record.axis + 6);
        object["buttons"] = uint32_t{event.record.buttons};
        object["pressed"] = event.record.appEventPressed;
        break;
    case Event::Kind::added:
    case Event::Kind::removed:
        object["device"] = event.productID;
        break;
    case Event::Kind::pairing:
    case Event::Kind::settings:
        object["content"] = compact(event.content);
        break;
    default:
        object["product"] = event.productID;
    }
    return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

} // namespace moxel::tool
