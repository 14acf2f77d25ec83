// Registration and unregistration with a live daemon, byte by byte.
#include "Helpers/Condition.h"
#include "Session/ApplicationBundle.h"
#include "Support/CapturedLog.h"
#include "Support/ClientTestAccess.h"
#include "Support/FakeHIDDevice.h"
#include "Support/LiveDaemon.h"
#include "Values/Format.h"
#include "Values/KeyedArchive.h"

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <thread>
#include <unistd.h>

namespace moxel {
namespace {

using Clock = std::chrono::steady_clock;
using Bytes = std::vector<uint8_t>;
using Recorder = test::HandlerRecorder;

const std::string selector = "-[MoxelClientAPI registerMoxelClient:name:mode:andMask:]";

class Registration : public test::LiveDaemonTest {
  protected:
    [[nodiscard]] daemon::ApplicationRecord registeredRecord() const {
        const auto client = moxeld->waitForClient(patience);
        EXPECT_TRUE(client && client->application);
        return client && client->application ? *client->application : daemon::ApplicationRecord();
    }
    static Bytes channelControl(uint16_t code, uint64_t channelID) {
        Bytes bytes(38);
        bytes[0] = 6;
        bytes[2] = static_cast<uint8_t>(code);
        bytes[3] = static_cast<uint8_t>(code >> 8);
        for (size_t i = 0; i < 8; ++i)
            bytes[4 + i] = static_cast<uint8_t>(channelID >> (8 * i));
        return bytes;
    }
};

// ------------------------------------------------------------------------------------------ The whole road

TEST_F(Registration, AsksForAChannelSendsTheRecordAndTellsThatTheApplicationRuns) {
    startDaemon();
    ASSERT_EQ(install(), 0);
    const uint64_t channelID = CurrentPendingClient()->channelID();
    const uint16_t clientID = registerAs("Viewer", 3, 0x3F);
    ASSERT_NE(clientID, 0);

    const auto create = moxeld->waitForReport(0, patience);
    ASSERT_TRUE(create);
    EXPECT_EQ(create->reportID, 0x46);
    EXPECT_EQ(create->channelName, moxeld->baseChannelName());
    EXPECT_EQ(create->tag, 0U);
    EXPECT_EQ(create->bytes, channelControl(0xBEEF, channelID));

    const auto request = moxeld->waitForReport(1, patience);
    ASSERT_TRUE(request);
    EXPECT_EQ(request->reportID, 0x63);
    EXPECT_EQ(request->channelName, format("MxlVirtualHIDData_ID%llX", channelID));
    EXPECT_EQ(request->tag, channelID);

    const auto announcement = moxeld->waitForReport(2, patience);
    ASSERT_TRUE(announcement);
    EXPECT_EQ(announcement->reportID, 0x46);
    EXPECT_EQ(announcement->tag, channelID);
    const auto length = static_cast<uint16_t>(request->bytes.size());
    Bytes expected{6, 0, 49, 0, static_cast<uint8_t>(length), static_cast<uint8_t>(length >> 8), 0, 0};
    expected.resize(38);
    EXPECT_EQ(announcement->bytes, expected);

    const auto information = moxeld->waitForReport(3, patience);
    ASSERT_TRUE(information);
    EXPECT_EQ(information->reportID, 0x73);
    EXPECT_EQ(information->tag, channelID);
    Bytes record{0, 0, 0, 0, 0, 0, 0, 0, 'V', 'i', 'e', 'w', 'e', 'r'};
    record.resize(32);
    EXPECT_EQ(information->bytes, record);
}

TEST_F(Registration, FillsTheRecordThatTheDaemonGets) {
    startDaemon();
    ASSERT_EQ(install(), 0);
    const uint64_t channelID = CurrentPendingClient()->channelID();
    ASSERT_NE(registerAs("Viewer", 0x1203, 0x3F), 0);
    const daemon::ApplicationRecord record = registeredRecord();
    const MainBundle bundle = mainBundle();
    EXPECT_EQ(record.clientID, 0);
    EXPECT_EQ(record.name, "Viewer");
    EXPECT_EQ(record.clientName, "Viewer");
    EXPECT_EQ(record.applicationFileName, bundle.executableName);
    EXPECT_EQ(record.executablePath, bundle.executablePath);
    EXPECT_EQ(record.bundleID, bundle.identifier);
    EXPECT_EQ(record.signature, 0x54657374U);
    EXPECT_EQ(record.processID, ::getpid());
    EXPECT_EQ(record.mode, 0x1203);
    EXPECT_EQ(record.switches, 0x80000000U);
    EXPECT_EQ(record.channelID, channelID);
    EXPECT_FALSE(record.commandsFile);
}

TEST_F(Registration, TheButtonMaskIsTheMasksLowByte) {
    startDaemon();
    ASSERT_EQ(install(), 0);
    ASSERT_NE(registerAs("Test", 3, 0x1234), 0);
    EXPECT_EQ(registeredRecord().mask, 0x1234U);
    EXPECT_EQ(registeredRecord().buttonMask, 0x34U);
}

TEST_F(Registration, WithoutANameTheRecordHasNoneAndTheExecutablesIsShown) {
    startDaemon();
    ASSERT_EQ(install(), 0);
    ASSERT_NE(RegisterMoxelClient(1, nullptr, 0, 0), 0);
    EXPECT_FALSE(registeredRecord().name);
    EXPECT_FALSE(registeredRecord().clientName);
    const std::string executable = mainBundle().executableName.value().substr(0, 23);
    const auto information = reportWithID(0x73);
    ASSERT_TRUE(information);
    EXPECT_EQ(std::string(information->bytes.begin() + 8,
                          information->bytes.begin() + 8 + static_cast<ptrdiff_t>(executable.size())),
              executable);
}

TEST_F(Registration, ANameLongerThan23CharactersIsCutInTheApplicationInformation) {
    startDaemon();
    ASSERT_EQ(install(), 0);
    ASSERT_NE(registerAs("abcdefghijklmnopqrstuvwxyz"), 0);
    EXPECT_EQ(registeredRecord().name, "abcdefghijklmnopqrstuvwxyz");
    const auto information = reportWithID(0x73);
    ASSERT_TRUE(information);
    Bytes expected(8);
    for (char letter = 'a'; letter <= 'w'; ++letter)
        expected.push_back(static_cast<uint8_t>(letter));
    expected.push_back(0);
    EXPECT_EQ(information->bytes, expected);
}

TEST_F(Registration, ANameOfLongCharactersIsCutAt24BytesWithoutATerminator) {
    startDaemon();
    ASSERT_EQ(install(), 0);
    ASSERT_NE(registerAs("ää€€€€€€€€"), 0); // Ten characters, 28 bytes.
    const auto information = reportWithID(0x73);
    ASSERT_TRUE(information);
    ASSERT_EQ(information->bytes.size(), 32U);
    EXPECT_EQ(std::string(information->bytes.begin() + 8, information->bytes.end()),
              std::string("ää€€€€€€€€").substr(0, 24));
}

TEST_F(Registration, ReturnsTheDaemonsIdentifierAndTakesItsChannelIdentifier) {
    startDaemon();
    ASSERT_EQ(install(), 0);
    const uint16_t clientID = registerAs("Test");
    const auto seen = moxeld->client(clientID);
    ASSERT_TRUE(seen);
    const ClientRegistry::Client client = CurrentClientViaClientID(clientID);
    ASSERT_TRUE(client);
    EXPECT_EQ(client->applicationInfo()->clientid(), Value(clientID));
    EXPECT_EQ(client->applicationInfo()->channelID(), Value(seen->channelID));
    EXPECT_TRUE(client->m_bClientRegistered());
    EXPECT_EQ(CurrentPendingClient(), nullptr);
}

TEST_F(Registration, IsLoggedStepByStep) {
    test::CapturedLog log;
    daemon::Faults faults;
    faults.noDedicatedChannel = true;
    startDaemonWithFaults(faults);
    ASSERT_EQ(install(), 0);
    const ClientRegistry::Client client = CurrentPendingClient();
    log.clear();
    // The channel comes when it is waited for.
    std::thread publisher([&] {
        EXPECT_TRUE(log.waitFor("Waiting for dedicated cahnnel: "));
        EXPECT_TRUE(moxeld->publishChannel(client->channelID()).ok());
    });
    const uint16_t clientID = registerAs("Viewer");
    publisher.join();
    EXPECT_TRUE(log.has(format("*** %s, client=%p", selector, static_cast<const void *>(client.get()))));
    EXPECT_TRUE(
        log.has(format("****************** %s returning %i (%@), channel creation request for cID=%llx",
                       selector, 1, "Success!", client->channelID())));
    EXPECT_TRUE(log.has("****************** " + selector +
                        " Waiting for final driver responses and flag changes. bIsReRegistration=0, "
                        "m_bHIDChannelDedicatedOpen=0"));
    EXPECT_EQ(log.countStarting("****************** " + selector +
                                " preWaiting for dedicated cahnnel: m_bHIDChannelDedicatedOpen="),
              1U);
    EXPECT_GE(log.countStarting("****************** " + selector + " Waiting for dedicated cahnnel: "), 1U);
    EXPECT_TRUE(log.has(format("****************** %s postWaiting for dedicated cahnnel: "
                               "m_bHIDChannelDedicatedOpen=%i, ref=%@, signalled=%i ",
                               selector, 1, client->m_refHIDChannelDedicated()->description(), 1)));
    EXPECT_TRUE(
        log.has(selector + ", Dedicated communication channel established! Sending registration data:"));
    EXPECT_TRUE(log.has(format("%s, RegisterMoxelClient() -> Registration complete! ClientID = %i %x. Done.",
                               selector, clientID, clientID)));
    EXPECT_TRUE(log.has("-[MoxelClientAPI setAppInfoRecordExitState:], Apname=Viewer"));
    EXPECT_TRUE(log.has(format("%s, Wrote to %@. Exitcode=%x, name=%s",
                               "-[MoxelClientAPI setAppInfoRecordExitState:]",
                               client->m_refHIDChannelDedicated()->description(), 0, "Viewer")));
    EXPECT_TRUE(log.has(selector + ", AppInfoRecord set."));
    EXPECT_EQ(log.countStarting("uint16_t RegisterMoxelClient(uint32_t, uint8_t *, uint16_t, uint32_t), "
                                "RegisterMoxelClient, thread = "),
              1U);
}

// ------------------------------------------------------------------------------------------ Failures

TEST_F(Registration, WithoutAPendingSessionIs0) {
    startDaemon();
    EXPECT_EQ(registerAs("Test"), 0);
    EXPECT_EQ(reportCount(), 0U);
}

TEST_F(Registration, WithoutABaseChannelIs0AndTheThreadIsFree) {
    ASSERT_EQ(install(), -36);
    EXPECT_EQ(registerAs("Test"), 0);
    EXPECT_EQ(CurrentPendingClient(), nullptr);
    EXPECT_TRUE(CurrentClientViaClientID(0)) << "it stands under identifier 0 now";
    startDaemon();
    EXPECT_EQ(install(), 0) << "the thread may install again";
}

TEST_F(Registration, WithoutADedicatedChannelIs0After2AndAHalfSeconds) {
    test::CapturedLog log;
    daemon::Faults faults;
    faults.noDedicatedChannel = true;
    startDaemonWithFaults(faults);
    ASSERT_EQ(install(), 0);
    const auto start = Clock::now();
    EXPECT_EQ(registerAs("Test"), 0);
    const auto took = Clock::now() - start;
    EXPECT_GE(took, std::chrono::milliseconds(2500));
    EXPECT_LT(took, std::chrono::milliseconds(4500));
    EXPECT_TRUE(
        log.has(selector + ", Error: Timeout - Failed to connect to dedicated communication channel!"));
}

TEST_F(Registration, WithADedicatedChannelThatCannotBeOpenedIs0) {
    if (test::usesKernel())
        GTEST_SKIP() << "the kernel opens its devices without asking the daemon";
    test::CapturedLog log;
    daemon::Faults faults;
    faults.refuseDedicatedOpen = true;
    startDaemonWithFaults(faults);
    ASSERT_EQ(install(), 0);
    EXPECT_EQ(registerAs("Test"), 0);
    EXPECT_TRUE(
        log.has(selector + ", Error: Timeout - Failed to connect to dedicated communication channel!"));
    EXPECT_TRUE(log.has(
        "-[MoxelClientAPI channelConnected:fromSender:]. Error!! Failed to pen application channel!"));
}

TEST_F(Registration, OfALateDedicatedChannelSucceeds) {
    daemon::Faults faults;
    faults.dedicatedChannelDelay = std::chrono::milliseconds(300);
    startDaemonWithFaults(faults);
    ASSERT_EQ(install(), 0);
    EXPECT_NE(registerAs("Test"), 0);
}

TEST_F(Registration, WithADaemonThatNeverAnswersIs0WithinFourAndAHalfSeconds) {
    test::CapturedLog log;
    daemon::Faults faults;
    faults.noRegistrationAnswer = true;
    startDaemonWithFaults(faults);
    ASSERT_EQ(install(), 0);
    const auto start = Clock::now();
    EXPECT_EQ(registerAs("Test"), 0);
    const auto took = Clock::now() - start;
    EXPECT_GE(took, std::chrono::milliseconds(2000));
    EXPECT_LT(took, std::chrono::milliseconds(5000));
    EXPECT_TRUE(log.has(selector + ", Error: Timeout - Failed to complete application registration!"));
    for (const daemon::ReceivedReport &report : moxeld->observe().reports)
        EXPECT_NE(report.reportID, 0x73) << "no application information without a registration";
}

TEST_F(Registration, WhoseDataCannotBeSentIs0) {
    if (test::usesKernel())
        GTEST_SKIP() << "the kernel takes output reports without asking the daemon";
    test::CapturedLog log;
    daemon::Faults faults;
    faults.refusedSetReports[0x63] = HIDStatus::error;
    startDaemonWithFaults(faults);
    ASSERT_EQ(install(), 0);
    EXPECT_EQ(registerAs("Test"), 0);
    EXPECT_TRUE(log.has(selector + ", Failed to send registration data!! Returning with no valid handle!"));
}

TEST_F(Registration, AFailedOneStandsUnder0AndASecondOneTakesItsIdentifier) {
    daemon::Faults faults;
    faults.noRegistrationAnswer = true;
    startDaemonWithFaults(faults);
    ASSERT_EQ(install(), 0);
    ASSERT_EQ(registerAs("First"), 0);
    const ClientRegistry::Client failed = CurrentClientViaClientID(0);
    ASSERT_TRUE(failed);
    moxeld->setFaults({});
    ASSERT_EQ(install(), 0);
    const uint16_t clientID = registerAs("Second");
    EXPECT_NE(clientID, 0);
    EXPECT_NE(CurrentClientViaClientID(clientID), failed);
    UnregisterMoxelClient(clientID);
    CleanupMoxelHandlers();
    EXPECT_EQ(CurrentClientViaClientID(0), failed);
}

// ------------------------------------------------------------------------------------------ Unregistration

TEST_F(Registration, UnregisteringTellsTheDaemonAndClosesBothChannels) {
    test::CapturedLog log;
    startDaemon();
    const uint16_t clientID = beginSession();
    const ClientRegistry::Client client = CurrentClientViaClientID(clientID);
    const uint64_t channelID = client->channelID();
    const uint64_t before = reportCount();
    UnregisterMoxelClient(clientID);

    const auto leaving = moxeld->waitForReport(before, patience);
    ASSERT_TRUE(leaving);
    EXPECT_EQ(leaving->reportID, 0x73);
    EXPECT_EQ(leaving->tag, channelID);
    Bytes record{0xAD, 0xDE, 0, 0, 0, 0, 0, 0, 'T', 'e', 's', 't'};
    record.resize(32);
    EXPECT_EQ(leaving->bytes, record);
    const auto terminate = moxeld->waitForReport(before + 1, patience);
    ASSERT_TRUE(terminate);
    EXPECT_EQ(terminate->reportID, 0x46);
    EXPECT_EQ(terminate->tag, 0U);
    EXPECT_EQ(terminate->channelName, moxeld->baseChannelName());
    EXPECT_EQ(terminate->bytes, channelControl(0xDEAD, channelID));

    EXPECT_FALSE(client->m_bClientRegistered());
    EXPECT_EQ(client->m_refHIDChannelDedicated(), nullptr);
    EXPECT_FALSE(client->m_bHIDChannelDedicatedOpen());
    EXPECT_EQ(client->m_refHIDChannelBase(), nullptr);
    EXPECT_FALSE(client->m_bHIDChannelBaseOpen());
    EXPECT_EQ(CurrentPendingClient(), client);
    EXPECT_EQ(CurrentClientViaClientID(clientID), nullptr);
    EXPECT_TRUE(
        moxeld->waitUntil([](const daemon::Observation &seen) { return seen.baseOpenCount == 0; }, patience));
    EXPECT_TRUE(log.has(format("****************** %s returning %i (%@), termination request for cID=%llx",
                               "-[MoxelClientAPI unregisterConnection]", 1, "Success!", channelID)));
    EXPECT_TRUE(log.has(format("<<<<<<<<<<<<<<<<<< %s clientID %d, thread = %lx",
                               "void UnregisterMoxelClient(uint16_t)", clientID, currentThreadKey())));
    EXPECT_TRUE(log.has(format("%s m_bClientRegistered =%i, channelID=%llx",
                               "void UnregisterMoxelClient(uint16_t)", 1, channelID)));
}

TEST_F(Registration, Identifier0UnregistersTheCallingThreadsClient) {
    startDaemon();
    const uint16_t clientID = beginSession();
    const ClientRegistry::Client client = CurrentClientViaClientID(clientID);
    UnregisterMoxelClient(0);
    EXPECT_EQ(CurrentClientViaClientID(clientID), nullptr);
    EXPECT_EQ(CurrentClientViaClientID(0), nullptr);
    EXPECT_EQ(CurrentPendingClient(), client);
    EXPECT_FALSE(client->m_bClientRegistered());
}

TEST_F(Registration, AnUnknownIdentifierChangesNothing) {
    test::CapturedLog log;
    startDaemon();
    const uint16_t clientID = beginSession();
    const uint64_t before = reportCount();
    const std::string error =
        "void UnregisterMoxelClient(uint16_t), Error: No valid client entry found! Can not "
        "unregister! Check your thread, please!!!";
    UnregisterMoxelClient(static_cast<uint16_t>(clientID + 1));
    EXPECT_EQ(log.count(error), 1U);
    std::thread([] { UnregisterMoxelClient(0); }).join();
    EXPECT_EQ(log.count(error), 2U);
    EXPECT_EQ(reportCount(), before);
    EXPECT_TRUE(CurrentClientViaClientID(clientID)->m_bClientRegistered());
}

TEST_F(Registration, UnregisteringAFailedRegistrationOnlyMovesItBack) {
    test::CapturedLog log;
    daemon::Faults faults;
    faults.noDedicatedChannel = true;
    startDaemonWithFaults(faults);
    ASSERT_EQ(install(), 0);
    ASSERT_EQ(registerAs("Test"), 0);
    const uint64_t before = reportCount();
    UnregisterMoxelClient(0);
    EXPECT_EQ(reportCount(), before);
    EXPECT_TRUE(CurrentPendingClient());
    EXPECT_EQ(gClients().size(), 0U);
    EXPECT_EQ(log.countStarting("****************** -[MoxelClientAPI unregisterConnection]"), 0U);
}

TEST(UnregisterConnection, OfAClientThatIsNotRegisteredIsFalseAndSendsNothing) {
    test::CapturedLog log;
    const auto client = MoxelClientTestAccess::make(Recorder::message, nullptr, nullptr, false);
    const auto base = test::FakeHIDDevice::channel("base");
    const auto dedicated = test::FakeHIDDevice::channel("dedicated");
    client->setM_refHIDChannelBase(base);
    client->setM_refHIDChannelDedicated(dedicated);
    EXPECT_FALSE(client->unregisterConnection());
    EXPECT_TRUE(base->reports.empty());
    EXPECT_TRUE(dedicated->reports.empty());
    EXPECT_EQ(dedicated->closes, 0);
    EXPECT_EQ(log.countStarting(format("****************** %s, %p, Called ",
                                       "-[MoxelClientAPI unregisterConnection]",
                                       static_cast<const void *>(client.get()))),
              1U);
}

TEST(UnregisterConnection, IsTrueWhateverBecomesOfTheTermination) {
    test::CapturedLog log;
    const auto client = MoxelClientTestAccess::make(Recorder::message, nullptr, nullptr, false);
    const auto base = test::FakeHIDDevice::channel("base");
    const auto dedicated = test::FakeHIDDevice::channel("dedicated");
    client->setM_refHIDChannelBase(base);
    client->setM_refHIDChannelDedicated(dedicated);
    client->setM_bClientRegistered(true);
    client->setChannelID(17);
    client->applicationInfo()->setChannelID(uint64_t{17});
    base->setReportStatus = HIDStatus::error;
    dedicated->closeStatus = HIDStatus::noDevice;
    EXPECT_TRUE(client->unregisterConnection());
    EXPECT_EQ(base->reports.size(), 1U);
    EXPECT_FALSE(client->m_bClientRegistered());
    EXPECT_EQ(client->m_refHIDChannelDedicated(), nullptr);
    EXPECT_TRUE(
        log.has("ERROR: There was an error closing the dedicated channel device 17, error -536870208!"));
    EXPECT_TRUE(log.has("****************** -[MoxelClientAPI unregisterConnection] returning 0 (Failure!), "
                        "termination request for cID=11"));
}

TEST(UnregisterConnection, WhoseFarewellFailsIsFalse) {
    const auto client = MoxelClientTestAccess::make(Recorder::message, nullptr, nullptr, false);
    const auto dedicated = test::FakeHIDDevice::channel("dedicated");
    client->setM_refHIDChannelDedicated(dedicated);
    client->setM_bClientRegistered(true);
    dedicated->setReportStatus = HIDStatus::error;
    EXPECT_FALSE(client->unregisterConnection());
    EXPECT_TRUE(client->m_bClientRegistered());
    EXPECT_EQ(dedicated->closes, 0);
}

// ------------------------------------------------------------------------------------------ Again

TEST_F(Registration, IsRepeatedWhenTheDaemonAsks) {
    test::CapturedLog log;
    startDaemon();
    const uint16_t clientID = beginSession();
    const uint64_t before = reportCount();
    ASSERT_EQ(moxeld->requestReRegistration(clientID), 1U);
    const std::string done = format("blockoperation re-register returned cID=%i", clientID);
    while (!log.has(done))
        ASSERT_GE((*RunLoop::current())->dispatch(10000), 0);
    EXPECT_EQ(log.countStarting(selector + " - RE-Registration .. using appinfo: <MxlApplication:"), 1U);
    const auto seen = moxeld->client(clientID);
    ASSERT_TRUE(seen);
    EXPECT_EQ(seen->registrations, 2);
    const auto request = moxeld->waitForReport(before, patience);
    ASSERT_TRUE(request);
    EXPECT_EQ(request->reportID, 0x63) << "no channel is asked for again";
    EXPECT_TRUE(CurrentClientViaClientID(clientID)->m_bClientRegistered());
    EXPECT_FALSE(CurrentClientViaClientID(clientID)->m_bReRegistrationRequest());
}

TEST_F(Registration, AnswersStoredDataQueries) {
    startDaemon();
    const uint16_t clientID = beginSession();
    ASSERT_EQ(moxeld->queryStoredData(clientID), 1U);
    EXPECT_TRUE(moxeld->waitUntil(
        [](const daemon::Observation &seen) {
            return !seen.clients.empty() && seen.clients[0].storedDataReplies == 1;
        },
        patience));
}

TEST_F(Registration, WhoseFarewellFailsLeavesTheBaseChannelOpenAndMovesTheSessionBack) {
    if (test::usesKernel())
        GTEST_SKIP() << "the kernel takes output reports without asking the daemon";
    test::CapturedLog log;
    startDaemon();
    const uint16_t clientID = beginSession();
    const ClientRegistry::Client client = CurrentClientViaClientID(clientID);
    daemon::Faults faults;
    faults.refusedSetReports[0x73] = HIDStatus::error;
    moxeld->setFaults(faults);
    UnregisterMoxelClient(clientID);
    EXPECT_EQ(log.count("void UnregisterMoxelClient(uint16_t), Error: Call to terminate "), 1U);
    EXPECT_TRUE(client->m_bClientRegistered());
    EXPECT_TRUE(client->m_bHIDChannelBaseOpen());
    EXPECT_TRUE(client->m_bHIDChannelDedicatedOpen());
    EXPECT_EQ(CurrentPendingClient(), client);
    EXPECT_EQ(CurrentClientViaClientID(clientID), nullptr);
}

TEST_F(Registration, AFirstOneIsNotMarkedAsRepeated) {
    startDaemon();
    beginSession();
    const auto request = reportWithID(0x63);
    ASSERT_TRUE(request);
    const Result<Value> root = unarchiveObjectWithData(request->bytes);
    ASSERT_TRUE(root.ok());
    EXPECT_EQ(root->asDictionary()["req"], Value("regclient"));
    EXPECT_EQ(root->asDictionary()["type"].kind(), Kind::boolean);
    EXPECT_EQ(root->asDictionary()["type"], Value(false));
}

TEST_F(Registration, WithALateChannelAndNoAnswerIs0After4AndAHalfSecondsAtMost) {
    daemon::Faults faults;
    faults.dedicatedChannelDelay = std::chrono::milliseconds(1500); // Of 2.5 s.
    faults.noRegistrationAnswer = true;
    startDaemonWithFaults(faults);
    ASSERT_EQ(install(), 0);
    const auto start = Clock::now();
    EXPECT_EQ(registerAs("Test"), 0);
    const auto took = Clock::now() - start;
    EXPECT_GE(took, std::chrono::milliseconds(3500));
    EXPECT_LT(took, std::chrono::milliseconds(5500)); // 4.5 s and a busy machine.
}

TEST(UnregisterConnection, CountsItsCallsInEightBits) {
    test::CapturedLog log;
    const auto client = MoxelClientTestAccess::make(Recorder::message, nullptr, nullptr, false);
    const std::string start =
        format("****************** %s, %p, Called ", "-[MoxelClientAPI unregisterConnection]",
               static_cast<const void *>(client.get()));
    std::vector<int> counts;
    for (int i = 0; i < 257; ++i) {
        EXPECT_FALSE(client->unregisterConnection());
        counts.push_back(std::stoi(log.lines().back().substr(start.size())));
        ASSERT_EQ(log.lines().back(), start + std::to_string(counts.back()) + " times...");
        log.clear();
    }
    for (size_t i = 1; i < counts.size(); ++i)
        ASSERT_EQ(counts[i], (counts[i - 1] + 1) % 256);
}

// ---------------------------------------------------------------------- Bundle identifier

class ApplicationBundle : public ::testing::Test {
  protected:
    static MainBundle bundleAt(const std::string &path) {
        MainBundle bundle;
        bundle.path = path;
        return bundle;
    }
    static std::string information(const std::string &identifier) {
        return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
               "<key>CFBundleIdentifier</key><string>" +
               identifier + "</string></dict></plist>\n";
    }
    test::TemporaryFolder applications;
};

TEST_F(ApplicationBundle, IdentifierOfTheBundleWins) {
    MainBundle bundle = bundleAt("/nowhere");
    bundle.identifier = "org.example.Own";
    EXPECT_EQ(applicationBundleIdentifier(bundle), Value("org.example.Own"));
}

TEST_F(ApplicationBundle, AHelperTakesTheIdentifierOfTheFirstApplicationInItsPath) {
    applications.write("Tool.app/Contents/Info.plist", information("org.example.Tool"));
    applications.write("Tool.app/Contents/Helpers/X.app/Contents/Info.plist", "not a property list");
    EXPECT_EQ(applicationBundleIdentifier(bundleAt(applications.path("Tool.app/Contents/Helpers/X.app"))),
              Value("org.example.Tool"));
}

TEST_F(ApplicationBundle, TheBundlesOwnPropertyListTellsItsIdentifier) {
    applications.write("Tool.app/Contents/Info.plist", information("org.example.Tool"));
    applications.write("Tool.app/Contents/Helpers/X.app/Contents/Info.plist", information("org.example.X"));
    EXPECT_EQ(applicationBundleIdentifier(bundleAt(applications.path("Tool.app"))),
              Value("org.example.Tool"));
    EXPECT_EQ(applicationBundleIdentifier(bundleAt(applications.path("Tool.app/Contents/Helpers/X.app"))),
              Value("org.example.X"));
}

TEST_F(ApplicationBundle, APathThatEndsInItsFirstApplicationHasNoEnclosingOne) {
    applications.write("Tool.app/Contents/Info.plist", "{ Other = text; }");
    EXPECT_TRUE(applicationBundleIdentifier(bundleAt(applications.path("Tool.app"))).isNull());
}

TEST_F(ApplicationBundle, WithoutAnApplicationOrAReadableListThereIsNone) {
    EXPECT_TRUE(applicationBundleIdentifier(bundleAt("/usr/bin")).isNull());
    EXPECT_TRUE(applicationBundleIdentifier(bundleAt(applications.path("Missing.app/Contents"))).isNull());
    applications.write("Broken.app/Contents/Info.plist", "{ broken");
    EXPECT_TRUE(applicationBundleIdentifier(bundleAt(applications.path("Broken.app/Contents"))).isNull());
    applications.write("Array.app/Contents/Info.plist", "( CFBundleIdentifier )");
    EXPECT_TRUE(applicationBundleIdentifier(bundleAt(applications.path("Array.app/Contents"))).isNull());
}

} // namespace
} // namespace moxel
