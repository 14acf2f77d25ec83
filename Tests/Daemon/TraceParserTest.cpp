// Traces as text: every event, every kind of time, and everything that can be wrong.
#include "Moxel Daemon/Motion/TraceParser.h"
#include "Moxel Daemon/Protocol/DaemonMessages.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

namespace moxel::daemon {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

TraceBlock parsed(std::string_view text) {
    const Result<TraceBlock> trace = parseTrace(text);
    EXPECT_TRUE(trace.ok()) << text << "\n" << (trace.ok() ? "" : trace.error().message);
    return trace.ok() ? *trace : TraceBlock();
}

std::string problemOf(std::string_view text) {
    const Result<TraceBlock> trace = parseTrace(text);
    EXPECT_FALSE(trace.ok()) << text;
    return trace.ok() ? "" : trace.error().message;
}

template <class Event>
Event eventOf(std::string_view line) {
    const TraceBlock trace = parsed(line);
    EXPECT_EQ(trace.steps.size(), 1U) << line;
    if (trace.steps.empty())
        return {};
    const auto *event = std::get_if<TraceEvent>(&trace.steps[0].what);
    const auto *wanted = event ? std::get_if<Event>(event) : nullptr;
    EXPECT_TRUE(wanted) << line;
    return wanted ? *wanted : Event();
}

Dictionary messageOf(std::string_view line) { return eventOf<MessageEvent>(line).message; }

std::vector<std::chrono::nanoseconds> timesOf(const TraceBlock &block) {
    std::vector<std::chrono::nanoseconds> times;
    for (const TraceStep &step : block.steps)
        times.push_back(step.at);
    return times;
}

TEST(DaemonTrace, NothingIsATrace) {
    EXPECT_TRUE(parsed("").steps.empty());
    EXPECT_TRUE(parsed("\n  \t\r\n# comment\n   # another").steps.empty());
}

TEST(DaemonTrace, MotionHasSixAxes) {
    EXPECT_THAT(eventOf<MotionEvent>("motion 1 -2 0x10 32767 -32768 0").axis,
                ElementsAre(1, -2, 16, 32767, -32768, 0));
    for (const char *bad : {"motion", "motion 1 2 3 4 5", "motion 1 2 3 4 5 6 7", "motion 1 2 3 4 5 32768",
                            "motion 1 2 3 4 5 -32769", "motion 1 2 3 4 5 x", "motion 1 2 3 4 5 6.0",
                            "motion a=1 2 3 4 5 6", "motion 1 2 3 4 5 +6"})
        EXPECT_THAT(problemOf(bad), HasSubstr("should be written: motion X Y Z RX RY RZ")) << bad;
}

TEST(DaemonTrace, ButtonsAreAMask) {
    EXPECT_EQ(eventOf<ButtonsEvent>("buttons 0xFFFFFFFF").buttons, 0xFFFFFFFF);
    EXPECT_EQ(eventOf<ButtonsEvent>("buttons 5").buttons, 5U);
    for (const char *bad : {"buttons", "buttons 1 2", "buttons -1", "buttons 0x100000000", "buttons mask=1"})
        EXPECT_THAT(problemOf(bad), HasSubstr("should be written: buttons MASK")) << bad;
}

TEST(DaemonTrace, ApplicationEventsArePressedAndReleased) {
    const auto pressed = eventOf<ApplicationEvent>("appevent -7 pressed value=-100000");
    EXPECT_EQ(pressed.identifier, -7);
    EXPECT_TRUE(pressed.isPressed);
    EXPECT_EQ(pressed.value, -100000);
    EXPECT_FALSE(eventOf<ApplicationEvent>("appevent 7 released").isPressed);
    for (const char *bad :
         {"appevent", "appevent 7", "appevent 7 down", "appevent 32768 pressed", "appevent 7 pressed 1",
          "appevent 7 pressed value=x", "appevent 7 pressed other=1", "appevent 7 pressed value=\"1\""})
        EXPECT_THAT(problemOf(bad), HasSubstr("should be written: appevent ID")) << bad;
}

TEST(DaemonTrace, DevicesComeAndGo) {
    EXPECT_EQ(messageOf("identity 0x4D58 1"), deviceIdentityMessage(0x4D58, 1));
    EXPECT_EQ(messageOf("added 0x4D580001"), deviceAddedMessage(0x4D580001));
    EXPECT_EQ(messageOf("removed 1"), deviceRemovedMessage(1));
    for (const char *bad : {"identity", "identity 1", "identity 65536 1", "identity 1 2 3", "added",
                            "added -1", "added 1 2", "removed", "removed x"})
        EXPECT_THAT(problemOf(bad), HasSubstr("should be written")) << bad;
}

TEST(DaemonTrace, PreferencesAreMadeUpOrGiven) {
    EXPECT_EQ(messageOf("prefs"), preferencesMessage(0, plainPreferences(0x4D580001)));
    EXPECT_EQ(messageOf("prefs arg=3 device=7"), preferencesMessage(3, plainPreferences(7)));
    EXPECT_EQ(messageOf("prefs data=" + std::string(304, 'a')), preferencesMessage(0, Data(152, 0xAA)));
    for (const std::string &bad : {std::string("prefs 1"), std::string("prefs arg=x"),
                                   std::string("prefs data=00"), "prefs data=" + std::string(303, '0'),
                                   "prefs data=" + std::string(304, 'g'), std::string("prefs unknown=1")})
        EXPECT_THAT(problemOf(bad), HasSubstr("should be written: prefs")) << bad;
}

TEST(DaemonTrace, SyncBlocksAreMadeUpOrGiven) {
    EXPECT_EQ(messageOf("sync"), commandSyncMessage(32767, countingSyncBlock()));
    EXPECT_EQ(messageOf("sync pid=1 data=" + std::string(1012, '1')), commandSyncMessage(1, Data(506, 0x11)));
    for (const char *bad : {"sync 1", "sync pid=-1", "sync data=0011"})
        EXPECT_THAT(problemOf(bad), HasSubstr("should be written: sync")) << bad;
}

TEST(DaemonTrace, PairingHasACommandAndAnyEntries) {
    EXPECT_EQ(
        messageOf(R"(pairing command="paired" slot=1 big=18446744073709551615 low=-9223372036854775808 )"
                  R"(on=true off=false name="My \"Desk\" # 1" empty="")"),
        pairingMessage("paired", {{"slot", 1},
                                  {"big", UINT64_MAX},
                                  {"low", INT64_MIN},
                                  {"on", true},
                                  {"off", false},
                                  {"name", "My \"Desk\" # 1"},
                                  {"empty", ""}}));
    EXPECT_EQ(messageOf("cabled name=\"Gerät\""), cabledDeviceMessage({{"name", "Gerät"}}));
    EXPECT_EQ(messageOf("cabled"), cabledDeviceMessage({}));
    for (const char *bad :
         {"pairing", "pairing slot=1", "pairing command=paired", "pairing command=\"x\" word",
          "pairing command=\"x\" slot=word", "pairing command=\"x\" slot="})
        EXPECT_THAT(problemOf(bad), HasSubstr("should be written: pairing")) << bad;
}

TEST(DaemonTrace, QuestionsHaveNoArguments) {
    EXPECT_EQ(eventOf<AskEvent>("reregister"), AskEvent::toRegisterAgain);
    EXPECT_EQ(eventOf<AskEvent>("query"), AskEvent::forStoredData);
    (void)eventOf<PauseEvent>("pause");
    for (const char *bad : {"reregister 1", "query x", "pause 1"})
        EXPECT_THAT(problemOf(bad), HasSubstr("should be written")) << bad;
}

TEST(DaemonTrace, TimesCountFromTheStartOrFromTheLineBefore) {
    const TraceBlock trace =
        parsed("pause\n1.5 pause\npause\n+0.000000001 pause\n+0.5 pause\n3 pause\n1000000 pause\n");
    EXPECT_THAT(timesOf(trace), ElementsAre(0s, 1500ms, 1500ms, 1500ms + 1ns, 2000ms + 1ns, 3s, 1000000s));
    EXPECT_EQ(trace.duration, 1000000s);
}

TEST(DaemonTrace, BadTimesAreRefused) {
    for (const char *bad :
         {"1. pause", "1.0000000001 pause", "1e3 pause", "1,5 pause", "1s pause", "+ pause", "+-1 pause",
          "1000001 pause", "99999999999999999999 pause", "0x10 pause", "1.-5 pause", "+.5 pause"})
        EXPECT_THAT(problemOf(bad), HasSubstr("is no time in seconds")) << bad;
    EXPECT_THAT(problemOf("1"), HasSubstr("a time but no event"));
    EXPECT_THAT(problemOf("1 2 pause"), HasSubstr("no event \"2\""));
    EXPECT_THAT(problemOf("2 pause\n1.999 pause"), StartsWith("line 2: earlier"));
    EXPECT_THAT(problemOf("-1 pause"), HasSubstr("no event \"-1\""));
}

TEST(DaemonTrace, RepeatsHoldABlock) {
    const TraceBlock trace = parsed("1 repeat 3\n 0.1 buttons 1\n +0.1 buttons 0\n 0.5 end\n+1 pause\n");
    EXPECT_THAT(timesOf(trace), ElementsAre(1s, 3500ms));
    const auto &repeat = std::get<TraceRepeat>(trace.steps[0].what);
    EXPECT_EQ(repeat.count, 3U);
    EXPECT_EQ(repeat.block->duration, 500ms);
    EXPECT_THAT(timesOf(*repeat.block), ElementsAre(100ms, 200ms));
    EXPECT_EQ(trace.duration, 3500ms);
}

TEST(DaemonTrace, RepeatsCanBeNestedAndEndless) {
    const TraceBlock trace = parsed("repeat 2\nrepeat forever\n1 pause\nend\nend\n");
    const auto &outer = std::get<TraceRepeat>(trace.steps.at(0).what);
    EXPECT_EQ(std::get<TraceRepeat>(outer.block->steps.at(0).what).count, 0U);
    std::string deep;
    for (int level = 0; level < 8; ++level)
        deep += "repeat 2\n";
    deep += "0.1 pause\n";
    std::string ends;
    for (int level = 0; level < 8; ++level)
        ends += "end\n";
    EXPECT_EQ(parsed(deep + ends).duration, 25600ms);
    EXPECT_THAT(problemOf("repeat 1\n" + deep + ends), HasSubstr("nested too deep"));
}

TEST(DaemonTrace, BadRepeatsAreRefused) {
    for (const char *bad :
         {"repeat", "repeat 0", "repeat -1", "repeat 1000001", "repeat ever", "repeat 1 2", "repeat n=1"})
        EXPECT_THAT(problemOf(bad), HasSubstr("should be written: repeat")) << bad;
    EXPECT_THAT(problemOf("repeat 2\npause\n"), StartsWith("line 1: this repeat has no end"));
    EXPECT_THAT(problemOf("pause\nend\n"), StartsWith("line 2: there is no repeat to end"));
    EXPECT_THAT(problemOf("repeat 2\npause\nend 5\n"), StartsWith("line 3: this should be written: end"));
    EXPECT_THAT(problemOf("repeat forever\npause\nend\n"), StartsWith("line 3: what is repeated for ever"));
    EXPECT_THAT(problemOf("repeat forever\n1 pause\nend\npause\n"), StartsWith("line 4: nothing can follow"));
    EXPECT_THAT(problemOf("repeat 2\nrepeat forever\n1 pause\nend\npause\nend\n"),
                StartsWith("line 5: nothing can"));
    EXPECT_THAT(problemOf("repeat 1000000\n1000000 pause\nend\n"), StartsWith("line 3: later than a trace"));
    EXPECT_THAT(problemOf("repeat 2\n1 pause\nend\n1.9 pause"), StartsWith("line 4: earlier"));
}

TEST(DaemonTrace, BadLinesAreNamed) {
    EXPECT_EQ(problemOf("pause\n\n# x\nbuttons\n"), "line 4: this should be written: buttons MASK");
    EXPECT_THAT(problemOf("jump 1"), HasSubstr("there is no event \"jump\""));
    EXPECT_THAT(problemOf("Motion 0 0 0 0 0 0"), HasSubstr("there is no event"));
    EXPECT_THAT(problemOf("key=1"), HasSubstr("must begin with its name"));
    EXPECT_THAT(problemOf("cabled ="), HasSubstr("nothing in front"));
    EXPECT_THAT(problemOf("cabled \"x\""), HasSubstr("quotation mark may only"));
    EXPECT_THAT(problemOf("cabled a=\"x"), HasSubstr("quotation mark is missing"));
    EXPECT_THAT(problemOf("cabled a=\"x\\"), HasSubstr("quotation mark is missing"));
    EXPECT_THAT(problemOf("pause \xFF"), HasSubstr("not UTF-8"));
    EXPECT_THAT(problemOf("cabled a=\"" + std::string(5000, 'x') + "\""), HasSubstr("longer than 4096"));
    EXPECT_THAT(problemOf(std::string("pause\0", 6)), HasSubstr("there is no event"));
}

TEST(DaemonTrace, NoCutOrChangedTraceDoesHarm) {
    const std::string text =
        "0.5 motion 1 2 3 4 5 6\n1 repeat 2\n pairing command=\"x\" a=1\n 0.2 end\n+1 sync\n";
    for (size_t size = 0; size <= text.size(); ++size)
        (void)parseTrace(std::string_view(text).substr(0, size)).ok();
    int refused = 0;
    for (size_t position = 0; position < text.size(); ++position)
        for (const char replacement : {'\0', '"', '=', '\n', '#', '9', '\x80', '+', '.'}) {
            std::string changed = text;
            changed[position] = replacement;
            refused += parseTrace(changed).ok() ? 0 : 1;
        }
    EXPECT_GT(refused, 100);
}

TEST(DaemonTrace, FilesAreReadWhole) {
    const test::TemporaryFolder folder;
    const Result<TraceBlock> trace = loadTrace(folder.write("good.trace", "1 pause\n2 pause"));
    ASSERT_TRUE(trace.ok());
    EXPECT_EQ(trace->duration, 2s);
    const std::string bad = folder.write("bad.trace", "pause\nnonsense\n");
    EXPECT_EQ(loadTrace(bad).error().message, bad + ": line 2: there is no event \"nonsense\"");
    EXPECT_THAT(loadTrace(folder.path("none")).error().message, HasSubstr("No such file"));
    EXPECT_FALSE(loadTrace(folder.path()).ok());
    EXPECT_THAT(loadTrace(folder.write("huge", std::string((16 << 20) + 1, '\n'))).error().message,
                HasSubstr("larger than 16 MiB"));
}

TEST(DaemonTrace, TracesThatShipAreGood) {
    int count = 0;
    for (const auto &entry : std::filesystem::directory_iterator(MOXEL_TRACES)) {
        const Result<TraceBlock> trace = loadTrace(entry.path());
        EXPECT_TRUE(trace.ok()) << (trace.ok() ? "" : trace.error().message);
        ++count;
    }
    EXPECT_GE(count, 4);
    EXPECT_EQ(loadTrace(std::string(MOXEL_TRACES) + "/demo.trace")->duration, 6s);
}

} // namespace
} // namespace moxel::daemon
