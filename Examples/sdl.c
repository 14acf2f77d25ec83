// A game with SDL: what has come from the controller is taken between two frames, and colours the next one.
#include <Moxel/MoxelClient.h>
#include <Moxel/MoxelRunLoop.h>

#include <SDL.h>

#include <stdio.h>
#include <stdlib.h>

static int wanted = 1000000;
static int16_t axes[3];

static void message(uint32_t product, uint32_t type, void *argument) {
    (void)product;
    if (type != kMoxelMsgDeviceState || wanted == 0)
        return;
    const MoxelStateRecord *state = argument;
    for (int i = 0; i < 3; ++i)
        axes[i] = state->axis[i];
    printf("x %d, buttons %x\n", state->axis[0], state->buttons);
    --wanted;
}

static Uint8 brightness(int16_t axis) { return (Uint8)(128 + SDL_clamp(axis, -350, 350) * 127 / 350); }

static int isClosed(void) {
    int closed = 0;
    for (SDL_Event event; SDL_PollEvent(&event);)
        closed = closed || event.type == SDL_QUIT;
    return closed;
}

static void play(SDL_Renderer *renderer) {
    while (wanted > 0 && !isClosed()) {
        MoxelRunLoopDispatch(0); // Calls the handler for what has come since the last frame.
        SDL_SetRenderDrawColor(renderer, brightness(axes[0]), brightness(axes[1]), brightness(axes[2]), 255);
        SDL_RenderClear(renderer);
        SDL_RenderPresent(renderer);
        SDL_Delay(10);
    }
}

int main(int argc, char **argv) {
    if (argc > 1)
        wanted = atoi(argv[1]);
    uint8_t name[] = "\003sdl"; // Length-prefixed.
    if (SetMoxelHandlers(message, NULL, NULL, false) != kMoxelResultOK) {
        fprintf(stderr, "No driver answers.\n");
        CleanupMoxelHandlers();
        return EXIT_FAILURE;
    }
    const uint16_t client = RegisterMoxelClient(0x53444C32, name, 0, 0xFFFFFFFF);
    SDL_Window *window = NULL;
    SDL_Renderer *renderer = NULL;
    const int isReady = client != 0 && SDL_Init(SDL_INIT_VIDEO) == 0 &&
                        SDL_CreateWindowAndRenderer(320, 240, 0, &window, &renderer) == 0;
    if (isReady)
        play(renderer);
    else if (client == 0)
        fprintf(stderr, "The driver did not register this program.\n");
    else
        fprintf(stderr, "No window: %s\n", SDL_GetError());
    SDL_DestroyRenderer(renderer);
    SDL_DestroyWindow(window);
    SDL_Quit();
    UnregisterMoxelClient(client);
    CleanupMoxelHandlers();
    return isReady ? EXIT_SUCCESS : EXIT_FAILURE;
}
