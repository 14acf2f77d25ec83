// Commands of an application on the device's buttons: exports an action set, and prints each command that a
// button presses. Ends after three.
#include <Moxel/MoxelClient.h>
#include <Moxel/MoxelRunLoop.h>

#include <stdio.h>
#include <stdlib.h>

enum { applicationEvent = 10 }; // MoxelStateRecord::command

// In the order in which they stand on the buttons.
static MoxelCommandSyncNode_s actions[] = {
    {.type = kMoxelNodeAction, .next = &actions[1], .id = "copy", .label = "Copy"},
    {.type = kMoxelNodeAction, .next = &actions[2], .id = "paste", .label = "Paste"},
    {.type = kMoxelNodeAction, .id = "undo", .label = "Undo", .description = "Takes the last step back"},
};
static MoxelCommandSyncNode_s editing = {
    .type = kMoxelNodeActionSet, .children = actions, .id = "edit", .label = "Editing"};

static int pressed;

static void message(uint32_t product, uint32_t type, void *argument) {
    (void)product;
    const MoxelStateRecord *state = argument;
    if (type != kMoxelMsgDeviceState || state->command != applicationEvent || !state->appEventPressed)
        return;
    if (state->param < 1 || state->param > 3)
        return;
    printf("%s\n", actions[state->param - 1].label);
    fflush(stdout);
    ++pressed;
}

static int exportCommands(uint16_t client) {
    return MoxelClientWriteCommands(client, kMoxelExportTree, 0, &editing) == kMoxelResultOK &&
           MoxelClientActivateActionSet(client, editing.id) == kMoxelResultOK;
}

int main(void) {
    uint8_t name[] = "\011exporting"; // Length-prefixed.
    if (SetMoxelHandlers(message, NULL, NULL, false) != kMoxelResultOK) {
        fprintf(stderr, "No driver answers.\n");
        return EXIT_FAILURE;
    }
    const uint16_t client = RegisterMoxelClient(0x4578706F, name, 0, 0xFFFFFFFF);
    const int isExported = client != 0 && exportCommands(client);
    printf(isExported ? "press a button\n" : "the driver did not take the commands\n");
    fflush(stdout);
    while (isExported && pressed < 3 && MoxelRunLoopDispatch(-1) >= 0)
        continue;
    UnregisterMoxelClient(client);
    CleanupMoxelHandlers();
    return isExported ? EXIT_SUCCESS : EXIT_FAILURE;
}
