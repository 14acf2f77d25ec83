// An application that runs its thread's default sd-event loop: the handler is called there by itself.
#include <Moxel/MoxelClient.h>

#include <systemd/sd-event.h>

#include <stdio.h>
#include <stdlib.h>

static sd_event *loop;
static int wanted = 100;

static void message(uint32_t product, uint32_t type, void *argument) {
    (void)product;
    if (type != kMoxelMsgDeviceState || wanted == 0)
        return;
    const MoxelStateRecord *state = argument;
    printf("x %d, buttons %x\n", state->axis[0], state->buttons);
    if (--wanted == 0)
        sd_event_exit(loop, EXIT_SUCCESS);
}

int main(int argc, char **argv) {
    if (argc > 1)
        wanted = atoi(argv[1]);
    uint8_t name[] = "\010sd-event"; // Length-prefixed.
    if (sd_event_default(&loop) < 0) {
        fprintf(stderr, "There is no event loop.\n");
        return EXIT_FAILURE;
    }
    if (SetMoxelHandlers(message, NULL, NULL, false) != kMoxelResultOK) {
        fprintf(stderr, "No driver answers.\n");
        CleanupMoxelHandlers();
        sd_event_unref(loop);
        return EXIT_FAILURE;
    }
    const uint16_t client = RegisterMoxelClient(0x53644576, name, 0, 0xFFFFFFFF);
    if (client == 0)
        fprintf(stderr, "The driver did not register this program.\n");
    if (client != 0 && wanted > 0)
        sd_event_loop(loop);
    UnregisterMoxelClient(client);
    CleanupMoxelHandlers();
    sd_event_unref(loop);
    return client != 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
