// A libuv application: its loop watches the library's descriptor and calls the handler.
#include <Moxel/MoxelClient.h>
#include <Moxel/MoxelRunLoop.h>

#include <uv.h>

#include <stdio.h>
#include <stdlib.h>

static int wanted = 100;

static void message(uint32_t product, uint32_t type, void *argument) {
    (void)product;
    if (type != kMoxelMsgDeviceState || wanted == 0)
        return;
    const MoxelStateRecord *state = argument;
    printf("x %d, buttons %x\n", state->axis[0], state->buttons);
    if (--wanted == 0)
        uv_stop(uv_default_loop());
}

static void eventsWait(uv_poll_t *descriptor, int status, int events) {
    (void)events;
    if (status >= 0 && MoxelRunLoopDispatch(0) >= 0)
        return;
    fprintf(stderr, "The library's events cannot be taken any more.\n");
    uv_stop(descriptor->loop);
}

// Returns when enough has come, or the descriptor cannot be watched (any more).
static void run(uv_loop_t *loop) {
    uv_poll_t descriptor;
    int error = uv_poll_init(loop, &descriptor, MoxelRunLoopGetFD());
    if (error == 0) {
        error = uv_poll_start(&descriptor, UV_READABLE, eventsWait);
        if (error == 0)
            uv_run(loop, UV_RUN_DEFAULT);
        uv_close((uv_handle_t *)&descriptor, NULL);
        uv_run(loop, UV_RUN_DEFAULT); // Closes it.
    }
    if (error != 0)
        fprintf(stderr, "The loop cannot watch the library: %s\n", uv_strerror(error));
}

int main(int argc, char **argv) {
    if (argc > 1)
        wanted = atoi(argv[1]);
    uint8_t name[] = "\005libuv"; // Length-prefixed.
    if (SetMoxelHandlers(message, NULL, NULL, false) != kMoxelResultOK) {
        fprintf(stderr, "No driver answers.\n");
        CleanupMoxelHandlers();
        return EXIT_FAILURE;
    }
    const uint16_t client = RegisterMoxelClient(0x4C627576, name, 0, 0xFFFFFFFF);
    if (client == 0)
        fprintf(stderr, "The driver did not register this program.\n");
    if (client != 0 && wanted > 0)
        run(uv_default_loop());
    uv_loop_close(uv_default_loop());
    UnregisterMoxelClient(client);
    CleanupMoxelHandlers();
    return client != 0 && wanted <= 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
