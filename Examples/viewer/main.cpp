// A viewer: the controller moves a model, and its buttons reset the view or change how the model is drawn.
//
// usage: viewer [--frames FOLDER] [--screenshot FILE]
//     --frames FOLDER     saves a picture (BMP) for the start and one for each event; the folder must exist
//     --screenshot FILE   saves the last picture (BMP)
// With either it ends when the device is removed, as well as when its window is closed.
#include "Canvas.h"
#include "Controller.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <optional>
#include <string>

namespace viewer {
namespace {

struct Options {
    std::string frames;
    std::string screenshot;

    [[nodiscard]] bool endsWithDevice() const { return !frames.empty() || !screenshot.empty(); }
};

std::optional<Options> parse(int argc, char **argv) {
    Options options;
    for (int i = 1; i < argc; i += 2) {
        std::string *value = std::strcmp(argv[i], "--frames") == 0       ? &options.frames
                             : std::strcmp(argv[i], "--screenshot") == 0 ? &options.screenshot
                                                                         : nullptr;
        if (value == nullptr || i + 1 == argc)
            return std::nullopt;
        *value = argv[i + 1];
    }
    return options;
}

void take(const MoxelStateRecord &state, Scene &scene) {
    if (state.command == kMoxelStateApplicationEvent) {
        const auto command = static_cast<Command>(state.param);
        if (!state.appEventPressed || *label(command) == '\0')
            return;
        scene.command = label(command);
        if (command == Command::resetView)
            scene.pose = Pose();
        else
            scene.isWireFrame = command == Command::wireFrame;
        return;
    }
    std::ranges::copy(state.axis, scene.axes.begin());
    scene.buttons = state.buttons;
    if (state.command == kMoxelStateMotion)
        scene.pose.step(scene.axes);
}

class Viewer {
  public:
    explicit Viewer(Options options) : options_(std::move(options)) {}
    ~Viewer() { SDL_DestroyWindow(window_); }
    Viewer(const Viewer &) = delete;
    Viewer &operator=(const Viewer &) = delete;

    bool open() {
        window_ = SDL_CreateWindow("Moxel viewer", SDL_WINDOWPOS_CENTERED, SDL_WINDOWPOS_CENTERED,
                                   Canvas::width, Canvas::height, 0);
        return window_ != nullptr;
    }

    /// False when a picture cannot be shown or saved; SDL_GetError() tells why.
    bool run() {
        bool isShown = show();
        for (SDL_Event event; isShown && SDL_WaitEvent(&event) != 0 && !isEnd(event);) {
            const auto state = Controller::state(event);
            if (state)
                take(*state, scene_);
            // Several states make one picture, unless each has to be saved.
            const bool isLast = !SDL_HasEvents(SDL_FIRSTEVENT, SDL_LASTEVENT);
            if (options_.frames.empty() ? isLast : state != nullptr)
                isShown = show();
        }
        canvas_.draw(scene_);
        return isShown && (options_.screenshot.empty() || canvas_.save(options_.screenshot));
    }

  private:
    [[nodiscard]] bool isEnd(const SDL_Event &event) const {
        return event.type == SDL_QUIT || (Controller::isRemoval(event) && options_.endsWithDevice());
    }

    bool show() {
        canvas_.draw(scene_);
        SDL_Surface *shown = SDL_GetWindowSurface(window_);
        if (shown == nullptr || SDL_BlitSurface(canvas_.surface(), nullptr, shown, nullptr) != 0 ||
            SDL_UpdateWindowSurface(window_) != 0)
            return false;
        if (options_.frames.empty())
            return true;
        char name[32];
        std::snprintf(name, sizeof name, "/%05d.bmp", frame_++);
        return canvas_.save(options_.frames + name);
    }

    const Options options_;
    SDL_Window *window_ = nullptr;
    Canvas canvas_;
    Scene scene_;
    int frame_ = 0;
};

int view(const Options &options) {
    const Controller controller;
    if (!controller.isThere()) {
        std::fprintf(stderr, "No driver answers.\n");
        return EXIT_FAILURE;
    }
    Viewer viewer(options);
    if (viewer.open() && viewer.run())
        return EXIT_SUCCESS;
    std::fprintf(stderr, "%s\n", SDL_GetError());
    return EXIT_FAILURE;
}

} // namespace
} // namespace viewer

int main(int argc, char **argv) {
    const std::optional<viewer::Options> options = viewer::parse(argc, argv);
    if (!options) {
        std::fprintf(stderr, "usage: viewer [--frames FOLDER] [--screenshot FILE]\nThe folder must exist.\n");
        return 2;
    }
    if (SDL_Init(SDL_INIT_VIDEO) != 0) {
        std::fprintf(stderr, "No window: %s\n", SDL_GetError());
        return EXIT_FAILURE;
    }
    int status = EXIT_FAILURE;
    try {
        status = viewer::view(*options);
    } catch (const std::exception &exception) {
        std::fprintf(stderr, "%s\n", exception.what());
    }
    SDL_Quit();
    return status;
}
