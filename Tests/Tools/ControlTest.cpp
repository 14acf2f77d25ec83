// moxelctl control, mask, prefs and send: what reaches the driver, and what is told when it does not answer.
#include "Tools/ToolTest.h"

namespace moxel::test {
namespace {

class Requests : public ToolTest {
  protected:
    /// The first request of that name; a failed test when none comes.
    [[nodiscard]] daemon::ReceivedRequest awaitRequest(const std::string &name) const {
        const auto request = moxeld->waitForRequest(
            [&name](const daemon::ReceivedRequest &candidate) { return candidate.name == name; }, patience);
        EXPECT_TRUE(request.has_value()) << name;
        return request.value_or(daemon::ReceivedRequest{});
    }
};

// ------------------------------------------------------------------------------------------ control

using Control = Requests;

TEST_F(Control, SendsTheCodeAndItsParameter) {
    startDaemon();
    const Finished control = run({"control", "abcd", "0x10"});
    EXPECT_EQ(control.exitCode, 0) << control.errors;
    EXPECT_EQ(control.output, "abcd 16: acknowledged\n");
    EXPECT_EQ(daemon::controlRequest(awaitRequest("moxclientctrl").dictionary),
              (daemon::ControlRequest{0x61626364, 16}));
    EXPECT_TRUE(awaitNoClients());
}

TEST_F(Control, TakesNumbersAndNegativeParameters) {
    startDaemon();
    const Finished control = run({"control", "--json", "0x61626364", "--", "-1"});
    EXPECT_EQ(control.exitCode, 0) << control.errors;
    EXPECT_EQ(Json::parse(control.output), Json({{"code", "abcd"}, {"number", 0x61626364}, {"param", -1}}));
    EXPECT_EQ(daemon::controlRequest(awaitRequest("moxclientctrl").dictionary),
              (daemon::ControlRequest{0x61626364, -1}));
    EXPECT_THAT(run({"control", "7"}).output, "0x00000007 0: acknowledged\n");
    EXPECT_THAT(run({"control", "1234"}).output, "1234 0: acknowledged\n") << "four characters";
}

TEST_F(Control, AsksForTheDevice) {
    startDaemon();
    EXPECT_EQ(run({"control", "mvid"}).output, "device 0x4D580001 (vendor 0x4D58, product 0x0001)\n");
    play("identity 0xABCD 0x1234");
    const Finished control = run({"control", "mvid", "--wait", "30", "--json"});
    EXPECT_EQ(Json::parse(control.output), Json({{"code", "mvid"},
                                                 {"number", 0x6D766964},
                                                 {"param", 0},
                                                 {"device", 0xABCD1234},
                                                 {"vendor", 0xABCD},
                                                 {"product", 0x1234}}));
}

TEST_F(Control, TellsThatACodeIsIgnored) {
    startDaemon();
    EXPECT_EQ(run({"control", "mveh"}).output, "mveh: ignored by the library\n");
}

TEST_F(Control, SaysThatTheDriverDoesNotAcknowledge) {
    startDaemonWithFault("no-acknowledgement");
    const Finished control = run({"control", "abcd"});
    EXPECT_EQ(control.exitCode, 5);
    EXPECT_EQ(control.output, "");
    EXPECT_EQ(control.errors,
              "moxelctl: the driver does not acknowledge \"abcd\": Timeout - Failed to receive ACK "
              "packet in time...\n  It may not know the code, or hang: \"moxelctl list\" shows whether "
              "it answers.\n");
}

TEST_F(Control, RefusesWhatIsNoCodeAndNoParameter) {
    for (const Arguments &arguments : std::vector<Arguments>{{"control"},
                                                             {"control", "abc"},
                                                             {"control", "0x100000000"},
                                                             {"control", "abcd", "x"},
                                                             {"control", "abcd", "4294967296"},
                                                             {"control", "abcd", "1", "2"}}) {
        const Finished control = run(arguments);
        EXPECT_EQ(control.exitCode, 2);
        EXPECT_THAT(control.errors, HasSubstr("--help"));
    }
    EXPECT_THAT(run({"control", "abc"}).errors, HasSubstr("\"abc\" is neither four characters nor a number"));
}

TEST_F(Control, SaysWhyThereIsNoDriver) {
    EXPECT_EQ(run({"control", "abcd"}).exitCode, 3);
    EXPECT_EQ(run({"mask", "--events", "none"}).exitCode, 3);
    EXPECT_EQ(run({"prefs"}).exitCode, 3);
    EXPECT_EQ(run({"send", "-"}, "x").exitCode, 3);
    EXPECT_EQ(run({"record", folder.path("trace")}).exitCode, 3);
    EXPECT_THAT(run({"control", "abcd"}).errors, HasSubstr("no driver answers: there is no bus folder"));
}

// ------------------------------------------------------------------------------------------ mask

using Mask = Requests;

TEST_F(Mask, SetsBothMasksAndShowsWhatStillComes) {
    startDaemon();
    ChildProcess mask = startTool({"mask", "--events", "buttons", "--buttons", "2", "--count", "1"});
    const auto isSet = [](const daemon::Observation &seen) {
        return seen.clients.size() == 1 && seen.clients[0].buttonMask == 2;
    };
    ASSERT_TRUE(moxeld->waitUntil(isSet, patience));
    EXPECT_EQ(moxeld->clients().at(0).eventMask, 2U);
    const Result<daemon::TraceBlock> trace = daemon::parseTrace("motion 1 0 0 0 0 0\nbuttons 1\nbuttons 3");
    ASSERT_TRUE(moxeld->playTrace(*trace).ok());
    const Finished ended = finish(mask);
    EXPECT_THAT(ended.output, MatchesRegex("[^\n]*  buttons [^\n]*  buttons 0x00000002\n"));
    EXPECT_THAT(ended.errors, StartsWith("masks set: events 0x00000002 buttons 0x00000002\n1 event in "));
    EXPECT_EQ(ended.exitCode, 0);
}

TEST_F(Mask, SetsOnlyTheMaskThatIsGiven) {
    startDaemon();
    const Finished mask = run({"mask", "--buttons", "0xF0", "--seconds", "0"});
    EXPECT_THAT(mask.errors, StartsWith("masks set: buttons 0x000000F0\n"));
    const daemon::MaskRequest request = *daemon::maskRequest(awaitRequest("setclientmasks").dictionary);
    EXPECT_EQ(request.buttonMask, 0xF0U);
    EXPECT_FALSE(request.eventMask.has_value());
}

TEST_F(Mask, KnowsNamesAndNumbers) {
    startDaemon();
    for (const auto &[text, number] :
         std::vector<std::pair<std::string, std::string>>{{"all", "FFFFFFFF"},
                                                          {"none", "00000000"},
                                                          {"motion,application", "00000005"},
                                                          {"6", "00000006"},
                                                          {"0x80000000", "80000000"}})
        EXPECT_THAT(run({"mask", "--events", text, "--seconds", "0"}).errors,
                    StartsWith("masks set: events 0x" + number + "\n"));
    EXPECT_THAT(run({"mask", "--buttons", "1,32", "--seconds", "0"}).errors,
                StartsWith("masks set: buttons 0x80000001\n"));
}

TEST_F(Mask, SaysThatTheDriverDoesNotAcknowledge) {
    startDaemonWithFault("no-acknowledgement");
    const Finished mask = run({"mask", "--events", "motion"});
    EXPECT_EQ(mask.exitCode, 5);
    EXPECT_EQ(mask.errors,
              "moxelctl: the driver does not acknowledge the masks: Timeout - Failed to receive ACK packet "
              "in time...\n  \"moxelctl list\" shows whether it answers.\n");
}

TEST_F(Mask, RefusesWhatIsNoMask) {
    for (const Arguments &arguments : std::vector<Arguments>{{"mask"},
                                                             {"mask", "--events", "wheel"},
                                                             {"mask", "--events", "motion,"},
                                                             {"mask", "--events", ""},
                                                             {"mask", "--events", "4294967296"},
                                                             {"mask", "--buttons", "0"},
                                                             {"mask", "--buttons", "33"},
                                                             {"mask", "--buttons", "0x"},
                                                             {"mask", "--seconds", "1"}}) {
        const Finished mask = run(arguments);
        EXPECT_EQ(mask.exitCode, 2) << ::testing::PrintToString(arguments);
        EXPECT_THAT(mask.errors, HasSubstr("--help"));
    }
    EXPECT_THAT(run({"mask"}).errors, HasSubstr("give --events, --buttons or both"));
}

// ------------------------------------------------------------------------------------------ prefs

using Prefs = Requests;

constexpr const char *preferencesTrace = "identity 0x4D58 0x0002\nprefs device=0x4D580002";

TEST_F(Prefs, ShowsThoseOfTheCurrentDevice) {
    startDaemon();
    play(preferencesTrace);
    const Finished prefs = run({"prefs", "--seconds", "30"});
    EXPECT_EQ(prefs.exitCode, 0) << prefs.errors;
    EXPECT_THAT(
        prefs.output,
        StartsWith("device    0x4D580002\nheader    00 00 00 00\nsettings  144 bytes\n"
                   "  00000000  00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00  ................\n"));
}

TEST_F(Prefs, PrintsJson) {
    startDaemon();
    std::string bytes = "01020304"
                        "78563412";
    for (int i = 0; i < 144; ++i)
        bytes += "a5";
    play("added 0x12345678\nprefs data=" + bytes);
    const Finished prefs = run({"prefs", "--json", "--seconds", "30"});
    EXPECT_EQ(Json::parse(prefs.output),
              Json({{"device", 0x12345678}, {"header", "01020304"}, {"settings", bytes.substr(16)}}))
        << prefs.errors;
}

TEST_F(Prefs, ShowsThoseOfTheDeviceThatIsNamed) {
    startDaemon();
    play("prefs device=0x77");
    EXPECT_THAT(run({"prefs", "--device", "0x77", "--seconds", "30"}).output,
                StartsWith("device    0x00000077\n"));
}

TEST_F(Prefs, SaysThatNoneCame) {
    startDaemon();
    const Finished prefs = run({"prefs", "--seconds", "0.1"});
    EXPECT_EQ(prefs.exitCode, 1);
    EXPECT_EQ(prefs.errors,
              "moxelctl: the driver sent no preferences\n  Wait longer with --seconds, and change a "
              "preference meanwhile.\n");
}

TEST_F(Prefs, SaysThatThoseOfAnotherDeviceCame) {
    startDaemon();
    play("prefs device=0x77");
    const Finished unnamed = run({"prefs", "--seconds", "3"});
    EXPECT_EQ(unnamed.exitCode, 1);
    EXPECT_EQ(unnamed.errors,
              "moxelctl: the driver sent preferences of another device\n  Name the device with --device; "
              "\"moxelctl monitor\" shows devices that arrive.\n");
    play("prefs device=0x77");
    const Finished named = run({"prefs", "--device", "1", "--seconds", "3"});
    EXPECT_EQ(named.exitCode, 1);
    EXPECT_THAT(named.errors, HasSubstr("Leave out --device"));
}

TEST_F(Prefs, SaysThatTheDriverLeft) {
    startDaemon();
    ChildProcess prefs = startTool({"prefs", "--seconds", "60"});
    ASSERT_TRUE(moxeld->waitForClient(patience).has_value());
    moxeld.reset();
    const Finished ended = finish(prefs);
    EXPECT_EQ(ended.exitCode, 3);
    EXPECT_THAT(ended.errors, HasSubstr("the driver went away before it sent preferences"));
}

// ------------------------------------------------------------------------------------------ send

using Send = Requests;

TEST_F(Send, SendsAFileAsItIs) {
    startDaemon();
    const std::string message = "hello\0driver";
    const Finished send = run({"send", folder.write("message", message)});
    EXPECT_EQ(send.exitCode, 0) << send.errors;
    EXPECT_EQ(send.output, std::to_string(message.size()) + " bytes sent\n");
    EXPECT_EQ(awaitRequest("").bytes, daemon::Data(message.begin(), message.end()));
}

TEST_F(Send, SendsStandardInputInSlices) {
    startDaemon();
    const Finished send = run({"send", "-"}, std::string(2043, 'x'));
    EXPECT_EQ(send.output, "2043 bytes sent in 2 slices, all acknowledged\n") << send.errors;
    EXPECT_EQ(awaitRequest("").bytes.size(), 2042U);
}

TEST_F(Send, PrintsJson) {
    startDaemon();
    EXPECT_EQ(Json::parse(run({"send", "-", "--json"}, "x").output),
              Json({{"bytes", 1}, {"slices", 1}, {"acknowledged", false}}));
    EXPECT_EQ(Json::parse(run({"send", "-", "--json"}, std::string(5000, 'x')).output),
              Json({{"bytes", 5000}, {"slices", 3}, {"acknowledged", true}}));
}

TEST_F(Send, SaysThatTheDriverDoesNotAcknowledge) {
    startDaemonWithFault("no-acknowledgement");
    const Finished send = run({"send", "-"}, std::string(2043, 'x'));
    EXPECT_EQ(send.exitCode, 5);
    EXPECT_THAT(send.errors, StartsWith("moxelctl: the driver did not take the message: Timeout"));
}

TEST_F(Send, SaysWhatIsWrongWithTheFile) {
    const Finished missing = run({"send", folder.path("none")});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_EQ(missing.errors,
              "moxelctl: cannot read " + folder.path("none") + ": No such file or directory\n");
    const Finished empty = run({"send", "-"});
    EXPECT_EQ(empty.exitCode, 1);
    EXPECT_EQ(empty.errors, "moxelctl: standard input is empty: there is nothing to send\n");
}

} // namespace
} // namespace moxel::test
