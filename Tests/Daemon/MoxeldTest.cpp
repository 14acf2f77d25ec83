// moxeld as a process.
#include "Daemon/TestClient.h"
#include "Platform/Linux/Descriptor.h"
#include "Support/ChildProcess.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace moxel::daemon {
namespace {

using test::ChildProcess;
using ::testing::HasSubstr;

class Moxeld : public ::testing::Test {
  protected:
    ChildProcess run(std::vector<std::string> arguments,
                     const ChildProcess::Environment &environment = {}) const {
        arguments.insert(arguments.begin(), {MOXELD, "--bus-folder", bus, "--user", "501"});
        return ChildProcess(arguments, environment);
    }
    static ChildProcess runBare(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), MOXELD);
        return ChildProcess(arguments);
    }
    [[nodiscard]] std::string readyLine() const { return "ready MxlVirtualHIDData_Base000001F5 in " + bus; }

    test::TemporaryFolder folder;
    std::string bus = folder.path("bus");
    std::string socket = bus + "/MxlVirtualHIDData_Base000001F5.hid";
};

TEST_F(Moxeld, SaysWhenItIsReadyAndEndsCleanlyOnSignals) {
    for (const int signal : {SIGTERM, SIGINT}) {
        ChildProcess daemon = run({});
        EXPECT_EQ(daemon.readLine(), readyLine());
        EXPECT_TRUE(std::filesystem::exists(socket));
        EXPECT_EQ(RawClient(bus, testBaseName).open(), 0U);
        daemon.signal(signal);
        EXPECT_EQ(daemon.exitStatus(), 0);
        EXPECT_EQ(daemon.readErrors(), "");
        EXPECT_TRUE(std::filesystem::is_empty(bus));
    }
}

TEST_F(Moxeld, UnitIsWhatTheServiceManagerUnderstands) {
    const std::string checker = "/usr/bin/systemd-analyze";
    if (!std::filesystem::exists(checker))
        GTEST_SKIP() << checker << " is not there";
    std::ifstream file(std::string(MOXEL_TRACES) + "/../Linux/moxeld.service");
    std::stringstream unit;
    unit << file.rdbuf();
    std::string text = unit.str();
    const std::string command = "ExecStart=moxeld "; // Not installed here.
    ASSERT_NE(text.find(command), std::string::npos);
    text.replace(text.find(command), command.size(), "ExecStart=\"" MOXELD "\" ");
    const auto complaints = [&](const std::string &content) {
        folder.write("moxeld.service", content);
        ChildProcess check({checker, "--user", "verify", folder.path("moxeld.service")},
                           {{"XDG_RUNTIME_DIR", folder.path()}, {"LC_ALL", "C.UTF-8"}});
        return check.readErrors();
    };
    EXPECT_THAT(complaints(text), ::testing::Not(HasSubstr("moxeld.service")));
    EXPECT_THAT(complaints(text + "\n[Service]\nNonsense=yes\n"), HasSubstr("moxeld.service"));
}

