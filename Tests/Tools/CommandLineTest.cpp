// The command line as a whole: help, usage errors, exit codes.
#include "Tools/ToolTest.h"

namespace moxel::test {
namespace {

using CommandLine = ToolTest;

const std::vector<std::string> commands = {"list",     "doctor", "monitor", "control",  "mask",
                                           "prefs",    "send",   "export",  "commands", "search",
                                           "settings", "dump",   "record",  "replay"};

TEST_F(CommandLine, HelpListsTheCommandsAndTheExitCodes) {
    const Finished help = run({"--help"});
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_EQ(help.errors, "");
    for (const std::string &command : commands)
        EXPECT_THAT(help.output, HasSubstr("\n  " + command + " "));
    EXPECT_THAT(help.output, HasSubstr("Exit codes:\n  0  success\n"));
    EXPECT_THAT(help.output, HasSubstr("  5  the driver does not answer a request\n"));
}

TEST_F(CommandLine, EveryCommandHasHelpWithExamples) {
    for (const std::string &command : commands) {
        const Finished help = run({command, "--help"});
        EXPECT_EQ(help.exitCode, 0);
        EXPECT_THAT(help.output, HasSubstr("Examples:\n  "));
        EXPECT_THAT(help.output, HasSubstr("moxelctl " + command)) << help.output;
        for (size_t from = 0; from < help.output.size();) {
            const size_t end = help.output.find('\n', from);
            EXPECT_LE(end - from, 120U) << help.output.substr(from, end - from);
            from = end + 1;
        }
    }
}

TEST_F(CommandLine, WrongUsageIsExplained) {
    for (const Arguments &arguments : std::vector<Arguments>{{},
                                                             {"nonsense"},
                                                             {"list", "surplus"},
                                                             {"monitor", "--nonsense"},
                                                             {"monitor", "--seconds", "-1"},
                                                             {"monitor", "--seconds", "soon"},
                                                             {"monitor", "--require", "nonsense"},
                                                             {"prefs", "--device", "x"},
                                                             {"send"}}) {
        const Finished wrong = run(arguments);
        EXPECT_EQ(wrong.exitCode, 2) << ::testing::PrintToString(arguments);
        EXPECT_THAT(wrong.errors, HasSubstr("Run with --help for more information."));
        EXPECT_EQ(wrong.output, "");
    }
}

} // namespace
} // namespace moxel::test
