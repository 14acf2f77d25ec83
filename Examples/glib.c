// A GLib application, as every GTK application is one: its main loop calls the handler.
#include <Moxel/MoxelClient.h>
#include <Moxel/MoxelGLib.h>

#include <stdio.h>
#include <stdlib.h>

static GMainLoop *loop;
static int wanted = 100;

static void message(uint32_t product, uint32_t type, void *argument) {
    (void)product;
    if (type != kMoxelMsgDeviceState || wanted == 0)
        return;
    const MoxelStateRecord *state = argument;
    printf("x %d, buttons %x\n", state->axis[0], state->buttons);
    if (--wanted == 0)
        g_main_loop_quit(loop);
}

int main(int argc, char **argv) {
    if (argc > 1)
        wanted = atoi(argv[1]);
    uint8_t name[] = "\004glib"; // Length-prefixed.
    if (SetMoxelHandlers(message, NULL, NULL, false) != kMoxelResultOK) {
        fprintf(stderr, "No driver answers.\n");
        CleanupMoxelHandlers();
        return EXIT_FAILURE;
    }
    const uint16_t client = RegisterMoxelClient(0x474C6962, name, 0, 0xFFFFFFFF);
    if (client == 0)
        fprintf(stderr, "The driver did not register this program.\n");
    GSource *attachment = MoxelGLibAttach();
    const int isAttached = attachment != NULL;
    if (!isAttached)
        fprintf(stderr, "The main loop cannot watch the library.\n");
    loop = g_main_loop_new(NULL, FALSE);
    if (client != 0 && isAttached && wanted > 0)
        g_main_loop_run(loop);
    MoxelGLibDetach(attachment);
    UnregisterMoxelClient(client);
    CleanupMoxelHandlers();
    g_main_loop_unref(loop);
    return client != 0 && isAttached ? EXIT_SUCCESS : EXIT_FAILURE;
}
