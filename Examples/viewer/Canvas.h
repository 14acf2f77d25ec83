// The picture: the model on the left, the axes and the last command on the right.
#pragma once

#include "Model.h"
#include "Pose.h"

#include <SDL.h>

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace viewer {

/// All that a picture shows.
struct Scene {
    Pose pose;
    bool isWireFrame = false;
    std::array<int16_t, 6> axes{};
    uint32_t buttons = 0;
    std::string command; ///< Label of the last one.
};

/// Draws into memory, without the help of a graphics card. Lives on the main thread.
class Canvas {
  public:
    static constexpr int width = 720;
    static constexpr int height = 480;

    Canvas();

    void draw(const Scene &scene);
    /// The picture that was drawn last; the canvas's own.
    [[nodiscard]] SDL_Surface *surface() const { return surface_.get(); }
    /// False when the file cannot be written; SDL_GetError() tells why.
    [[nodiscard]] bool save(const std::string &file) const;

  private:
    struct Freer {
        void operator()(SDL_Surface *surface) const { SDL_FreeSurface(surface); }
        void operator()(SDL_Renderer *renderer) const { SDL_DestroyRenderer(renderer); }
    };

    void drawModel(const Scene &scene);
    void drawShaded(std::vector<Face> faces);
    void drawWires(const std::vector<Face> &faces);
    void drawAxes(const std::array<int16_t, 6> &axes);
    void drawButtons(uint32_t buttons);
    void drawText(const std::string &text, int x, int y, int dotSize, Colour colour);
    void fill(SDL_Rect rectangle, Colour colour);

    const std::vector<Face> model_ = makeKnot();
    std::unique_ptr<SDL_Surface, Freer> surface_;
    std::unique_ptr<SDL_Renderer, Freer> renderer_; ///< Ends first: it draws into the surface.
};

} // namespace viewer
