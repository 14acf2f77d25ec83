// A viewpoint that the controller moves: a piece of an application, written so that a test can drive it.
#pragma once

#include <Moxel/MoxelClient.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

/// Opens a session and follows the controller. Lives on one thread, whose run loop calls it.
class Viewpoint {
  public:
    Viewpoint() : installed_(_SetMoxelHandlers(message, added, removed, this, false)) {}
    ~Viewpoint() {
        if (client_ != 0)
            UnregisterMoxelClient(client_);
        if (installed_ != kMoxelResultAlreadyPending) // Without a driver too: the session waits for one.
            CleanupMoxelHandlers();
    }
    Viewpoint(const Viewpoint &) = delete;
    Viewpoint &operator=(const Viewpoint &) = delete;

    /// False when no driver answers; the application then goes on without a controller.
    bool connect() {
        std::array<uint8_t, 10> name{9, 'V', 'i', 'e', 'w', 'p', 'o', 'i', 'n', 't'};
        if (installed_ == kMoxelResultOK)
            client_ = RegisterMoxelClient(0x56696577, name.data(), 0, 0xFFFFFFFF);
        return client_ != 0 && exportCommands();
    }

    [[nodiscard]] int distance() const { return distance_; }
    [[nodiscard]] bool hasController() const { return devices_ > 0; }
    [[nodiscard]] const std::vector<int> &commands() const { return commands_; }

  private:
    [[nodiscard]] bool exportCommands() const {
        MoxelCommandSyncNode_s home{};
        home.type = kMoxelNodeAction;
        home.id = "home";
        home.label = "Home view";
        MoxelCommandSyncNode_s viewing{};
        viewing.type = kMoxelNodeActionSet;
        viewing.children = &home;
        viewing.id = "view";
        viewing.label = "Viewing";
        return MoxelClientWriteCommands(client_, kMoxelExportTree, 0, &viewing) == kMoxelResultOK &&
               MoxelClientActivateActionSet(client_, viewing.id) == kMoxelResultOK;
    }
    void take(const MoxelStateRecord &state) {
        if (state.command == kMoxelStateApplicationEvent && state.appEventPressed != 0) {
            distance_ = 0;
            commands_.push_back(state.param);
        } else if (state.command == kMoxelStateMotion) {
            distance_ += state.axis[2];
        }
    }

    static void message(uint32_t, uint32_t type, void *argument, void *self) {
        if (type == kMoxelMsgDeviceState)
            static_cast<Viewpoint *>(self)->take(*static_cast<const MoxelStateRecord *>(argument));
    }
    static void added(uint32_t, void *self) { ++static_cast<Viewpoint *>(self)->devices_; }
    static void removed(uint32_t, void *self) { --static_cast<Viewpoint *>(self)->devices_; }

    int16_t installed_;
    uint16_t client_ = 0;
    int distance_ = 0;
    int devices_ = 0;
    std::vector<int> commands_;
};
