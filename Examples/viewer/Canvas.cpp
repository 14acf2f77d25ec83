#include "Canvas.h"

#include "Font.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

namespace viewer {

namespace {

constexpr Colour background{22, 26, 34};
constexpr Colour panel{34, 40, 52};
constexpr Colour rule{90, 100, 120};
constexpr Colour text{200, 208, 220};
constexpr Colour bright{255, 196, 64};

constexpr int modelWidth = 480;
constexpr double distance = 5; // From the eye to the origin.
constexpr double magnification = 620;
constexpr int fullDeflection = 350;

constexpr int panelMargin = 16;
constexpr int barMiddle = 620;
constexpr int barLength = 84; // At full deflection.
constexpr int barHeight = 14;
constexpr int firstBar = 56;
constexpr int barDistance = 30;

SDL_FPoint project(Vector point) {
    const double scale = magnification / (distance - std::min(point.z, distance - 0.5));
    return {static_cast<float>(modelWidth / 2.0 + point.x * scale),
            static_cast<float>(Canvas::height / 2.0 - point.y * scale)};
}

Vector centre(const Face &face) {
    return (face.corners[0] + face.corners[1] + face.corners[2] + face.corners[3]) * 0.25;
}

Vector normal(const Face &face) {
    return normalised(cross(face.corners[2] - face.corners[0], face.corners[3] - face.corners[1]));
}

bool isSeen(const Face &face) { return dot(normal(face), Vector{0, 0, distance} - centre(face)) > 0; }

/// A lamp behind the viewer's left shoulder, and some light from everywhere.
Colour lit(const Face &face) {
    static const Vector lamp = normalised({-0.5, 0.7, 0.9});
    const double light = 0.25 + 0.75 * std::max(0.0, dot(normal(face), lamp));
    const auto channel = [light](uint8_t value) { return static_cast<uint8_t>(value * light); };
    return {channel(face.colour.red), channel(face.colour.green), channel(face.colour.blue)};
}

} // namespace

Canvas::Canvas()
    : surface_(SDL_CreateRGBSurfaceWithFormat(0, width, height, 32, SDL_PIXELFORMAT_RGB888)),
      renderer_(surface_ ? SDL_CreateSoftwareRenderer(surface_.get()) : nullptr) {
    if (!renderer_)
        throw std::runtime_error(SDL_GetError());
}

bool Canvas::save(const std::string &file) const { return SDL_SaveBMP(surface_.get(), file.c_str()) == 0; }

void Canvas::draw(const Scene &scene) {
    fill({0, 0, width, height}, background);
    drawModel(scene);
    fill({modelWidth, 0, width - modelWidth, height}, panel);
    drawText("Axes", modelWidth + panelMargin, 20, 2, rule);
    drawAxes(scene.axes);
    drawText("Buttons", modelWidth + panelMargin, 250, 2, rule);
    drawButtons(scene.buttons);
    drawText("Last command", modelWidth + panelMargin, 360, 2, rule);
    drawText(scene.command, modelWidth + panelMargin, 390, 3, bright);
    SDL_RenderPresent(renderer_.get());
}

// ------------------------------------------------------------------------------------------ The model

void Canvas::drawModel(const Scene &scene) {
    std::vector<Face> placed = model_;
    for (Face &face : placed)
        for (Vector &corner : face.corners)
            corner = scene.pose.place(corner);
    std::erase_if(placed, [](const Face &face) { return !isSeen(face); });
    if (scene.isWireFrame)
        drawWires(placed);
    else
        drawShaded(std::move(placed));
}

/// Nearer faces over farther ones.
void Canvas::drawShaded(std::vector<Face> faces) {
    std::ranges::stable_sort(faces, {}, [](const Face &face) { return centre(face).z; });
    std::vector<SDL_Vertex> vertices;
    for (const Face &face : faces) {
        const Colour colour = lit(face);
        for (const size_t corner : {0U, 1U, 2U, 0U, 2U, 3U})
            vertices.push_back(
                {project(face.corners[corner]), {colour.red, colour.green, colour.blue, 255}, {0, 0}});
    }
    SDL_RenderGeometry(renderer_.get(), nullptr, vertices.data(), static_cast<int>(vertices.size()), nullptr,
                       0);
}

void Canvas::drawWires(const std::vector<Face> &faces) {
    for (const Face &face : faces) {
        SDL_SetRenderDrawColor(renderer_.get(), face.colour.red, face.colour.green, face.colour.blue, 255);
        const SDL_FPoint from = project(face.corners[0]);
        for (const size_t corner : {1U, 3U}) {
            const SDL_FPoint to = project(face.corners[corner]);
            SDL_RenderDrawLineF(renderer_.get(), from.x, from.y, to.x, to.y);
        }
    }
}

// ------------------------------------------------------------------------------------------ The panel

void Canvas::drawAxes(const std::array<int16_t, 6> &axes) {
    constexpr std::array names{"X", "Y", "Z", "RX", "RY", "RZ"};
    constexpr std::array colours{Colour{232, 92, 80},   Colour{110, 200, 90},  Colour{90, 150, 240},
                                 Colour{240, 150, 140}, Colour{170, 220, 140}, Colour{150, 190, 250}};
    for (size_t axis = 0; axis < axes.size(); ++axis) {
        const int y = firstBar + static_cast<int>(axis) * barDistance;
        drawText(names[axis], modelWidth + panelMargin, y, 2, text);
        const int length =
            std::clamp<int>(axes[axis], -fullDeflection, fullDeflection) * barLength / fullDeflection;
        fill({std::min(barMiddle, barMiddle + length), y, std::abs(length), barHeight}, colours[axis]);
        fill({barMiddle, y - 3, 1, barHeight + 6}, rule);
    }
}

void Canvas::drawButtons(uint32_t buttons) {
    constexpr int columns = 8;
    for (int button = 0; button < 2 * columns; ++button) {
        const SDL_Rect lamp{modelWidth + panelMargin + button % columns * 26, 280 + button / columns * 26, 18,
                            18};
        fill(lamp, (buttons >> button & 1) != 0 ? bright : background);
    }
}

void Canvas::drawText(const std::string &line, int x, int y, int dotSize, Colour colour) {
    for (const char character : line) {
        const auto columns = glyph(character);
        for (int column = 0; column < glyphWidth; ++column)
            for (int row = 0; row < glyphHeight; ++row)
                if ((columns[static_cast<size_t>(column)] >> row & 1) != 0)
                    fill({x + column * dotSize, y + row * dotSize, dotSize, dotSize}, colour);
        x += (glyphWidth + 1) * dotSize;
    }
}

void Canvas::fill(SDL_Rect rectangle, Colour colour) {
    SDL_SetRenderDrawColor(renderer_.get(), colour.red, colour.green, colour.blue, 255);
    SDL_RenderFillRect(renderer_.get(), &rectangle);
}

} // namespace viewer
