// A Qt application: its event loop calls the handler.
#include <Moxel/MoxelClient.h>
#include <Moxel/MoxelQt.h>

#include <QtCore/QCoreApplication>

#include <cstdio>
#include <cstdlib>

static int wanted = 100;

static void message(uint32_t, uint32_t type, void *argument) {
    if (type != kMoxelMsgDeviceState || wanted == 0)
        return;
    const auto *state = static_cast<const MoxelStateRecord *>(argument);
    std::printf("x %d, buttons %x\n", state->axis[0], state->buttons);
    if (--wanted == 0)
        QCoreApplication::quit();
}

int main(int argc, char **argv) {
    const QCoreApplication application(argc, argv);
    if (argc > 1)
        wanted = std::atoi(argv[1]);
    uint8_t name[] = "\002qt"; // Length-prefixed.
    if (SetMoxelHandlers(message, nullptr, nullptr, false) != kMoxelResultOK) {
        std::fprintf(stderr, "No driver answers.\n");
        CleanupMoxelHandlers();
        return EXIT_FAILURE;
    }
    const uint16_t client = RegisterMoxelClient(0x51744C70, name, 0, 0xFFFFFFFF);
    if (client == 0)
        std::fprintf(stderr, "The driver did not register this program.\n");
    bool isAttached = false;
    {
        const MoxelQtRunLoop runLoop;
        isAttached = runLoop.isAttached();
        if (!isAttached)
            std::fprintf(stderr, "The event loop cannot watch the library.\n");
        if (client != 0 && isAttached && wanted > 0)
            QCoreApplication::exec();
    }
    UnregisterMoxelClient(client);
    CleanupMoxelHandlers();
    return client != 0 && isAttached ? EXIT_SUCCESS : EXIT_FAILURE;
}
