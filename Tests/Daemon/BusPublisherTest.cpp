// The publisher of the bus, byte by byte against bare sockets.
#include "Moxel Daemon/Bus/BusPublisher.h"
#include "Daemon/RawClient.h"
#include "Daemon/RecordingHandler.h"
#include "Moxel Daemon/Bus/BusConnection.h"
#include "Platform/RunLoop.h"
#include "Platform/Thread.h"
#include "Support/Await.h"
#include "Support/CapturedLog.h"
#include "Support/ChildProcess.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <future>
#include <sys/resource.h>

namespace moxel::daemon {
namespace {

using test::TemporaryFolder;
using ::testing::ElementsAre;

/// A publisher with one device, on a thread of its own.
class DaemonBusPublisher : public ::testing::Test {
  protected:
    DaemonBusPublisher() {
        std::promise<std::shared_ptr<RunLoop>> started;
        thread_ = *Thread::start("bus", [&] {
            started.set_value(*RunLoop::current());
            (*RunLoop::current())->run();
        });
        loop_ = started.get_future().get();
        description.name = "Device";
        description.manufacturer = "Maker";
        description.product = "Thing";
        description.serialNumber = "7";
        description.vendorID = 0x4D58;
        description.productID = 0x1234;
        description.primaryUsagePage = 0xFF00;
        description.primaryUsage = 0x0008;
        onThread([&] {
            publisher_ = std::move(*BusPublisher::create(folder.path()));
            channel = std::move(*publisher_->publish(description, handler));
        });
    }
    ~DaemonBusPublisher() override {
        onThread([&] {
            channel.reset();
            publisher_.reset();
        });
        loop_->stop();
        thread_->join();
    }

    void onThread(const std::function<void()> &work) const {
        thread_->perform(work, Thread::Wait::untilDone);
    }
    /// Sends input; the number of connections that it went to.
    size_t sendInput(const Bytes &report) const {
        size_t count = 0;
        onThread([&] { count = channel->sendInput(report); });
        return count;
    }
    [[nodiscard]] size_t queuedBytes() const {
        size_t bytes = 0;
        onThread([&] { bytes = channel->queuedBytes(); });
        return bytes;
    }
    [[nodiscard]] RawConnection connect() const { return RawConnection(folder.path("Device.hid")); }
    [[nodiscard]] RawClient client() const { return RawClient(folder.path(), "Device"); }

    test::CapturedLog log;
    TemporaryFolder folder;
    RecordingHandler handler;
    DeviceDescription description;
    std::unique_ptr<Channel> channel;

