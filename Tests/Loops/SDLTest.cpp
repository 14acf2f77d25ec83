// Applications with SDL's event loop: one that draws frames, and one that sleeps until an event comes.
#include "Support/LoopTest.h"

#include <SDL.h>

#include <chrono>

namespace moxel::test {
namespace {

class SDLLoop : public LoopTest {
  protected:
    void SetUp() override {
        LoopTest::SetUp();
        ASSERT_EQ(SDL_Init(SDL_INIT_VIDEO), 0) << SDL_GetError();
        window = SDL_CreateWindow("", 0, 0, 64, 64, 0);
        ASSERT_NE(window, nullptr) << SDL_GetError();
    }
    void TearDown() override {
        LoopTest::TearDown(); // First, as its handlers push events.
        SDL_DestroyWindow(window);
        SDL_Quit();
    }

    EnvironmentVariable driver{"SDL_VIDEODRIVER", "dummy"};
    SDL_Window *window = nullptr;
};

TEST_F(SDLLoop, DeliversAnEventOnTheApplicationsThreadBetweenTwoFrames) {
    beginSession();
    pressButton();
    bool running = true;
    whenAnEventComes([&running] { running = false; });
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(patienceMilliseconds);
    while (running && std::chrono::steady_clock::now() < deadline) {
        SDL_Event event;
        while (SDL_PollEvent(&event) != 0) {
        }
        MoxelRunLoopDispatch(0);
        SDL_UpdateWindowSurface(window);
    }
    expectEventsOnThisThread(1);
}

TEST_F(SDLLoop, WakesForAnEventOfAThreadedSession) {
    static Uint32 buttonEvent = 0;
    buttonEvent = SDL_RegisterEvents(1);
    ASSERT_EQ(_SetMoxelHandlers(
                  [](uint32_t, uint32_t, void *, void *) {
                      SDL_Event event{};
                      event.type = buttonEvent;
                      SDL_PushEvent(&event);
                  },
                  nullptr, nullptr, nullptr, true),
              0);
    ASSERT_NE(registerAs("Test"), 0);
    pressButton();
    SDL_Event event{};
    while (event.type != buttonEvent && SDL_WaitEventTimeout(&event, patienceMilliseconds) != 0) {
    }
    EXPECT_EQ(event.type, buttonEvent);
}

} // namespace
} // namespace moxel::test