TEST_F(Moxeld, TellsTheServiceManager) {
    const std::string path = folder.path("notify");
    const Descriptor notify(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(::bind(notify.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    const timeval limit{test::patience.count(), 0};
    ::setsockopt(notify.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    const auto heard = [&] {
        std::array<char, 256> buffer{};
        const ssize_t size = ::recv(notify.get(), buffer.data(), buffer.size(), 0);
        return std::string(buffer.data(), static_cast<size_t>(std::max<ssize_t>(size, 0)));
    };
    ChildProcess daemon = run({}, {{"NOTIFY_SOCKET", path}});
    EXPECT_EQ(heard(), "READY=1");
    daemon.signal(SIGTERM);
    EXPECT_EQ(heard(), "STOPPING=1");
    EXPECT_EQ(daemon.exitStatus(), 0);
}

TEST_F(Moxeld, DoesNotStartTwice) {
    ChildProcess first = run({});
    EXPECT_EQ(first.readLine(), readyLine());
    ChildProcess second = run({});
    EXPECT_EQ(second.exitStatus(), 4);
    EXPECT_EQ(second.readOutput(), "");
    EXPECT_EQ(second.readErrors(), "moxeld: MxlVirtualHIDData_Base000001F5.hid in " + bus +
                                       " is already published by a running daemon\n");
    EXPECT_EQ(RawClient(bus, testBaseName).open(), 0U) << "the first one serves on";
}

TEST_F(Moxeld, TakesTheSocketOfAKilledOneOver) {
    {
        ChildProcess killed = run({});
        EXPECT_EQ(killed.readLine(), readyLine());
        killed.kill();
        EXPECT_EQ(killed.exitStatus(), 128 + SIGKILL);
    }
    EXPECT_TRUE(std::filesystem::exists(socket));
    ChildProcess next = run({});
    EXPECT_EQ(next.readLine(), readyLine());
    EXPECT_EQ(RawClient(bus, testBaseName).open(), 0U);
}

TEST_F(Moxeld, FindsTheFolderInTheEnvironment) {
    ChildProcess daemon({MOXELD, "--user", "0x1F5"}, {{"MOXEL_HID_BUS", bus}});
    EXPECT_EQ(daemon.readLine(), readyLine());
}

TEST_F(Moxeld, RefusesFoldersOthersMayWrite) {
    std::filesystem::create_directory(bus);
    std::filesystem::permissions(bus, std::filesystem::perms::all);
    ChildProcess daemon = run({});
    EXPECT_EQ(daemon.exitStatus(), 1);
    EXPECT_THAT(daemon.readErrors(), HasSubstr("may be written by its group or by others"));
}

TEST_F(Moxeld, ExplainsItself) {
    ChildProcess daemon = runBare({"--help"});
    const std::string help = daemon.readOutput();
    EXPECT_EQ(daemon.exitStatus(), 0);
    for (const char *text : {"--bus ", "--bus-folder", "--user", "--trace", "--movement", "--rate", "--loop",
                             "--once", "--wait-client", "--fault", "--verbose", "--device", "--dead-zone",
                             "--scale", "late-acknowledgement=MS", "Examples:"})
        EXPECT_THAT(help, HasSubstr(text));
}

TEST_F(Moxeld, RefusesBadCommandLines) {
    for (const std::vector<std::string> &arguments : {std::vector<std::string>{"--nonsense"},
                                                      {"--user", "x"},
                                                      {"--fault", "nonsense"},
                                                      {"--fault", "late-acknowledgement"},
                                                      {"--loop"},
                                                      {"--once"},
                                                      {"--movement", "--trace", "x"},
                                                      {"--rate", "5"},
                                                      {"--movement", "--rate", "0"},
                                                      {"--trace", "-", "--loop"},
                                                      {"--trace", "x", "--loop", "--once"},
                                                      {"--device"},
                                                      {"--device", ""},
                                                      {"--device", "auto", "surplus"},
                                                      {"--device", "auto", "--movement"},
                                                      {"--device", "auto", "--trace", "x"},
                                                      {"--dead-zone", "5"},
                                                      {"--device", "auto", "--dead-zone", "-1"},
                                                      {"--device", "auto", "--scale", "0"},
                                                      {"--bus", "nonsense"},
                                                      {"--bus", "uhid"}, // Has no folder.
                                                      {"surplus"}}) {
        ChildProcess daemon = run(arguments);
        EXPECT_EQ(daemon.exitStatus(), 2) << arguments.front();
        EXPECT_NE(daemon.readErrors(), "");
        EXPECT_EQ(daemon.readOutput(), "");
    }
}

TEST_F(Moxeld, SaysWhyTheKernelMakesNoDevices) {
    if (::access("/dev/uhid", R_OK | W_OK) == 0)
        GTEST_SKIP() << "this kernel makes them";
    ChildProcess daemon = runBare({"--bus", "uhid"});
    EXPECT_EQ(daemon.exitStatus(), 1);
    EXPECT_THAT(daemon.readErrors(), HasSubstr("moxeld: Cannot open /dev/uhid: "));
}

TEST_F(Moxeld, RefusesBadTracesBeforeItStarts) {
    ChildProcess bad = run({"--trace", folder.write("bad.trace", "pause\nnonsense\n")});
    EXPECT_EQ(bad.exitStatus(), 3);
    EXPECT_EQ(bad.readErrors(),
              "moxeld: " + folder.path("bad.trace") + ": line 2: there is no event \"nonsense\"\n");
    EXPECT_EQ(bad.readOutput(), "");
    ChildProcess missing = run({"--trace", folder.path("none")});
    EXPECT_EQ(missing.exitStatus(), 3);
    EXPECT_THAT(missing.readErrors(), HasSubstr("No such file"));
}

TEST_F(Moxeld, SaysWhichDevicesItCannotUseAndServesOn) {
    const std::string missing = folder.path("event0");
    const std::string file = folder.write("event1");
    ChildProcess daemon = run({"--device", missing, "--device", file, "--dead-zone", "10", "--scale", "0.5"});
    EXPECT_EQ(daemon.readLine(), readyLine());
    EXPECT_EQ(RawClient(bus, testBaseName).open(), 0U);
    daemon.signal(SIGTERM);
    EXPECT_EQ(daemon.exitStatus(), 0);
    EXPECT_EQ(daemon.readErrors(), "moxeld: Error: " + missing +
                                       " is not there; it is used as soon as it comes\nmoxeld: Error: " +
                                       file + ": Inappropriate ioctl for device (it is no input device)\n");
}

TEST_F(Moxeld, EndsWithItsTraceWhenToldTo) {
    ChildProcess daemon =
        run({"--trace", std::string(MOXEL_TRACES) + "/demo.trace", "--once", "--speed", "100"});
    EXPECT_EQ(daemon.readLine(), readyLine());
    EXPECT_EQ(daemon.exitStatus(), 0);
}

TEST_F(Moxeld, PlaysStandardInput) {
    ChildProcess daemon = run({"--trace", "-", "--once"});
    EXPECT_EQ(daemon.readLine(), readyLine());
    daemon.write("pause\n");
    daemon.closeInput();
    EXPECT_EQ(daemon.exitStatus(), 0);
}

TEST_F(Moxeld, EndsAtABadLineOfStandardInput) {
    ChildProcess daemon = run({"--trace", "-"});
    EXPECT_EQ(daemon.readLine(), readyLine());
    daemon.write("pause\nnonsense\n");
    EXPECT_EQ(daemon.exitStatus(), 3);
    EXPECT_EQ(daemon.readErrors(), "moxeld: standard input: line 2: there is no event \"nonsense\"\n");
}

TEST_F(Moxeld, SendsMovementToARegisteredClient) {
    // One stream for output and log, so that both can be waited for.
    ChildProcess daemon({"/bin/sh", "-c", "exec \"$0\" \"$@\" 2>&1", MOXELD, "--bus-folder", bus, "--user",
                         "501", "--movement", "--rate", "200", "--verbose"});
    EXPECT_EQ(daemon.readLine(), readyLine());
    RawClient base(bus, testBaseName);
    ASSERT_EQ(base.open(), 0U);
    ASSERT_EQ(base.setReport(0x46, 0, channelMessage(0xBEEF, 7)), 0U);
    EXPECT_EQ(daemon.readLine(),
              "moxeld: MxlVirtualHIDData_ID7 published for process " + std::to_string(::getpid()));
    RawClient dedicated(bus, "MxlVirtualHIDData_ID7");
    ASSERT_EQ(dedicated.open(), 0U);
    const Data request = *writeKeyedArchive(registrationRequestOf(7, 1));
    ASSERT_EQ(dedicated.setReport(0x63, 7, request), 0U);
    ASSERT_EQ(dedicated.setReport(0x46, 7, requestAnnouncement(request.size())), 0U);
    EXPECT_EQ(daemon.readLine(), "moxeld: MxlVirtualHIDData_ID7: request \"regclient\" of " +
                                     std::to_string(request.size()) + " bytes");
    EXPECT_EQ(dedicated.input(), registrationAnswer(1, 7));
    EXPECT_EQ(daemon.readLine(), "moxeld: MxlVirtualHIDData_ID7: registered as client 1");
    const Bytes report = dedicated.input();
    ASSERT_EQ(report.size(), 55U);
    EXPECT_EQ((Bytes{report.begin(), report.begin() + 7}), (Bytes{0x35, 3, 0, 0, 0, 0, 0}));
    daemon.signal(SIGTERM);
    EXPECT_EQ(daemon.exitStatus(), 0);
    EXPECT_TRUE(dedicated.awaitHangUp());
}

TEST_F(Moxeld, CommitsTheFaultsOfItsCommandLine) {
    ChildProcess daemon =
        run({"--fault", "refuse-base-open", "--fault", "refuse-set-report=0x46:0xE00002D6"});
    EXPECT_EQ(daemon.readLine(), readyLine());
    EXPECT_EQ(RawClient(bus, testBaseName).open(), 0xE00002E2U);
}

} // namespace
} // namespace moxel::daemon
