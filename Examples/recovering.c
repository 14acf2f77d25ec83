// Outlives the driver: when the driver goes, takes the session down and begins another as soon as a driver is
// there.
#include <Moxel/MoxelClient.h>
#include <Moxel/MoxelRunLoop.h>

#include <stdio.h>
#include <stdlib.h>

static unsigned long handled; // States of this session.

static void message(uint32_t product, uint32_t type, void *argument) {
    (void)product;
    (void)argument;
    if (type == kMoxelMsgDeviceState && handled++ == 0) {
        printf("The controller moves.\n");
        fflush(stdout);
    }
}

// Returns when there is a driver.
static uint16_t beginSession(void) {
    uint8_t name[] = "\012recovering"; // Length-prefixed.
    uint16_t client = 0;
    handled = 0;
    while (client == 0) {
        // Waits up to two seconds for the driver, so that this loop needs no pause.
        if (SetMoxelHandlers(message, NULL, NULL, false) == kMoxelResultOK)
            client = RegisterMoxelClient(0x5265636F, name, 0, 0xFFFFFFFF);
        if (client == 0)
            CleanupMoxelHandlers();
    }
    return client;
}

static void endSession(uint16_t client) {
    UnregisterMoxelClient(client);
    CleanupMoxelHandlers();
}

// A code that the driver takes and does nothing about.
static bool driverAnswers(uint16_t client) {
    return MoxelClientControl(client, kMoxelCtlIgnored, 0, NULL) == kMoxelResultOK;
}

int main(int argc, char **argv) {
    int quiet = argc > 1 ? atoi(argv[1]) : 1000; // Milliseconds without an event until the driver is asked.
    for (;;) {
        uint16_t client = beginSession();
        while (MoxelRunLoopDispatch(quiet) > 0 || driverAnswers(client))
            continue;
        printf("The driver is gone.\n");
        fflush(stdout);
        endSession(client);
    }
}
