// The viewer example: what a trace does to its pictures.
#include "Support/ExportFolders.h"
#include "Support/Picture.h"
#include "Tools/ToolTest.h"

#include <cmath>
#include <filesystem>
#include <unistd.h>

namespace moxel::test {
namespace {

class Viewer : public ToolTest {
  protected:
    static constexpr Region modelRegion{0, 0, 480, 480};
    static constexpr Region panelRegion{480, 0, 720, 480};
    static constexpr const char *program = MOXEL_EXAMPLES "/viewer/viewer";

    void SetUp() override {
        if (::access(program, X_OK) != 0)
            GTEST_SKIP() << "the viewer is not built: libsdl2-dev is not installed";
        startDaemon();
    }

    /// Plays a trace to a new viewer, until the device goes.
    void view(const std::string &trace, const Arguments &options) const {
        play(trace + "\nremoved 0x4D580001\n");
        Arguments arguments{program};
        arguments.insert(arguments.end(), options.begin(), options.end());
        ChildProcess::Environment variables = environment();
        variables["SDL_VIDEODRIVER"] = "dummy";
        ChildProcess viewer(arguments, variables);
        const Finished ended = finish(viewer);
        EXPECT_EQ(ended.exitCode, 0) << ended.errors;
        EXPECT_TRUE(awaitNoClients());
    }
    /// The picture at the start, and the one after each event.
    [[nodiscard]] std::vector<Picture> frames(const std::string &trace) const {
        const std::string place = folder.path("frames");
        std::filesystem::create_directory(place);
        view(trace, {"--frames", place});
        std::vector<std::string> files;
        for (const auto &entry : std::filesystem::directory_iterator(place))
            files.push_back(entry.path());
        std::ranges::sort(files);
        return {files.begin(), files.end()};
    }
    [[nodiscard]] Picture screenshot(const std::string &trace, const std::string &name) const {
        view(trace, {"--screenshot", folder.path(name)});
        return Picture(folder.path(name));
    }
    [[nodiscard]] static Blob model(const Picture &picture) {
        const Pixel background = picture.at(0, 0);
        return blob(modelRegion, [&](int x, int y) { return picture.at(x, y) != background; });
    }
    [[nodiscard]] static Blob redPart(const Picture &picture) {
        return blob(modelRegion, [&](int x, int y) {
            const Pixel pixel = picture.at(x, y);
            return pixel.red > 2 * pixel.green && pixel.red > 2 * pixel.blue;
        });
    }

