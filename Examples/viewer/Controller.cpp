#include "Controller.h"

#include <array>

namespace viewer {

namespace {

enum EventCode : Sint32 { stateHasChanged, deviceIsRemoved };

Uint32 eventType() {
    static const Uint32 type = SDL_RegisterEvents(1);
    return type;
}

bool push(EventCode code, void *data) {
    SDL_Event event{};
    event.type = eventType();
    event.user.code = code;
    event.user.data1 = data;
    return SDL_PushEvent(&event) == 1;
}

/// On the library's thread; the record is valid during the call only.
void message(uint32_t, uint32_t type, void *argument) {
    if (type != kMoxelMsgDeviceState)
        return;
    auto copy = std::make_unique<MoxelStateRecord>(*static_cast<const MoxelStateRecord *>(argument));
    if (push(stateHasChanged, copy.get()))
        (void)copy.release(); // The queue's now; state() takes it out.
}

void removed(uint32_t) { push(deviceIsRemoved, nullptr); }

void exportCommands(uint16_t client) {
    std::array<MoxelCommandSyncNode_s, 3> actions{};
    constexpr std::array identifiers{"reset", "wires", "shaded"};
    for (size_t i = 0; i < actions.size(); ++i) {
        actions[i].type = kMoxelNodeAction;
        actions[i].next = i + 1 < actions.size() ? &actions[i + 1] : nullptr;
        actions[i].id = identifiers[i];
        actions[i].label = label(static_cast<Command>(i + 1));
    }
    MoxelCommandSyncNode_s set{};
    set.type = kMoxelNodeActionSet;
    set.children = actions.data();
    set.id = "view";
    set.label = "Viewing";
    if (MoxelClientWriteCommands(client, kMoxelExportTree, 0, &set) != kMoxelResultOK ||
        MoxelClientActivateActionSet(client, set.id) != kMoxelResultOK)
        SDL_Log("The driver does not take the commands; the controller works without them.");
}

} // namespace

Controller::Controller() {
    (void)eventType();             // Before another thread asks for it.
    uint8_t name[] = "\006viewer"; // Length-prefixed.
    if (SetMoxelHandlers(message, nullptr, removed, true) == kMoxelResultOK)
        client_ = RegisterMoxelClient(0x56696577, name, 0, 0xFFFFFFFF);
    if (client_ == 0)
        return;
    SetMoxelClientButtonMask(client_, 0xFFFFFFFF); // Registration asks for the first eight.
    exportCommands(client_);
}

Controller::~Controller() {
    if (client_ != 0)
        UnregisterMoxelClient(client_);
    CleanupMoxelHandlers();
    for (SDL_Event event; SDL_PollEvent(&event) != 0;) // What nobody has taken out.
        (void)state(event);
}

std::unique_ptr<MoxelStateRecord> Controller::state(const SDL_Event &event) {
    if (event.type != eventType() || event.user.code != stateHasChanged)
        return nullptr;
    return std::unique_ptr<MoxelStateRecord>(static_cast<MoxelStateRecord *>(event.user.data1));
}

bool Controller::isRemoval(const SDL_Event &event) {
    return event.type == eventType() && event.user.code == deviceIsRemoved;
}

const char *label(Command command) {
    switch (command) {
    case Command::resetView:
        return "Reset view";
    case Command::wireFrame:
        return "Wire frame";
    case Command::shaded:
        return "Shaded";
    }
    return "";
}

} // namespace viewer
