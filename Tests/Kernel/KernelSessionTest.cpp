// Sessions and the daemon over the kernel's devices.
#include "Kernel/VirtualDevice.h"
#include "Support/CapturedLog.h"
#include "Support/ChildProcess.h"
#include "Support/LiveDaemon.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

namespace moxel {
namespace {

using Recorder = test::HandlerRecorder;
using test::ChildProcess;
using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

std::string programPath(const char *variable, const char *built) {
    const char *given = std::getenv(variable);
    return given != nullptr ? given : built;
}

template <class Condition>
bool awaitTrue(Condition condition) {
    const auto deadline = Clock::now() + test::patience;
    while (!condition()) {
        if (Clock::now() > deadline)
            return false;
        std::this_thread::yield();
    }
    return true;
}

class KernelSession : public test::LiveDaemonTest {
  protected:
    void SetUp() override {
        MOXEL_NEEDS_UHID();
        LiveDaemonTest::SetUp();
    }
    static std::string moxeldPath() { return programPath("MOXELD", MOXELD); }

  private:
    // The base class reads these before the fixture is made.
    struct KernelChoice {
        KernelChoice() { ::setenv("MOXEL_TEST_BUS", "uhid", 1); } // NOLINT(concurrency-mt-unsafe)
    };
    static inline const KernelChoice choice{};
};

TEST_F(KernelSession, ReceivesEvents) {
    startDaemon();
    const uint16_t clientID = beginSession(true);
    MoxelStateRecord record{};
    record.command = 10;
    record.value = 7;
    ASSERT_EQ(moxeld->sendState(clientID, record), 1U);
    ASSERT_TRUE(Recorder::instance().waitFor(1));
}

TEST_F(KernelSession, DaemonProcessSaysWhenItIsReadyAndThereIsOneForAUser) {
    ChildProcess first({moxeldPath(), "--bus", "uhid", "--user", "501"});
    EXPECT_EQ(first.readLine(), "ready MxlVirtualHIDData_Base000001F5 in /dev/uhid");
    // The kernel makes the device after it has taken the order.
    ASSERT_TRUE(awaitTrue([] {
        ChildProcess second({moxeldPath(), "--bus", "uhid", "--user", "501", "--trace", "-", "--once"});
        second.closeInput();
        return second.exitStatus() == 4;
    }));
    ChildProcess other({moxeldPath(), "--bus", "uhid", "--user", "502"});
    EXPECT_EQ(other.readLine(), "ready MxlVirtualHIDData_Base000001F6 in /dev/uhid");
    first.signal(SIGTERM);
    EXPECT_EQ(first.exitStatus(), 0);
}

TEST_F(KernelSession, OneOfTwoDaemonsThatStartTogetherServes) {
    for (int round = 0; round < 3; ++round) {
        ChildProcess one({moxeldPath(), "--bus", "uhid", "--user", "501"});
        ChildProcess other({moxeldPath(), "--bus", "uhid", "--user", "501"});
        const std::string ready = "ready MxlVirtualHIDData_Base000001F5 in /dev/uhid";
        const bool oneIsReady = one.readLine() == ready;
        const bool otherIsReady = other.readLine() == ready;
        EXPECT_NE(oneIsReady, otherIsReady);
        EXPECT_EQ((oneIsReady ? other : one).exitStatus(), 4);
        (oneIsReady ? one : other).signal(SIGTERM);
        EXPECT_EQ((oneIsReady ? one : other).exitStatus(), 0);
    }
}

TEST_F(KernelSession, KilledDaemonIsNoticedAtOnceAndANewOneIsFound) {
    auto daemon = std::make_unique<ChildProcess>(ChildProcess::Arguments{moxeldPath(), "--bus", "uhid"});
    EXPECT_TRUE(daemon->readLine().starts_with("ready "));
    const uint16_t clientID = beginSession(true);
    const ClientRegistry::Client client = CurrentClientViaClientID(clientID);
    ASSERT_TRUE(client);
    daemon->kill();
    EXPECT_TRUE(
        awaitTrue([&] { return !client->m_refHIDChannelDedicated() && !client->m_refHIDChannelBase(); }));
    const auto start = Clock::now();
    EXPECT_FALSE(client->setAppInfoRecordExitState(0));
    EXPECT_LT(Clock::now() - start, 1s);
    endSession();
    daemon = std::make_unique<ChildProcess>(ChildProcess::Arguments{moxeldPath(), "--bus", "uhid"});
    EXPECT_TRUE(daemon->readLine().starts_with("ready "));
    EXPECT_NE(beginSession(true), 0);
}

const test::ChildProgram registeredClient("registered client", [] {
    ASSERT_EQ(SetMoxelHandlers(Recorder::message, nullptr, nullptr, true), 0);
    const uint16_t clientID = RegisterMoxelClient(1, nullptr, 3, 0x3F);
    test::ChildProcess::tell(clientID != 0 ? "registered" : "refused");
    for (;;)
        ::pause();
});

TEST_F(KernelSession, ChannelOfAKilledClientIsTakenAway) {
    startDaemon();
    auto client = registeredClient.start({{"MOXEL_HIDRAW", std::nullopt}});
    ASSERT_EQ(client.hear(), "registered");
    ASSERT_EQ(moxeld->clients().size(), 1U);
    client.kill();
    EXPECT_TRUE(moxeld->waitUntil(
        [](const daemon::Observation &seen) { return seen.clients.empty() && seen.departed.size() == 1; },
        test::patience));
}

/// The time counts from the last use, not from the first.
TEST_F(KernelSession, ChannelThatWasInUseAMomentAgoStays) {
    startDaemon();
    auto client = registeredClient.start({{"MOXEL_HIDRAW", std::nullopt}});
    ASSERT_EQ(client.hear(), "registered");
    std::this_thread::sleep_for(3s); // The time is what is tested.
    client.kill();
    const auto killed = Clock::now();
    EXPECT_TRUE(moxeld->waitUntil([](const daemon::Observation &seen) { return seen.clients.empty(); },
                                  test::patience));
    EXPECT_GE(Clock::now() - killed, 4800ms);
}

TEST_F(KernelSession, ToolListsTheChannels) {
    startDaemon();
    const uint16_t clientID = beginSession(true);
    const test::VirtualDevice stranger({.name = "stranger", .vendorID = 0x1234});
    ChildProcess list({programPath("MOXELCTL", MOXELCTL), "list"}, {{"MOXEL_HIDRAW", std::nullopt}});
    const std::string output = list.readOutput();
    EXPECT_NE(output.find("bus /dev\n"), std::string::npos) << output;
    EXPECT_NE(output.find("  " + moxeld->baseChannelName() + "\n"), std::string::npos) << output;
    EXPECT_NE(output.find("  " + moxeld->client(clientID)->channelName + "\n"), std::string::npos) << output;
    EXPECT_EQ(output.find("stranger"), std::string::npos) << output;
    EXPECT_EQ(list.exitStatus(), 0);
}

// ------------------------------------------------------------------------------------------ Session states

/// What a login manager writes about a session of this process's user, replaced as a whole as it does.
void writeLoginFiles(bool isActive) {
    const auto write = [](const std::string &path, const std::string &content) {
        std::ofstream(path + ".new") << content;
        std::filesystem::rename(path + ".new", path);
    };
    const std::string user = std::to_string(::getuid());
    write("/run/systemd/sessions/k1", "UID=" + user + "\nUSER=root\nACTIVE=" + (isActive ? "1" : "0") +
                                          "\nSTATE=" + (isActive ? "active" : "online") +
                                          "\nSEAT=seat0\nTYPE=x11\nCLASS=user\n");
    write("/run/systemd/users/" + user, "NAME=root\nSTATE=active\nDISPLAY=k1\nSESSIONS=k1\n"
                                        "ACTIVE_SESSIONS=k1\nONLINE_SESSIONS=k1\n");
}

TEST_F(KernelSession, IsSilentWhileItsUserIsNotAtTheMachine) {
    if (::access("/run/systemd/sessions", W_OK) != 0 || std::getenv("MOXELD") == nullptr)
        GTEST_SKIP() << "writes files of the login manager: only on a machine of its own, as root";
    writeLoginFiles(true);
    startDaemon();
    const uint16_t clientID = beginSession(true);
    std::shared_ptr<Thread> clientThread;
    Recorder::instance().setOnCall([&](const test::ReceivedCall &) { clientThread = Thread::current(); });
    MoxelStateRecord record{};
    record.command = 10;
    const auto send = [&](int32_t value) {
        record.value = value;
        EXPECT_EQ(moxeld->sendState(clientID, record), 1U);
    };
    send(1);
    ASSERT_TRUE(Recorder::instance().waitFor(1));
    writeLoginFiles(false);
    ASSERT_TRUE(awaitTrue([] { return !MoxelCheckUserActive(); }));
    send(2);
    // The record is in the kernel by now. Work that is posted after another's end comes after the record.
    for (int turn = 0; turn < 2; ++turn)
        ASSERT_TRUE(clientThread->perform([] {}, Thread::Wait::untilDone));
    writeLoginFiles(true);
    ASSERT_TRUE(awaitTrue([] { return MoxelCheckUserActive(); }));
    send(3);
    ASSERT_TRUE(Recorder::instance().waitFor(2));
    MoxelStateRecord received{};
    std::memcpy(&received, Recorder::instance().calls()[1].bytes.data(), sizeof received);
    EXPECT_EQ(received.value, 3);
    std::filesystem::remove("/run/systemd/users/" + std::to_string(::getuid()));
    std::filesystem::remove("/run/systemd/sessions/k1");
}

} // namespace
} // namespace moxel