  private:
    std::shared_ptr<Thread> thread_;
    std::shared_ptr<RunLoop> loop_;
    std::unique_ptr<BusPublisher> publisher_;
};

TEST_F(DaemonBusPublisher, PropertiesComeFirst) {
    const RawConnection connection = connect();
    EXPECT_EQ(connection.receive(),
              (Bytes{1, 0,   0,   0,   0,   0,   0,   0,  0x58, 0x4D, 0x34, 0x12, 0x00, 0xFF, 0x08, 0x00, //
                     6, 'D', 'e', 'v', 'i', 'c', 'e', 5,  'M',  'a',  'k',  'e',  'r',                    //
                     5, 'T', 'h', 'i', 'n', 'g', 1,   '7'}));
    EXPECT_TRUE(handler.wasTold("connected 1"));
}

TEST_F(DaemonBusPublisher, DeviceMayHaveAnyName) {
    for (const std::string &name :
         {std::string(), std::string("Größe / Länge"), std::string(".."), std::string(255, 'n')}) {
        description.name = name;
        Result<std::unique_ptr<Channel>> other = Error{"not published", 0};
        onThread([&] {
            const auto publisher = std::move(*BusPublisher::create(folder.path()));
            other = publisher->publish(description, handler);
        });
        EXPECT_TRUE(other.ok()) << name << ": " << other.error().message;
        onThread([&] { other = Error{"gone", 0}; });
    }
    description.name = std::string(256, 'n');
    onThread([&] {
        const auto publisher = std::move(*BusPublisher::create(folder.path()));
        EXPECT_FALSE(publisher->publish(description, handler).ok());
    });
}

TEST_F(DaemonBusPublisher, OpenAndCloseAreAnswered) {
    const RawConnection connection = connect();
    (void)connection.receive();
    connection.send({2, 0, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ(connection.receive(), (Bytes{2, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_TRUE(handler.wasTold("open answered"));
    connection.send({3, 0, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ(connection.receive(), (Bytes{3, 0, 0, 0, 0, 0, 0, 0}));
    connection.send({3, 0, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ(connection.receive(), (Bytes{3, 0, 0, 0, 0xCD, 0x02, 0x00, 0xE0}));
}

TEST_F(DaemonBusPublisher, OpenCanBeRefused) {
    handler.openStatus.store(HIDStatus::notPermitted);
    RawClient refused = client();
    EXPECT_EQ(refused.open(), status::notPermitted);
    EXPECT_EQ(sendInput({0x35, 1}), 0U);
    EXPECT_EQ(refused.setReport(0x46, 0, {1}), status::notOpen);
}

TEST_F(DaemonBusPublisher, InputGoesToEveryOpenConnectionAndNoOther) {
    const RawConnection idle = connect();
    const RawConnection first = connect();
    const RawConnection second = connect();
    const RawConnection closed = connect();
    for (const RawConnection *connection : {&idle, &first, &second, &closed})
        (void)connection->receive();
    for (const RawConnection *connection : {&first, &second, &closed}) {
        connection->send(message(2, 0, 0, 0));
        (void)connection->receive();
    }
    closed.send(message(3, 0, 0, 0));
    (void)closed.receive();

    EXPECT_EQ(sendInput({0x35, 0xAA, 0xBB}), 2U);
    const Bytes expected = {6, 0, 0x35, 0, 0, 0, 0, 0, 0x35, 0xAA, 0xBB};
    EXPECT_EQ(first.receive(), expected);
    EXPECT_EQ(second.receive(), expected);
    EXPECT_TRUE(idle.isQuiet());
    EXPECT_TRUE(closed.isQuiet());
}

TEST_F(DaemonBusPublisher, InputIsCutAt64Bytes) {
    RawClient open = client();
    ASSERT_EQ(open.open(), 0U);
    sendInput(Bytes(65, 0x35));
    EXPECT_EQ(open.input(), Bytes(64, 0x35));
}

TEST_F(DaemonBusPublisher, ReportsAreServedOnAnyConnectionOfAProcessThatHasOneOpen) {
    const RawConnection requests = connect();
    (void)requests.receive();
    requests.send({4, 1, 0x46, 0, 0, 0, 0, 0, 9, 8, 7});
    EXPECT_EQ(requests.receive(), (Bytes{4, 1, 0x46, 0, 0xCD, 0x02, 0x00, 0xE0}));
    requests.send({5, 1, 0x54, 0, 2, 0, 0, 0});
    EXPECT_EQ(requests.receive(), (Bytes{5, 1, 0x54, 0, 0xCD, 0x02, 0x00, 0xE0}));

    RawClient open = client();
    ASSERT_EQ(open.open(), 0U);
    requests.send({4, 1, 0x46, 0, 0, 0, 0, 0, 9, 8, 7});
    EXPECT_EQ(requests.receive(), (Bytes{4, 1, 0x46, 0, 0, 0, 0, 0}));
    EXPECT_TRUE(handler.wasTold("set 1 70 3"));
    requests.send({5, 1, 0x54, 0, 2, 0, 0, 0});
    EXPECT_EQ(requests.receive(), (Bytes{5, 1, 0x54, 0, 0, 0, 0, 0, 1, 2}));
    EXPECT_TRUE(handler.wasTold("get 84 2"));

    open.connection().hangUp();
    EXPECT_TRUE(handler.wasTold("disconnected"));
    requests.send({4, 1, 0x46, 0, 0, 0, 0, 0, 9});
    EXPECT_EQ(requests.receive(), (Bytes{4, 1, 0x46, 0, 0xCD, 0x02, 0x00, 0xE0}));
}

TEST_F(DaemonBusPublisher, StatusOfTheHandlerIsTheReplys) {
    RawClient open = client();
    ASSERT_EQ(open.open(), 0U);
    handler.setStatus.store(HIDStatus::error);
    handler.getStatus.store(HIDStatus::badArgument);
    EXPECT_EQ(open.setReport(0x46, 0, {1}), status::error);
    EXPECT_EQ(open.getReport(0x54, 10).status, status::badArgument);
}

TEST_F(DaemonBusPublisher, CapacityMustBePositiveAndIsBounded) {
    handler.content = Data(5000, 7);
    RawClient open = client();
    ASSERT_EQ(open.open(), 0U);
    EXPECT_EQ(open.getReport(0x54, 0).status, status::badArgument);
    EXPECT_EQ(open.getReport(0x54, 0x80000000).status, status::badArgument);
    EXPECT_EQ(open.getReport(0x54, 0x7FFFFFFF).content, Bytes(4096, 7));
    EXPECT_TRUE(handler.wasTold("get 84 4096"));
}

TEST_F(DaemonBusPublisher, RepliesComeInTheOrderOfTheRequests) {
    const RawConnection connection = connect();
    (void)connection.receive();
    connection.send(message(2, 0, 0, 0));
    for (uint8_t index = 0; index < 100; ++index)
        connection.send(index % 2 == 0 ? message(4, 1, index, 0, {index}) : message(5, 1, index, 16));
    EXPECT_EQ(connection.receive().at(0), 2);
    for (uint8_t index = 0; index < 100; ++index) {
        const Bytes reply = connection.receive();
        EXPECT_EQ(reply.at(0), index % 2 == 0 ? 4 : 5);
        EXPECT_EQ(reply.at(2), index);
    }
}

TEST_F(DaemonBusPublisher, LongestRequestIsServed) {
    RawClient open = client();
    ASSERT_EQ(open.open(), 0U);
    EXPECT_EQ(open.request(message(4, 2, 1, 0, Bytes(4096, 1))).status, 0U);
    EXPECT_TRUE(handler.wasTold("set 2 1 4096"));
}

TEST_F(DaemonBusPublisher, RequestsCanRemainUnanswered) {
    handler.answers = false;
    const RawConnection connection = connect();
    (void)connection.receive();
    connection.send(message(2, 0, 0, 0));
    EXPECT_TRUE(handler.wasTold("open"));
    EXPECT_EQ(sendInput({0x35}), 0U);
    EXPECT_TRUE(connection.isQuiet());
}

TEST_F(DaemonBusPublisher, WhoBreaksTheRulesIsDropped) {
    const std::vector<std::pair<std::string, Bytes>> breaches = {
        {"has no header", {2}},
        {"has no header", {2, 0, 0, 0, 0, 0, 0}},
        {"operation 0 ", message(0, 0, 0, 0)},
        {"operation 1 ", message(1, 0, 0, 0)},
        {"operation 6 ", message(6, 0, 0x35, 0, {0x35})},
        {"operation 7 ", message(7, 0, 0, 0)},
        {"operation 255 ", message(255, 0, 0, 0)},
        {"is too long", message(4, 1, 0x63, 0, Bytes(4097))},
        {"is too long", message(4, 1, 0x63, 0, Bytes(60000))},
        {"report type 3 ", message(4, 3, 0x46, 0, {1})},
        {"reserved byte", {2, 0, 0, 1, 0, 0, 0, 0}},
        {"operation 2 has no payload", message(2, 0, 0, 0, {1})},
        {"operation 3 has no payload", message(3, 0, 0, 0, {1})},
        {"operation 5 has no payload", message(5, 1, 0x54, 8, {1})},
        {"operation 2 has no capacity", message(2, 0, 0, 1)},
        {"operation 4 has no capacity", message(4, 1, 0x46, 1, {1})},
    };
    RawClient other = client();
    ASSERT_EQ(other.open(), 0U);
    for (const auto &[reason, bytes] : breaches) {
        log.clear();
        RawClient breaker = client();
        ASSERT_EQ(breaker.open(), 0U);
        breaker.connection().send(bytes);
        EXPECT_TRUE(breaker.awaitHangUp()) << reason;
        EXPECT_TRUE(log.waitFor(reason)) << reason;
        EXPECT_EQ(log.countContaining("is dropped from the bus"), 1U);
    }
    EXPECT_EQ(other.setReport(0x46, 0, {1}), 0U) << "others are served on";
}

TEST_F(DaemonBusPublisher, EmptyDatagramEndsTheConnection) {
    RawClient breaker = client();
    breaker.connection().send({});
    EXPECT_TRUE(breaker.awaitHangUp());
}

TEST_F(DaemonBusPublisher, WhoDoesNotReadIsDroppedAndOthersAreServed) {
    RawClient lazy = client();
    RawClient other = client();
    ASSERT_EQ(lazy.open(), 0U);
    ASSERT_EQ(other.open(), 0U);
    const Bytes report(64, 0x35);
    // Twice what the queue and any socket buffer hold.
    const size_t reports = 2 * BusConnection::queueLimit / (report.size() + BusConnection::messageOverhead);
    for (size_t sent = 0; sent < reports; ++sent) {
        sendInput(report);
        ASSERT_EQ(other.input(), report);
    }
    EXPECT_EQ(log.countContaining("it does not read what is sent to it"), 1U);
    EXPECT_EQ(queuedBytes(), 0U);
    EXPECT_TRUE(handler.wasTold("disconnected"));
    EXPECT_TRUE(lazy.awaitHangUp());
}

TEST_F(DaemonBusPublisher, RequestsWithoutReadingTheRepliesDropTheirSender) {
    handler.content = Data(4096, 7);
    RawClient greedy = client();
    ASSERT_EQ(greedy.open(), 0U);
    const Bytes request = message(5, 1, 0x54, 4096);
    // Requests go out until the daemon hangs up; then sending fails.
    const timeval limit{test::patience.count(), 0};
    ::setsockopt(greedy.connection().descriptor(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    ssize_t sent = 0;
    while (sent >= 0)
        sent = ::send(greedy.connection().descriptor(), request.data(), request.size(), MSG_NOSIGNAL);
    EXPECT_NE(errno, EAGAIN) << "the daemon stopped reading";
    EXPECT_TRUE(log.waitFor("it does not read what is sent to it"));
}

TEST_F(DaemonBusPublisher, QueuedInputArrivesWholeAndInOrder) {
    RawClient slow = client();
    ASSERT_EQ(slow.open(), 0U);
    constexpr uint16_t reports = 10000;
    onThread([&] {
        for (uint16_t number = 0; number < reports; ++number)
            channel->sendInput(Bytes{0x35} + littleEndian(number, 2));
    });
    EXPECT_GT(queuedBytes(), 0U) << "the socket took everything, so this tests nothing";
    for (uint16_t number = 0; number < reports; ++number)
        ASSERT_EQ(slow.input(), Bytes{0x35} + littleEndian(number, 2));
    EXPECT_TRUE(handler.shrunk.await([](int count) { return count > 0; }));
    EXPECT_EQ(queuedBytes(), 0U);
}

TEST_F(DaemonBusPublisher, DeviceThatGoesTakesNameAndConnectionsWithIt) {
    RawClient open = client();
    ASSERT_EQ(open.open(), 0U);
    onThread([&] { channel.reset(); });
    EXPECT_TRUE(open.awaitHangUp());
    EXPECT_FALSE(std::filesystem::exists(folder.path("Device.hid")));
}

TEST_F(DaemonBusPublisher, HandlerHearsOfEveryEnd) {
    RawClient open = client();
    ASSERT_EQ(open.open(), 0U);
    open.connection().hangUp();
    EXPECT_TRUE(handler.wasTold("disconnected"));
    EXPECT_THAT(handler.told.get(),
                ElementsAre("connected 1", "open", "open answered", "closed", "disconnected"));
}

TEST_F(DaemonBusPublisher, ManyConnectionsComeAndGo) {
    for (int round = 0; round < 5; ++round) {
        std::vector<RawClient> clients;
        clients.reserve(100);
        for (int index = 0; index < 100; ++index) {
            clients.push_back(client());
            ASSERT_EQ(clients.back().open(), 0U);
        }
        EXPECT_EQ(sendInput({0x35, 1}), 100U);
    }
    EXPECT_TRUE(handler.told.await(
        [](const auto &lines) { return std::count(lines.begin(), lines.end(), "disconnected") == 500; }));
}

TEST_F(DaemonBusPublisher, ClientsAreTurnedAwayWhenDescriptorsAreUsedUp) {
    ASSERT_EQ(client().open(), 0U);
    // Else the descriptor of that client's connection would come free again.
    ASSERT_TRUE(handler.wasTold("disconnected"));
    EXPECT_EQ(sendInput({0x35, 1}), 0U);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    folder.path("Device.hid").copy(address.sun_path, sizeof address.sun_path - 1);
    // The clients' own sockets are there before the descriptors are used up. Another thread of this process
    // may give one back at any moment, which then serves one of them.
    std::vector<Descriptor> sockets;
    for (int i = 0; i < 8; ++i)
        sockets.emplace_back(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    test::CapturedLog &captured = log;
    std::vector<Descriptor> fillers;
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    rlimit low = before;
    low.rlim_cur = 256;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &low), 0);
    // Nothing is expected in between: sanitizers need descriptors of their own.
    for (Descriptor filler(::open("/dev/null", O_RDONLY)); filler;
         filler.reset(::open("/dev/null", O_RDONLY)))
        fillers.push_back(std::move(filler));
    int connected = 0;
    ssize_t received = 1;
    for (auto socket = sockets.begin(); socket != sockets.end() && received > 0; ++socket) {
        connected = ::connect(socket->get(), reinterpret_cast<const sockaddr *>(&address), sizeof address);
        uint8_t byte = 0;
        received = ::recv(socket->get(), &byte, 1, 0);
    }
    const bool wasLogged = captured.waitFor("descriptors are used up");
    fillers.clear();
    ::setrlimit(RLIMIT_NOFILE, &before);

    EXPECT_EQ(connected, 0);
    EXPECT_LE(received, 0);
    EXPECT_TRUE(wasLogged);
    EXPECT_EQ(client().open(), 0U) << "served again once there are descriptors";
}

const test::ChildProgram connectAsAnotherUser("daemon-bus-another-user", [] {
    if (::setgid(4711) != 0 || ::setuid(4711) != 0)
        test::ChildProgram::skip("cannot become another user");
    const std::string path = std::getenv("MOXEL_TEST_SOCKET");
    const RawConnection connection(path);
    EXPECT_TRUE(connection.receive().empty());
});

TEST_F(DaemonBusPublisher, OtherUsersAreRefused) {
    if (::geteuid() != 0)
        GTEST_SKIP() << "only root can become another user";
    // Open what normally keeps other users out, so that only the check of the peer is left.
    ::chmod(folder.path().c_str(), 0755);
    ::chmod(folder.path("Device.hid").c_str(), 0666);
    connectAsAnotherUser.run({{"MOXEL_TEST_SOCKET", folder.path("Device.hid")}});
    EXPECT_TRUE(log.waitFor("of user 4711 is refused on the bus"));
    EXPECT_TRUE(handler.told.get().empty());
}

} // namespace
} // namespace moxel::daemon
