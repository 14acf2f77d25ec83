// Installation and cleanup of handlers, and the registries of sessions.
#include "Helpers/Condition.h"
#include "Platform/RunLoop.h"
#include "Support/Await.h"
#include "Support/CapturedLog.h"
#include "Support/LiveDaemon.h"
#include "Values/Format.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

namespace moxel {
namespace {

using Clock = std::chrono::steady_clock;
using Recorder = test::HandlerRecorder;

const std::string setHandlers =
    "int16_t SetMoxelHandlers(MoxelMessageHandlerProc, MoxelAddedHandlerProc, MoxelRemovedHandlerProc, bool)";

class HandlerInstallation : public test::LiveDaemonTest {};

TEST_F(HandlerInstallation, WithoutAMessageHandlerFailsAndCreatesNoClient) {
    test::CapturedLog log;
    EXPECT_EQ(SetMoxelHandlers(nullptr, Recorder::added, Recorder::removed, false), -36);
    EXPECT_EQ(
        _SetMoxelHandlers(nullptr, Recorder::addedWithContext, Recorder::removedWithContext, nullptr, false),
        -36);
    EXPECT_EQ(InstallMoxelHandlers(nullptr, Recorder::added, Recorder::removed), -36);
    EXPECT_EQ(gPendingClients().size(), 0U);
    EXPECT_EQ(CurrentPendingClient(), nullptr);
    EXPECT_EQ(log.lines().size(), 3U) << "the entry line only";
}

TEST_F(HandlerInstallation, WithABaseChannelSucceeds) {
    startDaemon();
    EXPECT_EQ(install(), 0);
    const ClientRegistry::Client client = CurrentPendingClient();
    ASSERT_TRUE(client);
    EXPECT_TRUE(client->m_refHIDChannelBase());
    EXPECT_TRUE(client->m_bHIDChannelBaseOpen());
    EXPECT_TRUE(client->bClientReady());
}

TEST_F(HandlerInstallation, IsLoggedWithItsArguments) {
    test::CapturedLog log;
    startDaemon();
    ASSERT_EQ(install(true), 0);
    const ClientRegistry::Client client = CurrentPendingClient();
    EXPECT_EQ(log.countStarting(setHandlers + ", threaded = 1, thread = "), 1U);
    EXPECT_TRUE(log.has(format("%s, threaded = %d, thread = %lx, msgH, addH, remH: %p %p %p", setHandlers, 1,
                               currentThreadKey(), reinterpret_cast<const void *>(Recorder::message),
                               reinterpret_cast<const void *>(Recorder::added),
                               reinterpret_cast<const void *>(Recorder::removed))));
    EXPECT_TRUE(
        log.has(format("%s, Init done. Self=%p, callerthread=%@",
                       "-[MoxelClientAPI initWithMessageHandler:addedHandler:removedHandler:threaded:]",
                       static_cast<const void *>(client.get()), Thread::current()->description())));
    EXPECT_TRUE(log.has(format("%s, EXIT client=%p, client.m_refHIDChannelBase=%@, client.hidBaseOpen=%i",
                               setHandlers, static_cast<const void *>(client.get()),
                               client->m_refHIDChannelBase()->description(), 1)));
}

TEST_F(HandlerInstallation, TwiceOnOneThreadWithoutRegistrationIsRefused) {
    test::CapturedLog log;
    startDaemon();
    ASSERT_EQ(install(), 0);
    const ClientRegistry::Client client = CurrentPendingClient();
    EXPECT_EQ(install(), -188);
    EXPECT_EQ(InstallMoxelHandlers(Recorder::message, nullptr, nullptr), -188);
    EXPECT_EQ(_SetMoxelHandlers(Recorder::messageWithContext, nullptr, nullptr, nullptr, true), -188);
    EXPECT_EQ(CurrentPendingClient(), client) << "the pending session is untouched";
    EXPECT_EQ(log.count("Error: " + setHandlers +
                        " called multiple times without a following call to RegisterMoxelClient()!"),
              2U);
}

TEST_F(HandlerInstallation, OnTwoThreadsMakesTwoIndependentSessions) {
    startDaemon();
    ASSERT_EQ(install(), 0);
    std::thread([] {
        EXPECT_EQ(install(), 0);
        EXPECT_EQ(gPendingClients().size(), 2U);
        endSession();
        EXPECT_EQ(CurrentPendingClient(), nullptr);
    }).join();
    EXPECT_EQ(gPendingClients().size(), 1U);
    EXPECT_TRUE(CurrentPendingClient()->bClientReady());
}

TEST_F(HandlerInstallation, WithoutABaseChannelFailsAfter2SecondsAndStaysPending) {
    const auto start = Clock::now();
    EXPECT_EQ(install(), -36);
    const auto took = Clock::now() - start;
    EXPECT_GE(took, std::chrono::milliseconds(2000));
    EXPECT_LT(took, std::chrono::milliseconds(4000));
    const ClientRegistry::Client client = CurrentPendingClient();
    ASSERT_TRUE(client);
    EXPECT_TRUE(client->bClientReady()) << "its thread keeps running";
    EXPECT_EQ(install(), -188);
    CleanupMoxelHandlers();
    EXPECT_EQ(CurrentPendingClient(), nullptr);
}

TEST_F(HandlerInstallation, WithContextWithoutABaseChannelFailsLikewise) {
    int context = 0;
    EXPECT_EQ(_SetMoxelHandlers(Recorder::messageWithContext, nullptr, nullptr, &context, false), -36);
    EXPECT_TRUE(CurrentPendingClient());
}

TEST_F(HandlerInstallation, WhenTheBaseChannelCannotBeOpenedFails) {
    if (test::usesKernel())
        GTEST_SKIP() << "the kernel opens its devices without asking the daemon";
    daemon::Faults faults;
    faults.refuseBaseOpen = true;
    startDaemonWithFaults(faults);
    EXPECT_EQ(install(), -36);
    EXPECT_TRUE(CurrentPendingClient()->m_refHIDChannelBase());
    EXPECT_FALSE(CurrentPendingClient()->m_bHIDChannelBaseOpen());
}

TEST_F(HandlerInstallation, FindsABaseChannelThatComesLate) {
    std::promise<void> installing;
    std::thread installer([&] {
        installing.set_value();
        EXPECT_EQ(install(), 0);
        endSession();
    });
    installing.get_future().wait();
    startDaemon();
    installer.join();
}

TEST_F(HandlerInstallation, WithContextStoresTheHandlersInTheirSlots) {
    startDaemon();
    int context = 0;
    ASSERT_EQ(_SetMoxelHandlers(Recorder::messageWithContext, Recorder::addedWithContext,
                                Recorder::removedWithContext, &context, false),
              0);
    const ClientRegistry::Client client = CurrentPendingClient();
    EXPECT_EQ(client->m_ptrClient(), &context);
    client->callerThreadProxy({{"handler", 2}, {"pid", 5U}});
    ASSERT_EQ(Recorder::instance().count(), 1U);
    EXPECT_TRUE(Recorder::instance().calls()[0].withContext);
}

TEST_F(HandlerInstallation, InstallMoxelHandlersIsNotThreaded) {
    test::CapturedLog log;
    startDaemon();
    EXPECT_EQ(InstallMoxelHandlers(Recorder::message, nullptr, nullptr), 0);
    EXPECT_EQ(log.countStarting(setHandlers + ", threaded = 0, thread = "), 1U);
}

TEST_F(HandlerInstallation, ReseedsTheRandomNumberGenerator) {
    startDaemon();
    ::srandom(1);
    const long expected = ::random();
    ::srandom(1);
    ASSERT_EQ(install(), 0);
    EXPECT_NE(::random(), expected);
}

// ------------------------------------------------------------------------------------------ Registries

TEST_F(HandlerInstallation, Identifier0StandsForTheRegisteredSessionOfTheThread) {
    startDaemon();
    EXPECT_EQ(CurrentClientViaClientID(0), nullptr);
    const uint16_t clientID = beginSession();
    const ClientRegistry::Client client = CurrentClientViaClientID(clientID);
    ASSERT_TRUE(client);
    EXPECT_EQ(CurrentClientViaClientID(0), client);
    std::thread([clientID, client] {
        EXPECT_EQ(CurrentClientViaClientID(0), nullptr);
        EXPECT_EQ(CurrentClientViaClientID(clientID), client);
    }).join();
    EXPECT_EQ(CurrentClientViaClientID(static_cast<uint16_t>(clientID + 1)), nullptr);
}

TEST(ClientRegistry, KeepsTheOrderOfItsEntries) {
    ClientRegistry registry;
    const auto client = [] {
        return std::shared_ptr<MoxelClientAPI>(std::shared_ptr<void>(),
                                               reinterpret_cast<MoxelClientAPI *>(8));
    };
    const ClientRegistry::Client first = client();
    registry.set(7, first, 1);
    registry.set(3, nullptr, 1);
    EXPECT_EQ(registry.findOfThread(1), first);
    EXPECT_EQ(registry.findOfThread(2), nullptr);
    registry.set(7, first, 2);
    EXPECT_EQ(registry.size(), 2U);
    EXPECT_EQ(registry.findOfThread(1), nullptr);
    registry.remove(7);
    registry.remove(7);
    EXPECT_EQ(registry.find(7), nullptr);
    EXPECT_EQ(registry.size(), 1U);
}

// ------------------------------------------------------------------------------------------ Cleanup

TEST_F(HandlerInstallation, CleanupAfterUnregisteringStopsTheClientThreadAndEmptiesTheEntry) {
    test::CapturedLog log;
    startDaemon();
    const uint16_t clientID = beginSession();
    UnregisterMoxelClient(clientID);
    const std::weak_ptr<MoxelClientAPI> weak = CurrentPendingClient();
    ASSERT_FALSE(weak.expired());
    log.clear();
    CleanupMoxelHandlers();
    EXPECT_TRUE(weak.expired()) << "thread and object are gone";
    EXPECT_EQ(CurrentPendingClient(), nullptr);
    const std::string error =
        "void CleanupMoxelHandlers(void), Error: Failed to cleanup connection! Presumably "
        "UnregisterMoxelClient() was not called beforehand!";
    EXPECT_FALSE(log.has(error));
    CleanupMoxelHandlers();
    EXPECT_EQ(log.count(error), 1U);
    EXPECT_TRUE(log.has(format("void CleanupMoxelHandlers(void), thread = %lx", currentThreadKey())));
    EXPECT_TRUE(log.has("void CleanupMoxelHandlers(void) client=0x0"));
}

TEST_F(HandlerInstallation, CleanupWhileRegisteredLeavesTheSessionRegistered) {
    test::CapturedLog log;
    startDaemon();
    const uint16_t clientID = beginSession();
    CleanupMoxelHandlers();
    EXPECT_EQ(log.countContaining("Error: Failed to cleanup connection!"), 1U);
    ASSERT_TRUE(CurrentClientViaClientID(clientID));
    EXPECT_TRUE(CurrentClientViaClientID(clientID)->bClientReady());
}

TEST_F(HandlerInstallation, AfterCleanupTheThreadCanBeginAgain) {
    startDaemon();
    for (int i = 0; i < 3; ++i) {
        EXPECT_NE(beginSession(), 0);
        endSession();
    }
    EXPECT_TRUE(moxeld->waitUntil(
        [](const daemon::Observation &seen) { return seen.clients.empty() && seen.departed.size() == 3; },
        patience));
}

TEST_F(HandlerInstallation, StoppingAThreadThatHasEndedReturnsAtOnce) {
    startDaemon();
    ASSERT_EQ(install(), 0);
    const ClientRegistry::Client client = CurrentPendingClient();
    EXPECT_TRUE(client->stopClientThread());
    EXPECT_FALSE(client->bClientReady());
    EXPECT_EQ(client->m_refHIDChannelBase(), nullptr);
    EXPECT_FALSE(client->m_bHIDChannelBaseOpen());
    const auto start = Clock::now();
    EXPECT_TRUE(client->stopClientThread());
    EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(900));
}

TEST_F(HandlerInstallation, CleanupGivesUpAfterASecondOnAHandlerThatDoesNotReturn) {
    startDaemon();
    const uint16_t clientID = beginSession(true);
    std::promise<void> entered;
    std::promise<void> mayLeave;
    Recorder::instance().setOnCall([&](const test::ReceivedCall &) {
        entered.set_value();
        mayLeave.get_future().wait();
    });
    MoxelStateRecord record{};
    record.command = 3;
    ASSERT_EQ(moxeld->sendState(clientID, record), 1U);
    entered.get_future().wait();
    UnregisterMoxelClient(clientID);
    const std::weak_ptr<MoxelClientAPI> weak = CurrentPendingClient();
    std::promise<void> ended;
    const auto subscription = NotificationCenter::defaultCenter().subscribe(
        threadWillExitNotification, nullptr, [&ended](const Notification &notification) {
            if (dynamic_cast<const Thread &>(*notification.object).name() == "Mxl-Client")
                ended.set_value();
        });
    const auto start = Clock::now();
    CleanupMoxelHandlers();
    const auto took = Clock::now() - start;
    EXPECT_GE(took, std::chrono::milliseconds(900));
    EXPECT_LT(took, std::chrono::milliseconds(3000));
    EXPECT_EQ(CurrentPendingClient(), nullptr);
    EXPECT_FALSE(weak.expired()) << "the thread holds the object until it can end";
    mayLeave.set_value();
    ended.get_future().wait();
    EXPECT_TRUE(weak.expired());
}

std::atomic<int> destroyedCallers{0};

/// What an application may have made for a thread, and let call the library when the thread ends.
struct CallerAtTheEnd {
    CallerAtTheEnd() = default;
    CallerAtTheEnd(const CallerAtTheEnd &) = delete;
    CallerAtTheEnd &operator=(const CallerAtTheEnd &) = delete;
    ~CallerAtTheEnd() {
        UnregisterMoxelClient(4321);
        ++destroyedCallers;
    }
};

TEST_F(HandlerInstallation, CleanupLetsTheEndOfTheClientThreadCallBack) {
    startDaemon();
    const uint16_t clientID = beginSession(true);
    std::promise<void> called;
    Recorder::instance().setOnCall([&called](const test::ReceivedCall &) {
        const static thread_local CallerAtTheEnd caller;
        (void)caller;
        called.set_value();
    });
    MoxelStateRecord record{};
    record.command = 3;
    ASSERT_EQ(moxeld->sendState(clientID, record), 1U);
    called.get_future().wait();
    UnregisterMoxelClient(clientID);
    destroyedCallers = 0;
    CleanupMoxelHandlers();
    EXPECT_EQ(destroyedCallers, 1) << "the thread has ended";
}

// ------------------------------------------------------------------------------------------ Replaced

/// Waits until the threads of `count` sessions that nobody stops by a call have ended.
class ClientThreadsEnd {
  public:
    [[nodiscard]] bool await(int count) const { return ended_->awaitValue(count); }

