// The example programs against a daemon; what cannot be built here is skipped.
#include "Support/ExportFolders.h"
#include "Tools/ToolTest.h"

#include <unistd.h>

namespace moxel::test {
namespace {

class Example : public ToolTest {
  protected:
    void SetUp() override {
        folders.write(folders.applicationSupport() + "/Moxel/MxlWare/MxlCommands.plist",
                      "<plist><dict/></plist>");
    }
    [[nodiscard]] static std::string program(const std::string &name) {
        return std::string(MOXEL_EXAMPLES) + "/" + name;
    }
    [[nodiscard]] static bool isBuilt(const std::string &name) {
        return ::access(program(name).c_str(), X_OK) == 0;
    }
    [[nodiscard]] ChildProcess startExample(const std::string &name, Arguments arguments = {}) const {
        arguments.insert(arguments.begin(), program(name));
        ChildProcess::Environment variables = environment();
        variables["SDL_VIDEODRIVER"] = "dummy";
        return ChildProcess(arguments, variables);
    }

    ExportFolders folders;
};

// ------------------------------------------------------------------------------------------ Loops

class LoopExample : public Example, public ::testing::WithParamInterface<std::string> {};

std::string loopName(const ::testing::TestParamInfo<std::string> &parameter) {
    std::string name = parameter.param;
    std::erase(name, '-');
    return name;
}

INSTANTIATE_TEST_SUITE_P(Loops, LoopExample,
                         ::testing::Values("glib-loop", "qt-loop", "sdl-loop", "libuv-loop", "sd-event-loop"),
                         loopName);

TEST_P(LoopExample, PrintsTheStatesThatComeAndEnds) {
    if (!isBuilt(GetParam()))
        GTEST_SKIP() << GetParam() << " is not built: its library is not installed";
    startDaemon();
    play("buttons 1\nbuttons 3\nbuttons 0\n");
    ChildProcess example = startExample(GetParam(), {"3"});
    const Finished ended = finish(example);
    EXPECT_EQ(ended.output, "x 0, buttons 1\nx 0, buttons 3\nx 0, buttons 0\n");
    EXPECT_EQ(ended.errors, "");
    EXPECT_EQ(ended.exitCode, 0);
    EXPECT_TRUE(awaitNoClients());
}

TEST_P(LoopExample, SaysThatNoDriverAnswers) {
    if (!isBuilt(GetParam()))
        GTEST_SKIP() << GetParam() << " is not built: its library is not installed";
    ChildProcess example = startExample(GetParam());
    const Finished ended = finish(example);
    EXPECT_EQ(ended.errors, "No driver answers.\n");
    EXPECT_EQ(ended.exitCode, 1);
}

// ------------------------------------------------------------------------------------------ Ideas

TEST_F(Example, ThreadedTakesTheNewestState) {
    startDaemon();
    play("buttons 1\nbuttons 3\nbuttons 0\n");
    ChildProcess example = startExample("threaded", {"3"});
    const Finished ended = finish(example);
    EXPECT_THAT(ended.output, EndsWith("3: x 0, buttons 0\n"));
    EXPECT_EQ(ended.exitCode, 0);
}

TEST_F(Example, SettingsOutliveTheApplication) {
    startDaemon();
    for (const char *line : {"start number 1\n", "start number 2\n"}) {
        ChildProcess example = startExample("settings");
        const Finished ended = finish(example);
        EXPECT_EQ(ended.output, line);
        EXPECT_EQ(ended.errors, "");
        EXPECT_EQ(ended.exitCode, 0);
    }
}

TEST_F(Example, SettingsTellsThatSomebodyChangedOne) {
    startDaemon();
    ChildProcess waiting = startExample("settings", {"1"});
    EXPECT_EQ(waiting.readLine(), "start number 1");
    ChildProcess changing = startExample("settings");
    EXPECT_EQ(finish(changing).output, "start number 2\n");
    EXPECT_EQ(waiting.readLine(), "the settings have changed");
    EXPECT_EQ(waiting.exitStatus(), 0);
}

} // namespace
} // namespace moxel::test
