// Forwarding of state records: order, the backlog rule, bounded memory, and threads that end.
#include "Protocol/StateForwarder.h"
#include "Support/CapturedLog.h"
#include "Support/ClientTestAccess.h"
#include "Support/HandlerRecorder.h"
#include "Support/ThreadSanitizer.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <future>
#include <new>
#include <thread>
#include <vector>

namespace {
thread_local size_t allocations = 0;
thread_local bool isOutOfMemory = false;
} // namespace

#if !MOXEL_UNDER_THREAD_SANITIZER
void *operator new(std::size_t size) {
    ++allocations;
    if (isOutOfMemory)
        throw std::bad_alloc();
    if (void *memory = std::malloc(size == 0 ? 1 : size))
        return memory;
    throw std::bad_alloc();
}
void operator delete(void *memory) noexcept { std::free(memory); }
void operator delete(void *memory, std::size_t) noexcept { std::free(memory); }
#endif

namespace moxel {
namespace {

using Access = MoxelClientTestAccess;
using Recorder = test::HandlerRecorder;

/// (command, value) of a delivered record.
using Seen = std::pair<uint16_t, int32_t>;

class Forwarding : public testing::Test {
  protected:
    void SetUp() override {
        Recorder::instance().clear();
        client = Access::make(Recorder::message, nullptr, nullptr, false);
    }
    void forward(uint16_t command, int32_t value, Thread &thread = *Thread::current()) {
        MoxelStateRecord record{};
        record.command = command;
        record.value = value;
        forwarder().forward(thread, 1, record);
    }
    StateForwarder &forwarder() { return Access::stateForwarder(client); }
    static std::vector<Seen> delivered() {
        std::vector<Seen> result;
        for (const test::ReceivedCall &call : Recorder::instance().calls()) {
            MoxelStateRecord record;
            std::memcpy(&record, call.bytes.data(), sizeof record);
            result.emplace_back(record.command, record.value);
        }
        return result;
    }
    static void dispatchAll() {
        while ((*RunLoop::current())->dispatch(0) > 0) {
        }
    }

