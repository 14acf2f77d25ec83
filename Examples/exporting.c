// Commands of an application on the device's buttons: exports an action set and an image for one of them, and
// prints each command that a button presses. Ends after three.
#include <Moxel/MoxelClient.h>
#include <Moxel/MoxelRunLoop.h>

#include <stdio.h>
#include <stdlib.h>

// In the order in which they stand on the buttons.
static MoxelCommandSyncNode_s actions[] = {
    {.type = kMoxelNodeAction, .next = &actions[1], .id = "copy", .label = "Copy"},
    {.type = kMoxelNodeAction, .next = &actions[2], .id = "paste", .label = "Paste"},
    {.type = kMoxelNodeAction, .id = "undo", .label = "Undo", .description = "Takes the last step back"},
};
static MoxelCommandSyncNode_s editing = {
    .type = kMoxelNodeActionSet, .children = actions, .id = "edit", .label = "Editing"};

// Of the command with the same identifier; a file's path will do as well (kMoxelImageFile).
static const char copyDrawing[] =
    "<?xml version='1.0'?><svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 16 16' fill='none' "
    "stroke='black'><rect x='1' y='1' width='9' height='9'/><rect x='5' y='5' width='10' height='10'/></svg>";
static MoxelImage_s images[] = {
    {.type = kMoxelImageData, .id = "copy", .image = {.size = sizeof copyDrawing - 1}}};

static int pressed;

static void message(uint32_t product, uint32_t type, void *argument) {
    (void)product;
    const MoxelStateRecord *state = argument;
    if (type != kMoxelMsgDeviceState || state->command != kMoxelStateApplicationEvent ||
        !state->appEventPressed)
        return;
    if (state->param < 1 || state->param > 3)
        return;
    printf("%s\n", actions[state->param - 1].label);
    fflush(stdout);
    ++pressed;
}

static int exportCommands(uint16_t client) {
    images[0].image.data = (const uint8_t *)copyDrawing;
    return MoxelClientWriteImages(client, kMoxelExportImages, images, 1) == kMoxelResultOK &&
           MoxelClientWriteCommands(client, kMoxelExportTree, 0, &editing) == kMoxelResultOK &&
           MoxelClientActivateActionSet(client, editing.id) == kMoxelResultOK;
}

int main(void) {
    uint8_t name[] = "\011exporting"; // Length-prefixed.
    if (SetMoxelHandlers(message, NULL, NULL, false) != kMoxelResultOK) {
        fprintf(stderr, "No driver answers.\n");
        CleanupMoxelHandlers();
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
