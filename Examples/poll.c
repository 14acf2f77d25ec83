// A loop of the application's own: polls the library's descriptor beside standard input, on one thread.
#include <Moxel/MoxelClient.h>
#include <Moxel/MoxelRunLoop.h>

#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static void message(uint32_t product, uint32_t type, void *argument, void *context) {
    (void)product;
    (void)argument;
    if (type == kMoxelMsgDeviceState)
        ++*(int *)context;
}

static void added(uint32_t device, void *context) {
    (void)context;
    printf("device 0x%08x is there\n", device);
}

static void removed(uint32_t device, void *context) {
    (void)context;
    printf("device 0x%08x is gone\n", device);
}

/// Echoes what was typed; 0 at the end of input.
static int readInput(int states) {
    char text[256];
    const ssize_t length = read(STDIN_FILENO, text, sizeof text - 1);
    if (length <= 0)
        return 0;
    text[length] = '\0';
    text[strcspn(text, "\n")] = '\0';
    printf("typed \"%s\" after %d states\n", text, states);
    return 1;
}

int main(void) {
    int states = 0;
    uint8_t name[] = "\004poll";
    if (_SetMoxelHandlers(message, added, removed, &states, false) != kMoxelResultOK) {
        fprintf(stderr, "No driver answers.\n");
        CleanupMoxelHandlers();
        return EXIT_FAILURE;
    }
    const uint16_t client = RegisterMoxelClient(0x506F6C6C, name, 0, 0xFFFFFFFF);
    if (client != 0)
        printf("registered as %d\n", client);
    else
        fprintf(stderr, "The driver did not register this program.\n");
    fflush(stdout);
    struct pollfd descriptors[] = {{MoxelRunLoopGetFD(), POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
    int running = client != 0;
    while (running && poll(descriptors, 2, -1) > 0) {
        if (descriptors[0].revents)
            MoxelRunLoopDispatch(0);
        if (descriptors[1].revents)
            running = readInput(states);
        fflush(stdout);
    }
    printf("%d states\n", states);
    UnregisterMoxelClient(client);
    CleanupMoxelHandlers();
    return client != 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
