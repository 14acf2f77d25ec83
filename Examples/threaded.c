// Handlers on a thread of the library's own: the application's thread takes the newest state when it has
// time.
#include <Moxel/MoxelClient.h>

#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>

static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t changed = PTHREAD_COND_INITIALIZER;
static MoxelStateRecord newest; // Guarded by the mutex, like the count.
static int count;

/// On the library's thread: short, and a copy, because the record is valid during the call only.
static void message(uint32_t product, uint32_t type, void *argument) {
    (void)product;
    if (type != kMoxelMsgDeviceState)
        return;
    pthread_mutex_lock(&mutex);
    newest = *(const MoxelStateRecord *)argument;
    ++count;
    pthread_cond_signal(&changed);
    pthread_mutex_unlock(&mutex);
}

/// Waits for more states than `seen`; returns how many there have been, and the last of them.
static int await(int seen, MoxelStateRecord *state) {
    pthread_mutex_lock(&mutex);
    while (count == seen)
        pthread_cond_wait(&changed, &mutex);
    *state = newest;
    seen = count;
    pthread_mutex_unlock(&mutex);
    return seen;
}

int main(int argc, char **argv) {
    const int wanted = argc > 1 ? atoi(argv[1]) : 100;
    uint8_t name[] = "\010threaded"; // Length-prefixed.
    if (SetMoxelHandlers(message, NULL, NULL, true) != kMoxelResultOK) {
        fprintf(stderr, "No driver answers.\n");
        CleanupMoxelHandlers();
        return EXIT_FAILURE;
    }
    const uint16_t client = RegisterMoxelClient(0x54687264, name, 0, 0xFFFFFFFF);
    if (client == 0)
        fprintf(stderr, "The driver did not register this program.\n");
    for (int seen = 0; client != 0 && seen < wanted;) {
        MoxelStateRecord state;
        seen = await(seen, &state);
        printf("%d: x %d, buttons %x\n", seen, state.axis[0], state.buttons);
    }
    UnregisterMoxelClient(client);
    CleanupMoxelHandlers();
    return client != 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
