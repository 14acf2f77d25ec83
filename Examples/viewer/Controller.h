// The session with the driver, which puts what happens to the controller into SDL's event queue.
#pragma once

#include <Moxel/MoxelClient.h>

#include <SDL.h>

#include <cstdint>
#include <memory>

namespace viewer {

/// Ask isThere() before anything else. Made after SDL_Init(), destroyed before SDL_Quit(), on the main
/// thread; the handlers run on a thread of the library's, so that no movement is lost while a picture is
/// drawn.
class Controller {
  public:
    Controller();
    ~Controller();
    Controller(const Controller &) = delete;
    Controller &operator=(const Controller &) = delete;

    /// False when no driver answers.
    [[nodiscard]] bool isThere() const { return client_ != 0; }

    /// What an SDL event holds of a state; null for other events.
    [[nodiscard]] static std::unique_ptr<MoxelStateRecord> state(const SDL_Event &event);
    [[nodiscard]] static bool isRemoval(const SDL_Event &event);

  private:
    uint16_t client_ = 0;
};

enum class Command : int16_t { resetView = 1, wireFrame = 2, shaded = 3 };

/// What stands on the buttons; empty for what is not a command.
[[nodiscard]] const char *label(Command command);

} // namespace viewer
