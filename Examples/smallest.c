// The smallest application: prints the controller's state, a line for each change.
#include <Moxel/MoxelClient.h>
#include <Moxel/MoxelRunLoop.h>

#include <stdio.h>
#include <stdlib.h>

static int count;

static void message(uint32_t product, uint32_t type, void *argument) {
    (void)product;
    if (type == kMoxelMsgDeviceState) {
        const MoxelStateRecord *state = argument;
        printf("%6d %6d %6d  %6d %6d %6d  %08x\n", state->axis[0], state->axis[1], state->axis[2],
               state->axis[3], state->axis[4], state->axis[5], state->buttons);
        ++count;
    }
}

int main(int argc, char **argv) {
    const int wanted = argc > 1 ? atoi(argv[1]) : 100;
    uint8_t name[] = "\010smallest"; // Length-prefixed.
    if (SetMoxelHandlers(message, NULL, NULL, false) != kMoxelResultOK) {
        fprintf(stderr, "No driver answers.\n");
        CleanupMoxelHandlers();
        return EXIT_FAILURE;
    }
    const uint16_t client = RegisterMoxelClient(0x536D616C, name, 0, 0xFFFFFFFF);
    if (client == 0)
        fprintf(stderr, "The driver did not register this program.\n");
    while (client != 0 && count < wanted && MoxelRunLoopDispatch(-1) >= 0)
        continue;
    UnregisterMoxelClient(client);
    CleanupMoxelHandlers();
    return client != 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
