#include "Moxel Daemon/Motion/TraceEvents.h"

#include "Moxel Common/Protocol/WireLayouts.h"
#include "Moxel Daemon/Protocol/DaemonMessages.h"
#include "Moxel Daemon/Protocol/Numbers.h"

#include <algorithm>
#include <array>
#include <string>

namespace moxel::daemon {

namespace {

using Arguments = std::vector<TraceArgument>;

template <class Integer>
std::optional<Integer> numberAt(const Arguments &arguments, size_t index) {
    if (index >= arguments.size() || !arguments[index].key.empty() || arguments[index].isQuoted)
        return std::nullopt;
    return parseNumber<Integer>(arguments[index].text);
}

const TraceArgument *argument(const Arguments &arguments, std::string_view key) {
    const auto found = std::find_if(arguments.begin(), arguments.end(),
                                    [key](const TraceArgument &candidate) { return candidate.key == key; });
    return found == arguments.end() ? nullptr : &*found;
}

/// The number under a key, or `fallback` when the key is not there; absent when it holds something else.
template <class Integer>
std::optional<Integer> numberUnder(const Arguments &arguments, std::string_view key, Integer fallback) {
    const TraceArgument *found = argument(arguments, key);
    if (!found)
        return fallback;
    return found->isQuoted ? std::nullopt : parseNumber<Integer>(found->text);
}

/// Bytes in hexadecimal under "data", or `fallback`; absent when they are not `size` bytes.
std::optional<Data> dataArgument(const Arguments &arguments, size_t size, Data fallback) {
    const TraceArgument *found = argument(arguments, "data");
    std::optional<Data> data = found ? parseHexadecimal(found->text) : std::optional(std::move(fallback));
    return data && data->size() == size ? data : std::nullopt;
}

/// Whether the arguments are `plain` ones without a key and then some of those keys.
bool hasOnly(const Arguments &arguments, size_t plain, std::initializer_list<std::string_view> keys) {
    for (size_t index = 0; index < arguments.size(); ++index) {
        const TraceArgument &candidate = arguments[index];
        const bool isKnown = std::find(keys.begin(), keys.end(), candidate.key) != keys.end();
        if (index < plain ? !candidate.key.empty() : !isKnown)
            return false;
    }
    return arguments.size() >= plain;
}

/// All arguments as a message's entries, but for one key.
std::optional<Dictionary> details(const Arguments &arguments, std::string_view except) {
    Dictionary entries;
    for (const TraceArgument &candidate : arguments) {
        if (candidate.key == except && !except.empty())
            continue;
        const std::optional<Value> value = candidate.value();
        if (candidate.key.empty() || !value)
            return std::nullopt;
        entries.set(candidate.key, *value);
    }
    return entries;
}

using MadeEvent = std::optional<TraceEvent>;

MadeEvent motion(const Arguments &arguments) {
    MotionEvent event;
    if (arguments.size() != event.axis.size())
        return std::nullopt;
    for (size_t index = 0; index < event.axis.size(); ++index) {
        const std::optional<int16_t> value = numberAt<int16_t>(arguments, index);
        if (!value)
            return std::nullopt;
        event.axis[index] = *value;
    }
    return event;
}

MadeEvent buttons(const Arguments &arguments) {
    const std::optional<uint32_t> mask = numberAt<uint32_t>(arguments, 0);
    return mask && arguments.size() == 1 ? MadeEvent(ButtonsEvent{*mask}) : std::nullopt;
}

MadeEvent applicationEventOf(const Arguments &arguments) {
    const std::optional<int16_t> identifier = numberAt<int16_t>(arguments, 0);
    const std::optional<int32_t> value = numberUnder<int32_t>(arguments, "value", 0);
    if (!identifier || !value || !hasOnly(arguments, 2, {"value"}))
        return std::nullopt;
    const std::string &state = arguments[1].text;
    if (state != "pressed" && state != "released")
        return std::nullopt;
    return ApplicationEvent{*identifier, state == "pressed", *value};
}

MadeEvent identity(const Arguments &arguments) {
    const std::optional<uint16_t> vendor = numberAt<uint16_t>(arguments, 0);
    const std::optional<uint16_t> product = numberAt<uint16_t>(arguments, 1);
    if (!vendor || !product || arguments.size() != 2)
        return std::nullopt;
    return MessageEvent{deviceIdentityMessage(*vendor, *product)};
}

MadeEvent added(const Arguments &arguments) {
    const std::optional<uint32_t> device = numberAt<uint32_t>(arguments, 0);
    return device && arguments.size() == 1 ? MadeEvent(MessageEvent{deviceAddedMessage(*device)})
                                           : std::nullopt;
}

MadeEvent removed(const Arguments &arguments) {
    const std::optional<uint32_t> device = numberAt<uint32_t>(arguments, 0);
    return device && arguments.size() == 1 ? MadeEvent(MessageEvent{deviceRemovedMessage(*device)})
                                           : std::nullopt;
}

MadeEvent preferences(const Arguments &arguments) {
    const std::optional<uint32_t> number = numberUnder<uint32_t>(arguments, "arg", 0);
    const std::optional<uint32_t> device = numberUnder<uint32_t>(arguments, "device", kMoxelDefaultDeviceID);
    if (!number || !device || !hasOnly(arguments, 0, {"arg", "device", "data"}))
        return std::nullopt;
    std::optional<Data> data = dataArgument(arguments, sizeof(MoxelDevicePrefs), plainPreferences(*device));
    return data ? MadeEvent(MessageEvent{preferencesMessage(*number, std::move(*data))}) : std::nullopt;
}

MadeEvent commandSync(const Arguments &arguments) {
    const std::optional<uint32_t> product = numberUnder<uint32_t>(arguments, "pid", kMoxelAnyProduct);
    std::optional<Data> data = dataArgument(arguments, wire::commandSyncBlockSize, countingSyncBlock());
    if (!product || !data || !hasOnly(arguments, 0, {"pid", "data"}))
        return std::nullopt;
    return MessageEvent{commandSyncMessage(*product, std::move(*data))};
}

MadeEvent pairing(const Arguments &arguments) {
    const TraceArgument *command = argument(arguments, "command");
    std::optional<Dictionary> entries = details(arguments, "command");
    if (!command || !command->isQuoted || !entries)
        return std::nullopt;
    return MessageEvent{pairingMessage(command->text, std::move(*entries))};
}

MadeEvent cabled(const Arguments &arguments) {
    std::optional<Dictionary> entries = details(arguments, "");
    return entries ? MadeEvent(MessageEvent{cabledDeviceMessage(std::move(*entries))}) : std::nullopt;
}

template <auto event>
MadeEvent plain(const Arguments &arguments) {
    return arguments.empty() ? MadeEvent(event) : std::nullopt;
}

MadeEvent pause(const Arguments &arguments) {
    return arguments.empty() ? MadeEvent(PauseEvent{}) : std::nullopt;
}

struct NamedEvent {
    std::string_view name;
    std::string_view arguments;
    MadeEvent (*make)(const Arguments &arguments);
};

constexpr std::array namedEvents{
    NamedEvent{"motion", "X Y Z RX RY RZ, each -32768 to 32767", motion},
    NamedEvent{"buttons", "MASK", buttons},
    NamedEvent{"appevent", "ID pressed|released [value=N]", applicationEventOf},
    NamedEvent{"identity", "VENDOR PRODUCT", identity},
    NamedEvent{"added", "DEVICE", added},
    NamedEvent{"removed", "DEVICE", removed},
    NamedEvent{"prefs", "[arg=N] [device=ID | data=HEX of 152 bytes]", preferences},
    NamedEvent{"sync", "[pid=N] [data=HEX of 506 bytes]", commandSync},
    NamedEvent{"pairing", "command=\"TEXT\" [KEY=NUMBER|true|false|\"TEXT\" ...]", pairing},
    NamedEvent{"cabled", "[KEY=NUMBER|true|false|\"TEXT\" ...]", cabled},
    NamedEvent{"reregister", "", plain<AskEvent::toRegisterAgain>},
    NamedEvent{"query", "", plain<AskEvent::forStoredData>},
    NamedEvent{"pause", "", pause},
};

} // namespace

Result<TraceEvent> traceEvent(const TraceLine &line) {
    for (const NamedEvent &named : namedEvents) {
        if (named.name != line.keyword)
            continue;
        if (MadeEvent event = named.make(line.arguments))
            return std::move(*event);
        return Error{"this should be written: " + std::string(named.name) +
                         (named.arguments.empty() ? "" : " ") + std::string(named.arguments),
                     0};
    }
    return Error{"there is no event \"" + line.keyword + "\"", 0};
}

} // namespace moxel::daemon
