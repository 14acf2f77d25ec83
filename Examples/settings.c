// Settings that outlive the application: counts its starts, and says when somebody changes a setting.
#include <Moxel/MoxelClient.h>
#include <Moxel/MoxelRunLoop.h>

#include <stdio.h>
#include <stdlib.h>

static int changes;

static void message(uint32_t product, uint32_t type, void *argument) {
    (void)product;
    if (type != kMoxelMsgSettingsFileChanged)
        return;
    const MoxelSettingsChange *change = argument;
    printf(change->reason == 1 ? "the settings are gone\n" : "the settings have changed\n");
    fflush(stdout);
    ++changes;
}

/// The number that is stored under that name; 0 when there is none.
static int readNumber(uint16_t client, const char *name) {
    char text[32];
    uint64_t length = sizeof text;
    if (MoxelClientGetSettingValue(client, name, text, &length) != kMoxelResultOK)
        return 0;
    return atoi(text);
}

static int writeNumber(uint16_t client, const char *name, int number) {
    char text[32];
    snprintf(text, sizeof text, "%d", number);
    return MoxelClientSetSettingValue(client, name, text) == kMoxelResultOK;
}

/// usage: settings [CHANGES TO WAIT FOR]
int main(int argc, char **argv) {
    const int wanted = argc > 1 ? atoi(argv[1]) : 0;
    uint8_t name[] = "\010settings"; // Length-prefixed.
    if (SetMoxelHandlers(message, NULL, NULL, false) != kMoxelResultOK) {
        fprintf(stderr, "No driver answers.\n");
        CleanupMoxelHandlers();
        return EXIT_FAILURE;
    }
    const uint16_t client = RegisterMoxelClient(0x53657474, name, 0, 0xFFFFFFFF);
    const int starts = client != 0 ? readNumber(client, "starts") + 1 : 0;
    const int isStored = client != 0 && writeNumber(client, "starts", starts);
    if (isStored)
        printf("start number %d\n", starts);
    else
        fprintf(stderr, "The settings cannot be stored.\n");
    fflush(stdout);
    while (isStored && changes < wanted && MoxelRunLoopDispatch(-1) >= 0)
        continue;
    UnregisterMoxelClient(client);
    CleanupMoxelHandlers();
    return isStored ? EXIT_SUCCESS : EXIT_FAILURE;
}
