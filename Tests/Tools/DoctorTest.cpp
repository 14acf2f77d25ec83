// moxelctl doctor: what it says of each link of the chain, sound and broken.
#include "Support/BusPublisher.h"
#include "Tools/ToolTest.h"
#include "Tools/moxelctl/DriverDiagnosis.h"
#include "Tools/moxelctl/SurveyChecks.h"

#include <csignal>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

namespace moxel::test {
namespace {

using ::testing::ElementsAre;

class Doctor : public ToolTest {
  protected:
    /// What the doctor reports; how long it waits for an event is of no interest where none is to come.
    [[nodiscard]] Json report(int exitCode, Arguments arguments = {"--seconds", "0.1"}) const {
        arguments.insert(arguments.begin(), {"doctor", "--json"});
        const Finished doctor = run(arguments);
        EXPECT_EQ(doctor.exitCode, exitCode) << doctor.output << doctor.errors;
        Json all = Json::parse(doctor.output, nullptr, false);
        EXPECT_TRUE(all.is_object()) << doctor.output;
        EXPECT_EQ(all["ok"], exitCode == 0);
        return all;
    }
    [[nodiscard]] static Json check(const Json &report, const std::string &name) {
        for (const Json &check : report["checks"]) {
            if (check["name"] == name)
                return check;
        }
        ADD_FAILURE() << name << " is not reported: " << report;
        return {};
    }
    [[nodiscard]] static std::vector<std::string> states(const Json &report) {
        std::vector<std::string> states;
        for (const Json &check : report["checks"])
            states.push_back(check["state"]);
        return states;
    }
    void makeBus() const { ASSERT_EQ(::mkdir(bus.c_str(), 0700), 0); }
};

TEST_F(Doctor, PrintsALineForEachLinkWhenAllIsWell) {
    startDaemon();
    play("motion 350 0 0 0 0 0");
    const Finished doctor = run({"doctor"});
    EXPECT_EQ(doctor.exitCode, 0) << doctor.output << doctor.errors;
    EXPECT_EQ(doctor.errors, "");
    EXPECT_THAT(doctor.output,
                MatchesRegex("bus           ok       .*/bus belongs to user [0-9]+, mode 0[0-7]+\n"
                             "driver        ok       tools_tests answers, process [0-9]+, on "
                             "MxlVirtualHIDData_Base[0-9A-F]+\n"
                             "devices       ok       [^\n]*\n"
                             "session       ok       [^\n]*\n"
                             "registration  ok       the driver calls this program client 1\n"
                             "mask          ok       the driver sends this program all events\n"
                             "event         ok       motion, after [0-9.]+ s\n"
                             "loop          skipped  [^\n]*\n"));
    EXPECT_TRUE(awaitNoClients());
}

// ------------------------------------------------------------------------------------------ The bus

TEST_F(Doctor, SaysThatThereIsNoBusFolder) {
    const Json all = report(3);
    EXPECT_EQ(check(all, "bus")["finding"], "there is no bus folder " + bus);
    EXPECT_THAT(std::string(check(all, "bus")["remedy"]), HasSubstr("Start the driver (moxeld)."));
    EXPECT_THAT(states(all),
                ElementsAre("wrong", "skipped", "ok", "ok", "skipped", "skipped", "skipped", "skipped"));
}

TEST_F(Doctor, SaysThatOthersMayWriteToTheBusFolder) {
    makeBus();
    ASSERT_EQ(::chmod(bus.c_str(), 0777), 0);
    const Json all = report(3);
    EXPECT_THAT(std::string(check(all, "bus")["finding"]), EndsWith("its group or others may write to it"));
    EXPECT_THAT(std::string(check(all, "bus")["remedy"]), HasSubstr("chmod go-w " + bus));
}

TEST_F(Doctor, SaysThatTheBusFolderBelongsToSomebodyElse) {
    if (::getuid() != 0)
        GTEST_SKIP() << "needs root";
    makeBus();
    ASSERT_EQ(::chown(bus.c_str(), 65534, 65534), 0);
    EXPECT_THAT(std::string(check(report(3), "bus")["finding"]),
                HasSubstr("it belongs to user 65534, neither root nor this user"));
}

TEST_F(Doctor, SaysThatTheBusFolderIsAFile) {
    (void)folder.write("bus");
    EXPECT_THAT(std::string(check(report(3), "bus")["finding"]), HasSubstr("Not a directory"));
}

// ------------------------------------------------------------------------------------------ The driver

TEST_F(Doctor, SaysThatNoDriverRuns) {
    makeBus();
    const Json all = report(3);
    EXPECT_EQ(check(all, "driver")["finding"], "the bus folder " + bus + " is empty");
    EXPECT_EQ(check(all, "driver")["remedy"], "Start the driver (moxeld).");
    EXPECT_THAT(states(all),
                ElementsAre("ok", "wrong", "ok", "ok", "skipped", "skipped", "skipped", "skipped"));
}

TEST_F(Doctor, SaysThatTheDriverHangs) {
    startDaemonWithFault("unresponsive");
    const Json driver = check(report(3), "driver");
    EXPECT_THAT(std::string(driver["finding"]), EndsWith("does not work: it does not answer"));
    EXPECT_EQ(driver["remedy"], "The driver hangs: stop it and start it again.");
}

TEST_F(Doctor, SaysThatTheDriverIsDead) {
    startDaemon();
    const std::string name = moxeld->baseChannelName();
    moxeld.reset();
    PublisherSocket stale(bus, name);
    stale.stopListening();
    EXPECT_THAT(std::string(check(report(3), "driver")["finding"]), HasSubstr("is dead: nobody listens"));
}

TEST_F(Doctor, SaysThatTheDriverServesAnotherUser) {
    daemon::Options options;
    options.user = 123456;
    startDaemon(std::move(options));
    EXPECT_THAT(std::string(check(report(3), "driver")["remedy"]), HasSubstr("moxeld --user "));
}

// ------------------------------------------------------------------------------------------ Devices, session

std::vector<SurveyedBus> busesWithNode(SurveyedDevice::State state, std::string problem) {
    SurveyedDevice node;
    node.place = "/dev/hidraw7";
    node.state = state;
    node.problem = std::move(problem);
    SurveyedBus folder;
    folder.place = "/run/moxel/hid";
    folder.state = SurveyedBus::State::missing;
    SurveyedBus kernel;
    kernel.place = "/dev";
    kernel.state = SurveyedBus::State::usable;
    kernel.devices.push_back(std::move(node));
    return {std::move(folder), std::move(kernel)};
}

TEST_F(Doctor, SaysThatADeviceNodeMayNotBeUsed) {
    const auto closed = tool::checkDevices(busesWithNode(
        SurveyedDevice::State::unreachable, "Permission denied; this udev rule would allow it: R"));
    EXPECT_EQ(closed.state, tool::Check::State::wrong);
    EXPECT_EQ(closed.finding,
              "this user cannot use /dev/hidraw7: Permission denied; this udev rule would allow it: R");
    EXPECT_THAT(closed.remedy, AllOf(HasSubstr("70-moxel.rules"), HasSubstr("udevadm control --reload")));
    EXPECT_EQ(closed.exitCode, 3);
    const auto open = tool::checkDevices(busesWithNode(SurveyedDevice::State::ready, ""));
    EXPECT_EQ(open.state, tool::Check::State::ok);
    EXPECT_EQ(open.finding, "this user may use all 1 that the kernel has of the driver's");
}

/// A bus folder that is all right but for the driver's base channel.
std::vector<SurveyedBus> busWithBaseChannel(SurveyedDevice::State state, std::string problem) {
    SurveyedDevice channel;
    channel.place = "/run/moxel/hid/" + tool::baseChannelName() + ".hid";
    channel.state = state;
    channel.problem = std::move(problem);
    SurveyedBus folder;
    folder.place = "/run/moxel/hid";
    folder.state = SurveyedBus::State::usable;
    folder.devices.push_back(std::move(channel));
    return {std::move(folder)};
}

TEST_F(Doctor, SaysThatTheDriverBelongsToSomebodyElse) {
    const auto driver = tool::checkDriver(
        busWithBaseChannel(SurveyedDevice::State::untrusted, "its publisher is user 65534"));
    EXPECT_EQ(driver.state, tool::Check::State::wrong);
    EXPECT_EQ(driver.finding, "the channel /run/moxel/hid/" + tool::baseChannelName() +
                                  ".hid is not used: its publisher is user 65534");
    EXPECT_EQ(driver.remedy, "Run the driver as this user or as root, or this program as the driver's user.");
    EXPECT_EQ(driver.exitCode, 3);
}

TEST_F(Doctor, SaysThatTheDriversChannelMayNotBeUsed) {
    const auto driver =
        tool::checkDriver(busWithBaseChannel(SurveyedDevice::State::unreachable, "Permission denied"));
    EXPECT_EQ(driver.state, tool::Check::State::wrong);
    EXPECT_EQ(driver.finding, "the channel /run/moxel/hid/" + tool::baseChannelName() +
                                  ".hid cannot be used: Permission denied");
    EXPECT_EQ(driver.remedy, "Give this user the right to use it.");
    EXPECT_EQ(driver.exitCode, 3);
}

TEST_F(Doctor, NeedsNoBusFolderWhereTheDriverUsesTheKernelsDevices) {
    std::vector<SurveyedBus> buses = busesWithNode(SurveyedDevice::State::ready, "");
    EXPECT_EQ(tool::checkBusFolder(buses).state, tool::Check::State::wrong) << "that node is no base channel";
    EXPECT_EQ(tool::checkDriver(buses).state, tool::Check::State::wrong);
    startDaemon();
    buses[1].devices[0].name = moxeld->baseChannelName();
    EXPECT_EQ(tool::checkBusFolder(buses).state, tool::Check::State::ok);
    EXPECT_EQ(tool::checkDriver(buses).state, tool::Check::State::ok);
}

TEST_F(Doctor, SaysThatTheSessionIsNotOnTheConsole) {
    const auto away = tool::checkSession(false);
    EXPECT_EQ(away.state, tool::Check::State::wrong);
    EXPECT_THAT(away.finding, HasSubstr("is not on the console"));
    EXPECT_THAT(away.remedy, HasSubstr("Change to this session"));
    EXPECT_EQ(away.exitCode, 1);
    EXPECT_EQ(tool::checkSession(true).state, tool::Check::State::ok);
    EXPECT_EQ(tool::checkSession(std::nullopt).state, tool::Check::State::ok);
}

// ---------------------------------------------------------------------- The session with the driver

TEST_F(Doctor, SaysThatTheDriverDoesNotOpenItsChannel) {
    startDaemonWithFault("refuse-base-open");
    const Json all = report(3);
    EXPECT_EQ(check(all, "registration")["finding"], "the driver does not let this program open its channel");
    EXPECT_THAT(states(all), ElementsAre("ok", "ok", "ok", "ok", "wrong", "skipped", "skipped", "skipped"));
}

TEST_F(Doctor, SaysThatTheDriverDoesNotRegister) {
    startDaemonWithFault("no-registration-answer");
    const Json registration = check(report(4), "registration");
    EXPECT_THAT(std::string(registration["finding"]), HasSubstr("does not register this program: Timeout"));
    EXPECT_THAT(std::string(registration["remedy"]), HasSubstr("MOXEL_LOG=stderr"));
}

TEST_F(Doctor, SaysThatTheDriverDoesNotTakeTheMask) {
    startDaemonWithFault("no-acknowledgement");
    const Json all = report(5);
    EXPECT_THAT(std::string(check(all, "mask")["finding"]), HasSubstr("does not acknowledge the masks: "));
    EXPECT_EQ(check(all, "registration")["state"], "ok");
}

TEST_F(Doctor, SaysThatNoEventComes) {
    startDaemon();
    const Json all = report(1);
    const std::string finding = check(all, "event")["finding"];
    ASSERT_THAT(finding, MatchesRegex("none came in [0-9]+\\.[0-9] s"));
    EXPECT_GE(std::stod(finding.substr(finding.rfind("in ") + 3)), 0.1);
    EXPECT_THAT(std::string(check(all, "event")["remedy"]), StartsWith("Move the controller"));
    EXPECT_THAT(states(all), ElementsAre("ok", "ok", "ok", "ok", "ok", "ok", "wrong", "skipped"));
}

TEST_F(Doctor, SaysThatTheDriverWentAwayWhileItWaited) {
    startDaemon();
    ChildProcess doctor = startTool({"doctor", "--json", "--seconds", "60"});
    ASSERT_TRUE(awaitListener());
    moxeld.reset();
    const Finished ended = finish(doctor);
    EXPECT_EQ(ended.exitCode, 3);
    EXPECT_EQ(check(Json::parse(ended.output), "event")["finding"], "the driver went away");
}

// ---------------------------------------------------------------------- An application's loop

TEST_F(Doctor, SaysThatAnApplicationDoesNotRunItsLoop) {
    startDaemon();
    ASSERT_TRUE(moxeld->startMovement().ok());
    const Json loop = check(report(1, {NEGLECTFUL}), "loop");
    EXPECT_EQ(loop["finding"], std::string(NEGLECTFUL) +
                                   " does not run the run loop of the thread that installed its handlers");
    EXPECT_THAT(std::string(loop["remedy"]), HasSubstr("MoxelRunLoopDispatch()"));
    EXPECT_TRUE(awaitNoClients()) << "the application ends with the doctor";
}

TEST_F(Doctor, DoesNotJudgeAnApplicationsLoopWithoutAnEvent) {
    startDaemon();
    const Json all = report(1, {"--seconds", "0.1", NEGLECTFUL});
    EXPECT_EQ(check(all, "event")["state"], "wrong");
    EXPECT_EQ(check(all, "loop")["state"], "skipped");
    EXPECT_EQ(check(all, "loop")["finding"], "no event came to take");
}

#ifdef EXAMPLE_SMALLEST
TEST_F(Doctor, IsContentWithAnApplicationThatRunsItsLoop) {
    startDaemon();
    ASSERT_TRUE(moxeld->startMovement().ok());
    EXPECT_EQ(check(report(0, {"--", EXAMPLE_SMALLEST, "100000"}), "loop")["state"], "ok");
}
#endif

TEST_F(Doctor, SaysThatAProgramIsNoApplicationOfTheDriver) {
    startDaemon();
    ASSERT_TRUE(moxeld->startMovement().ok());
    EXPECT_THAT(std::string(check(report(1, {"true"}), "loop")["finding"]),
                StartsWith("true installs no handlers"));
    EXPECT_THAT(std::string(check(report(1, {folder.path("nothing")}), "loop")["finding"]),
                HasSubstr("No such file"));
}

TEST_F(Doctor, EndsAnApplicationThatDoesNotEndWhenItIsAsked) {
    startDaemon();
    ASSERT_TRUE(moxeld->startMovement().ok());
    const std::string file = folder.path("process");
    const std::string script = "trap '' TERM; echo $$ >" + file + "; exec sleep 1000 >&- 2>&-";
    const Json loop = check(report(1, {"--", "sh", "-c", script}), "loop");
    EXPECT_THAT(std::string(loop["finding"]), StartsWith("sh installs no handlers"));
    pid_t process = 0;
    std::ifstream(file) >> process;
    ASSERT_GT(process, 0);
    EXPECT_EQ(::kill(process, 0), -1) << "it is still there";
}

} // namespace
} // namespace moxel::test
