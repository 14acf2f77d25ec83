#include "Event.h"

#include "ValueJson.h"
#include "Values/Format.h"
#include "Values/KeyedArchive.h"

#include <cmath>
#include <cstring>
#include <nlohmann/json.hpp>
#include <span>

namespace moxel::tool {

namespace {

constexpr size_t syncBlockSize = 506;

Event::Kind kindOf(const MoxelStateRecord &record) {
    switch (record.command) {
    case kMoxelStateMotion:
        return Event::Kind::motion;
    case kMoxelStateButtons:
        return Event::Kind::buttons;
    case kMoxelStateApplicationEvent:
    case kMoxelStateDeviceAction:
        return Event::Kind::application;
    default:
        return Event::Kind::state;
    }
}

/// The dictionary in the block of a pairing message: its archive's length, then the archive.
Value pairingContent(const void *argument, HandlerThread thread) {
    const auto *block = static_cast<const uint8_t *>(argument);
    if (thread == HandlerThread::library)
        block = MoxelDataGetBytePtr(static_cast<MoxelDataRef>(argument));
    if (block == nullptr)
        return {};
    uint64_t length;
    std::memcpy(&length, block, sizeof length);
    Result<Value> content = unarchiveObjectWithData(std::span(block + sizeof length, length));
    return content.ok() ? *std::move(content) : Value();
}

Value syncContent(const void *argument) {
    if (argument == nullptr)
        return {};
    return Data(std::span(static_cast<const uint8_t *>(argument), syncBlockSize));
}

const char *settingsReason(const void *argument) {
    switch (argument ? static_cast<const MoxelSettingsChange *>(argument)->reason : 0) {
    case 1:
        return "removed";
    case 2:
        return "changed";
    default:
        return "unknown";
    }
}

/// What a content would say at too great a length is cut.
std::string onOneLine(const Value &content) {
    constexpr size_t longest = 2000;
    std::string text = jsonText(content, JsonLayout::oneLine).valueOr("(too large)");
    if (text.size() > longest) {
        size_t end = longest;
        while ((text[end] & 0xC0) == 0x80)
            --end;
        text.resize(end);
        text += " ...";
    }
    return text;
}

std::string stateText(const MoxelStateRecord &record) {
    return format("axes %d %d %d %d %d %d  buttons 0x%08X", record.axis[0], record.axis[1], record.axis[2],
                  record.axis[3], record.axis[4], record.axis[5], record.buttons);
}

std::string contentText(const Event &event) {
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
    case Event::Kind::sync:
        return format("%zu bytes", event.content.asData().size());
    case Event::Kind::settings:
        return event.content.asString().string();
    case Event::Kind::pairing:
        return onOneLine(event.content);
    case Event::Kind::other:
        return format("message 0x%08X", event.message);
    default:
        return "";
    }
}

} // namespace

Event messageEvent(uint32_t productID, uint32_t message, const void *argument, HandlerThread thread) {
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
        if (thread == HandlerThread::library)
            event.number = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(argument));
        break;
    case kMoxelMsgCommandSync:
        event.kind = Event::Kind::sync;
        event.content = syncContent(argument);
        break;
    case kMoxelMsgPairingInfo:
        event.kind = Event::Kind::pairing;
        event.content = argument ? pairingContent(argument, thread) : Value();
        break;
    case kMoxelMsgSettingsFileChanged:
        event.kind = Event::Kind::settings;
        event.content = settingsReason(argument);
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
    line += contentText(event);
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
        object["client"] = event.record.client;
        object["command"] = event.record.command;
        object["param"] = event.record.param;
        object["value"] = event.record.value;
        object["axes"] = std::vector<int>(event.record.axis, event.record.axis + 6);
        object["buttons"] = uint32_t{event.record.buttons};
        object["pressed"] = event.record.appEventPressed;
        object["deviceTime"] = uint64_t{event.record.time};
        break;
    case Event::Kind::added:
    case Event::Kind::removed:
        object["device"] = event.productID;
        break;
    case Event::Kind::other:
        object["product"] = event.productID;
        object["message"] = event.message;
        break;
    default:
        object["product"] = event.productID;
    }
    std::string text = object.dump();
    if (event.content) {
        // Not by way of the JSON library, which would recurse as deep as the content is nested.
        const Result<std::string> content = jsonText(event.content, JsonLayout::oneLine);
        text.pop_back();
        text += ",\"content\":" + (content.ok() ? *content : "null") + "}";
    }
    return text;
}

} // namespace moxel::tool