    Access::Client client;
};

TEST_F(Forwarding, WhileTheCallerKeepsUpEveryRecordIsDelivered) {
    for (int i = 0; i < 10; ++i) {
        forward(3, i);
        dispatchAll();
    }
    ASSERT_EQ(delivered().size(), 10U);
    EXPECT_EQ(delivered().back(), Seen(3, 9));
    EXPECT_EQ(client->outstandingStateCallbacks(), 0);
}

TEST_F(Forwarding, OfABacklogOfMotionOnlyTheNewestIsDelivered) {
    for (int i = 0; i < 1000; ++i)
        forward(3, i);
    EXPECT_EQ(client->outstandingStateCallbacks(), 1);
    dispatchAll();
    EXPECT_EQ(delivered(), (std::vector<Seen>{{3, 999}}));
    EXPECT_EQ(client->outstandingStateCallbacks(), 0);
}

TEST_F(Forwarding, UnderABacklogCommands2And10And11AreAllDeliveredInOrder) {
    std::vector<Seen> expected;
    int value = 0;
    for (int i = 0; i < 100; ++i) {
        for (const uint16_t command : std::initializer_list<uint16_t>{3, 2, 3, 10, 3, 3, 11}) {
            forward(command, value);
            if (command != 3)
                expected.emplace_back(command, value);
            ++value;
        }
    }
    forward(3, value);
    expected.emplace_back(3, value);
    dispatchAll();
    EXPECT_EQ(delivered(), expected);
    EXPECT_EQ(client->outstandingStateCallbacks(), 0);
}

TEST_F(Forwarding, ANewerRecordDoesNotOvertakeAMessageOfAnotherKind) {
    std::vector<int> order;
    forward(3, 1);
    forwarder().keepOrder();
    Thread::current()->perform([&] { order.push_back(static_cast<int>(delivered().size())); });
    forward(3, 2);
    dispatchAll();
    EXPECT_EQ(delivered(), (std::vector<Seen>{{3, 2}}));
    EXPECT_EQ(order, (std::vector<int>{0}));
}

TEST_F(Forwarding, RecordsForAThreadThatEndsAreDroppedAndNotCounted) {
    std::promise<std::shared_ptr<Thread>> started;
    std::promise<void> mayEnd;
    std::thread other([&] {
        started.set_value(Thread::current());
        mayEnd.get_future().wait();
    });
    const std::shared_ptr<Thread> target = started.get_future().get();
    for (int i = 0; i < 5; ++i)
        forward(10, i, *target);
    EXPECT_EQ(client->outstandingStateCallbacks(), 5);
    mayEnd.set_value();
    other.join();
    EXPECT_EQ(client->outstandingStateCallbacks(), 0);
    forward(10, 6, *target);
    EXPECT_EQ(client->outstandingStateCallbacks(), 0);
    EXPECT_TRUE(delivered().empty());
}

TEST_F(Forwarding, IsBoundedAndSaysSoOnce) {
    test::CapturedLog log;
    for (int i = 0; i < 65536 + 10; ++i)
        forward(10, i);
    EXPECT_EQ(client->outstandingStateCallbacks(), 65536);
    EXPECT_EQ(log.countStarting("Error: state records are dropped because 65536 wait"), 1U);
    dispatchAll();
    EXPECT_EQ(delivered().size(), 65536U);
    forward(10, 1);
    dispatchAll();
    EXPECT_EQ(delivered().size(), 65537U);
}

TEST_F(Forwarding, RecordsDroppedAfterTheClientThreadEndedAreNotCountedAnyMore) {
    forward(10, 1);
    Access::setReady(client, false);
    dispatchAll();
    EXPECT_TRUE(delivered().empty());
    EXPECT_EQ(client->outstandingStateCallbacks(), 0);
}

TEST_F(Forwarding, RecordsOnTheirWayKeepTheClientAlive) {
    const std::weak_ptr<MoxelClientAPI> weak = client;
    forward(10, 1);
    client.reset();
    EXPECT_FALSE(weak.expired());
    dispatchAll();
    EXPECT_TRUE(weak.expired());
    EXPECT_EQ(delivered().size(), 1U);
}

TEST_F(Forwarding, BetweenTwoThreadsLosesNoImportantRecordAndEndsWithTheNewest) {
    constexpr int count = 20000;
    const std::shared_ptr<Thread> caller = Thread::current();
    std::thread sender([&] {
        for (int i = 0; i < count; ++i)
            forward(i % 10 == 0 ? 10 : 3, i, *caller);
        forward(3, count, *caller);
    });
    const auto last = [] { return delivered().empty() ? -1 : delivered().back().second; };
    while (last() != count)
        (*RunLoop::current())->dispatch(1000);
    sender.join();
    int important = 0;
    int previous = -1;
    for (const auto &[command, value] : delivered()) {
        EXPECT_GT(value, previous);
        previous = value;
        important += command == 10;
    }
    EXPECT_EQ(important, count / 10);
    EXPECT_EQ(client->outstandingStateCallbacks(), 0);
}

TEST_F(Forwarding, AllocatesNothingOnceThePoolIsFilled) {
    if (MOXEL_UNDER_THREAD_SANITIZER)
        GTEST_SKIP() << "the sanitizer allocates in its own way";
    const auto round = [this] {
        for (const uint16_t command : std::initializer_list<uint16_t>{3, 10, 2, 11, 3})
            forward(command, 1);
    };
    round();
    dispatchAll();
    for (int i = 0; i < 100; ++i) {
        const size_t before = allocations;
        round();
        EXPECT_EQ(allocations, before);
        dispatchAll();
    }
}

TEST_F(Forwarding, RecordForWhichThereIsNoMemoryDoesNotCountAsWaiting) {
    if (MOXEL_UNDER_THREAD_SANITIZER)
        GTEST_SKIP() << "the sanitizer allocates in its own way";
    isOutOfMemory = true;
    EXPECT_THROW(forward(10, 1), std::bad_alloc);
    isOutOfMemory = false;
    EXPECT_EQ(client->outstandingStateCallbacks(), 0);
}

} // namespace
} // namespace moxel