    ExportFolders folders;
};

TEST_F(Viewer, TranslationsMoveTheModel) {
    const auto pictures = frames("motion 350 0 0 0 0 0\nmotion -350 0 0 0 0 0\nmotion 0 350 0 0 0 0\n"
                                 "motion 0 -350 0 0 0 0\nmotion 0 0 350 0 0 0");
    ASSERT_EQ(pictures.size(), 6U);
    const Blob start = model(pictures[0]);
    ASSERT_GT(start.size, 10'000);
    const Blob right = model(pictures[1]);
    EXPECT_GT(right.x, start.x + 5);
    EXPECT_NEAR(right.y, start.y, 1);
    EXPECT_EQ(difference(pictures[2], pictures[0], modelRegion).size, 0) << "it is back";
    const Blob up = model(pictures[3]);
    EXPECT_LT(up.y, start.y - 5);
    EXPECT_NEAR(up.x, start.x, 1);
    const Blob near = model(pictures[5]);
    EXPECT_GT(near.size, start.size * 1.01);
    EXPECT_NEAR(near.x, start.x, 1);
}

TEST_F(Viewer, RotationsTurnTheModelWhereItIs) {
    for (const char *axes : {"350 0 0", "0 350 0", "0 0 350"}) {
        const auto pictures = frames(std::string("motion 0 0 0 ") + axes);
        ASSERT_EQ(pictures.size(), 2U);
        const Blob start = model(pictures[0]);
        const Blob turned = model(pictures[1]);
        EXPECT_NEAR(turned.x, start.x, 8) << axes;
        EXPECT_NEAR(turned.y, start.y, 8) << axes;
        EXPECT_GT(difference(pictures[0], pictures[1], modelRegion).size, start.size / 20) << axes;
    }
}

TEST_F(Viewer, AboutTheLineOfSightItTurnsCounterclockwise) {
    const auto pictures = frames("motion 0 0 0 0 0 350");
    ASSERT_EQ(pictures.size(), 2U);
    const auto angle = [](const Picture &picture) {
        const Blob red = redPart(picture);
        EXPECT_GT(red.size, 200);
        return std::atan2(240 - red.y, red.x - 240); // Rows count downwards.
    };
    EXPECT_NEAR(std::remainder(angle(pictures[1]) - angle(pictures[0]), 2 * std::acos(-1.0)), 0.08, 0.05);
}

TEST_F(Viewer, BarsAreAsLongAsTheAxes) {
    const auto pictures = frames("motion 350 0 0 0 0 0\nmotion 0 0 0 0 0 0\nmotion 175 0 0 0 0 0\n"
                                 "motion 0 0 0 0 0 0\nmotion -350 0 0 0 0 0\nmotion 0 0 0 0 0 0\n"
                                 "motion 0 0 0 0 0 350");
    ASSERT_EQ(pictures.size(), 8U);
    const Region full = difference(pictures[0], pictures[1], panelRegion).bounds;
    const Region half = difference(pictures[0], pictures[3], panelRegion).bounds;
    const Region negative = difference(pictures[0], pictures[5], panelRegion).bounds;
    const Region last = difference(pictures[0], pictures[7], panelRegion).bounds;
    EXPECT_GT(full.right - full.left, 60);
    EXPECT_NEAR((full.right - full.left) / 2.0, half.right - half.left, 1);
    EXPECT_EQ(half.left, full.left);
    EXPECT_NEAR(negative.right, full.left, 1);
    EXPECT_NEAR(negative.right - negative.left, full.right - full.left, 1);
    EXPECT_GT(last.top, full.bottom) << "each axis has a bar of its own";
    EXPECT_EQ(difference(pictures[0], pictures[2], panelRegion).size, 0);
}

TEST_F(Viewer, ShowsTheLastCommandAndObeysIt) {
    const auto pictures = frames("motion 350 350 350 350 350 350\nappevent 2 pressed\nappevent 2 released\n"
                                 "appevent 3 pressed\nappevent 1 pressed");
    ASSERT_EQ(pictures.size(), 6U);
    const Blob label = difference(pictures[1], pictures[2], panelRegion);
    EXPECT_GT(label.size, 500);
    EXPECT_LT(model(pictures[2]).size, model(pictures[1]).size * 0.9) << "wires";
    EXPECT_EQ(difference(pictures[2], pictures[3], {0, 0, 720, 480}).size, 0) << "released";
    EXPECT_EQ(difference(pictures[4], pictures[1], modelRegion).size, 0) << "shaded again";
    const Blob other = difference(pictures[2], pictures[4], panelRegion);
    EXPECT_GT(other.size, 100);
    EXPECT_EQ(other.bounds.left, label.bounds.left);
    EXPECT_EQ(difference(pictures[5], pictures[0], modelRegion).size, 0) << "the view is reset";
}

TEST_F(Viewer, LightsTheLampOfAButtonBeyondTheEighth) {
    ChildProcess::Environment variables = environment();
    variables["SDL_VIDEODRIVER"] = "dummy";
    ChildProcess viewer({program, "--screenshot", folder.path("lamps.bmp")}, variables);
    ASSERT_TRUE(awaitListener());
    happen("buttons 0x100\nremoved 0x4D580001");
    const Finished ended = finish(viewer);
    EXPECT_EQ(ended.exitCode, 0) << ended.errors;
    const Picture picture(folder.path("lamps.bmp"));
    const Pixel first = picture.at(505, 289);
    EXPECT_NE(picture.at(505, 315), first) << "the ninth, below the first";
    EXPECT_EQ(picture.at(531, 315), first) << "the tenth";
}

TEST_F(Viewer, TheSameTraceGivesTheSamePicture) {
    const std::string trace = "motion 100 -200 300 150 250 -350\nmotion 0 50 -300 350 0 350\nbuttons 5\n"
                              "appevent 2 pressed\nmotion 10 20 30 40 50 60";
    const Picture first = screenshot(trace, "first.bmp");
    EXPECT_EQ(first.width(), 720);
    EXPECT_EQ(first.height(), 480);
    EXPECT_EQ(screenshot(trace, "second.bmp").bytes(), first.bytes());
    EXPECT_NE(screenshot(trace + "\nmotion 10 20 30 40 50 60", "third.bmp").bytes(), first.bytes());
}

TEST_F(Viewer, SaysThatAPictureCannotBeSaved) {
    play("removed 0x4D580001");
    ChildProcess viewer({program, "--screenshot", folder.path("nowhere/x.bmp")},
                        {{"MOXEL_HID_BUS", bus}, {"MOXEL_LOG", "off"}, {"SDL_VIDEODRIVER", "dummy"}});
    const Finished ended = finish(viewer);
    EXPECT_EQ(ended.exitCode, 1);
    EXPECT_THAT(ended.errors, HasSubstr("nowhere/x.bmp"));
}

TEST_F(Viewer, SaysThatNoDriverAnswers) {
    moxeld.reset();
    ChildProcess viewer({program},
                        {{"MOXEL_HID_BUS", bus}, {"MOXEL_LOG", "off"}, {"SDL_VIDEODRIVER", "dummy"}});
    const Finished ended = finish(viewer);
    EXPECT_EQ(ended.exitCode, 1);
    EXPECT_EQ(ended.errors, "No driver answers.\n");
}

} // namespace
} // namespace moxel::test
