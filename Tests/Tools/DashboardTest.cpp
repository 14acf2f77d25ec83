// moxelctl monitor on a terminal.
#include "Tools/Terminal.h"
#include "Tools/ToolTest.h"

namespace moxel::test {
namespace {

class Dashboard : public ToolTest {
  protected:
    [[nodiscard]] ChildProcess::Environment inLocale(const std::string &locale) const {
        ChildProcess::Environment changed = environment();
        changed["LC_ALL"] = locale;
        return changed;
    }
    static std::string times(const std::string &text, int count) {
        std::string result;
        for (int i = 0; i < count; ++i)
            result += text;
        return result;
    }
};

TEST_F(Dashboard, ShowsBarsAndLampsAndTheLatestEvents) {
    startDaemon();
    Terminal terminal({MOXELCTL, "monitor", "--name", "demo"}, environment());
    ASSERT_TRUE(awaitListener());
    happen("added 0x4D580001");
    EXPECT_TRUE(terminal.awaitText("added        device 0x4D580001"));
    happen("motion 350 -175 0 0 0 0");
    EXPECT_TRUE(terminal.awaitText("x  [" + times(" ", 24) + "|" + times("█", 24) + "]    350\x1b[K"));
    EXPECT_TRUE(
        terminal.awaitText("y  [" + times(" ", 12) + times("█", 12) + "|" + times(" ", 24) + "]   -175"));
    happen("buttons 0x5");
    EXPECT_TRUE(terminal.awaitText("buttons ●○●○○○○○ ○○○○○○○○ ○○○○○○○○ ○○○○○○○○"));
    happen("pairing command=\"red \x1b[31m\"");
    EXPECT_TRUE(terminal.awaitText("pairing      {\"req\": \"red \\u001b[31m\"}"));
    EXPECT_TRUE(terminal.awaitText("\"demo\"   4 events"));
    terminal.press('\x03'); // Ctrl-C
    const std::string all = terminal.readToEnd();
    EXPECT_EQ(terminal.exitStatus(), 0);
    EXPECT_THAT(all, StartsWith("\x1b[?25l\x1b[?7l"));
    EXPECT_THAT(all, HasSubstr("\x1b[?7h\x1b[?25h4 events in "));
}

TEST_F(Dashboard, DrawsOverItsLastPicture) {
    startDaemon();
    Terminal terminal({MOXELCTL, "monitor", "--count", "2"}, environment());
    ASSERT_TRUE(awaitListener());
    happen("motion 1 0 0 0 0 0");
    EXPECT_TRUE(terminal.awaitText("1 event\x1b"));
    happen("motion 2 0 0 0 0 0");
    EXPECT_THAT(terminal.readToEnd(), HasSubstr("\x1b[13Aclient 1 \"moxelctl\"   2 events"));
    EXPECT_EQ(terminal.exitStatus(), 0);
}

TEST_F(Dashboard, DrawsWithPlainCharactersWhereTheLocaleHasNoOthers) {
    startDaemon();
    Terminal terminal({MOXELCTL, "monitor"}, inLocale("C"));
    ASSERT_TRUE(awaitListener());
    happen("motion 350 0 0 0 0 0");
    EXPECT_TRUE(terminal.awaitText("|" + times("#", 24) + "]"));
    happen("buttons 1");
    EXPECT_TRUE(terminal.awaitText("buttons O......."));
}

TEST_F(Dashboard, GivesWayToLines) {
    startDaemon();
    play("motion 350 0 0 0 0 0");
    Terminal terminal({MOXELCTL, "monitor", "--plain", "--count", "1"}, environment());
    EXPECT_THAT(terminal.readToEnd(), AllOf(HasSubstr("motion       axes 350 0 0"), Not(HasSubstr("\x1b"))));
}

} // namespace
} // namespace moxel::test
