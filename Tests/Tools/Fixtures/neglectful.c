// An application that installs handlers, registers, and then never runs its run loop.
#include <Moxel/MoxelClient.h>

#include <stddef.h>
#include <unistd.h>

static void message(uint32_t product, uint32_t type, void *argument) {
    (void)product;
    (void)type;
    (void)argument;
}

int main(void) {
    uint8_t name[] = "\012neglectful"; // Length-prefixed.
    if (SetMoxelHandlers(message, NULL, NULL, false) != kMoxelResultOK)
        return 1;
    if (RegisterMoxelClient(0x4E65676C, name, 0, 0xFFFFFFFF) == 0)
        return 1;
    for (;;)
        pause();
}