  private:
    // Shared with the subscription, which may be running when it is taken back.
    std::shared_ptr<test::Awaited<int>> ended_ = std::make_shared<test::Awaited<int>>(0);
    NotificationSubscription subscription_ = NotificationCenter::defaultCenter().subscribe(
        threadWillExitNotification, nullptr, [ended = ended_](const Notification &notification) {
            if (dynamic_cast<const Thread &>(*notification.object).name() == "Mxl-Client")
                ended->change([](int &count) { ++count; });
        });
};

TEST_F(HandlerInstallation, APendingSessionThatAnotherThreadsTakesThePlaceOfIsEnded) {
    startDaemon();
    uint16_t others = 0;
    std::thread([&] { others = beginSession(); }).join();
    ASSERT_EQ(install(), 0);
    const std::weak_ptr<MoxelClientAPI> replaced = CurrentPendingClient();
    const ClientThreadsEnd threads;
    UnregisterMoxelClient(others);
    EXPECT_TRUE(threads.await(1));
    EXPECT_TRUE(replaced.expired());
    ASSERT_TRUE(CurrentPendingClient());
    EXPECT_TRUE(CurrentPendingClient()->bClientReady()) << "the other one waits for its cleanup";
}

TEST_F(HandlerInstallation, UnregisteringTwiceEndsNothing) {
    startDaemon();
    const uint16_t clientID = beginSession();
    UnregisterMoxelClient(clientID);
    gClients().set(clientID, CurrentPendingClient(), currentThreadKey());
    UnregisterMoxelClient(clientID);
    ASSERT_TRUE(CurrentPendingClient());
    EXPECT_TRUE(CurrentPendingClient()->bClientReady());
}

TEST_F(HandlerInstallation, APendingSessionThatStandsAmongTheRegisteredTooIsNotEnded) {
    startDaemon();
    uint16_t others = 0;
    std::thread([&] { others = beginSession(); }).join();
    ASSERT_EQ(install(), 0);
    const ClientRegistry::Client held = CurrentPendingClient();
    gClients().set(4321, held, currentThreadKey());
    UnregisterMoxelClient(others);
    EXPECT_NE(CurrentPendingClient(), held);
    EXPECT_TRUE(held->bClientReady());
    UnregisterMoxelClient(4321);
    EXPECT_EQ(CurrentPendingClient(), held);
}

TEST_F(HandlerInstallation, AFailedSessionThatAnotherThreadsTakesThePlaceOfIsEnded) {
    std::weak_ptr<MoxelClientAPI> replaced;
    std::thread([&] {
        ASSERT_EQ(install(), -36);
        EXPECT_EQ(registerAs("First"), 0);
        replaced = CurrentClientViaClientID(0);
    }).join();
    ASSERT_FALSE(replaced.expired());
    EXPECT_TRUE(replaced.lock()->bClientReady()) << "a failed session goes on";
    const ClientThreadsEnd threads;
    ASSERT_EQ(install(), -36);
    EXPECT_EQ(registerAs("Second"), 0);
    EXPECT_TRUE(threads.await(1));
    EXPECT_TRUE(replaced.expired());
    ASSERT_TRUE(CurrentClientViaClientID(0));
    EXPECT_TRUE(CurrentClientViaClientID(0)->bClientReady());
}

TEST_F(HandlerInstallation, APendingSessionInWhosePlaceAnotherRegistersOnceMoreIsEnded) {
    test::CapturedLog log;
    startDaemon();
    const uint16_t clientID = beginSession();
    ASSERT_EQ(install(), 0);
    const std::weak_ptr<MoxelClientAPI> waiting = CurrentPendingClient();
    const ClientThreadsEnd threads;
    ASSERT_EQ(moxeld->requestReRegistration(clientID), 1U);
    while (!log.has(format("blockoperation re-register returned cID=%i", clientID)))
        ASSERT_GE((*RunLoop::current())->dispatch(10000), 0);
    EXPECT_TRUE(threads.await(1));
    EXPECT_TRUE(waiting.expired());
    ASSERT_TRUE(CurrentClientViaClientID(clientID));
    EXPECT_TRUE(CurrentClientViaClientID(clientID)->bClientReady());
}

TEST_F(HandlerInstallation, ASessionThatTheDaemonKeepsIsNotEndedWhenAnotherTakesItsPlace) {
    if (test::usesKernel())
        GTEST_SKIP() << "the kernel takes output reports without asking the daemon";
    startDaemon();
    uint16_t others = 0;
    std::thread([&] { others = beginSession(); }).join();
    const uint16_t clientID = beginSession();
    const ClientRegistry::Client kept = CurrentClientViaClientID(clientID);
    daemon::Faults faults;
    faults.refusedSetReports[0x73] = HIDStatus::error; // The farewell.
    moxeld->setFaults(faults);
    UnregisterMoxelClient(clientID);
    EXPECT_TRUE(kept->m_bClientRegistered());
    UnregisterMoxelClient(others);
    EXPECT_NE(CurrentPendingClient(), kept);
    EXPECT_TRUE(kept->bClientReady());
    kept->stopClientThread();
}

} // namespace
} // namespace moxel
