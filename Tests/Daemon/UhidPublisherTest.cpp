// Devices published through the kernel, whose part a socket takes.
#include "Moxel Daemon/Kernel/UhidPublisher.h"
#include "Daemon/RawClient.h"
#include "Daemon/RecordingHandler.h"
#include "Moxel Daemon/DaemonCore.h"
#include "Moxel Daemon/Kernel/UhidChannel.h"
#include "Support/CapturedLog.h"
#include "Support/HIDClient.h"
#include "Support/SlowToClose.h"
#include "Support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <future>
#include <optional>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <vector>

namespace moxel::daemon {
namespace {

/// A publisher with one device, on a thread of its own.
class DaemonUhidPublisher : public ::testing::Test {
  protected:
    DaemonUhidPublisher() {
        description.name = "Device";
        loop.run([&] {
            publisher =
                std::move(*UhidPublisher::create(UhidMaker([this] { return openDevice(); }, folder.path())));
            kernels.clear(); // What tells that devices can be made is closed by now.
            channel = std::move(*publisher->publish(description, handler));
        });
        kernel = std::move(kernels.back());
    }
    ~DaemonUhidPublisher() override {
        loop.run([&] {
            channel.reset();
            publisher.reset();
        });
    }

    Result<Descriptor> openDevice() {
        int ends[2];
        if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) != 0)
            return systemError("socketpair", errno);
        kernels.emplace_back(ends[1]);
        return Descriptor(ends[0]);
    }

    void tell(const Bytes &event) const {
        pollfd ready{kernel.get(), POLLOUT, 0};
        EXPECT_GT(::poll(&ready, 1, static_cast<int>(patience.count())), 0) << "The daemon reads nothing";
        EXPECT_EQ(::send(kernel.get(), event.data(), event.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(event.size()));
    }
    void tellNumber(uint8_t number) const { tell({number, 0, 0, 0}); }
    void tellOutput(uint8_t reportID, size_t payloadSize) const {
        Bytes report(4096);
        report[0] = reportID;
        tell(littleEndian(6, 4) + report + littleEndian(1 + payloadSize, 2) + Bytes{1});
    }
    /// The next message of the daemon; empty when it has closed the device.
    [[nodiscard]] Bytes hear() const {
        pollfd ready{kernel.get(), POLLIN, 0};
        if (::poll(&ready, 1, static_cast<int>(patience.count())) <= 0)
            ADD_FAILURE() << "The daemon says nothing";
        Bytes message(8192);
        const ssize_t size = ::recv(kernel.get(), message.data(), message.size(), MSG_DONTWAIT);
        message.resize(size > 0 ? static_cast<size_t>(size) : 0);
        return message;
    }
    [[nodiscard]] bool hearsNothing() const {
        uint8_t byte = 0;
        return ::recv(kernel.get(), &byte, sizeof byte, MSG_DONTWAIT | MSG_PEEK) < 0 && errno == EAGAIN;
    }
    size_t sendInput(const Bytes &report) const {
        size_t count = 0;
        loop.run([&] { count = channel->sendInput(report); });
        return count;
    }
    void openDeviceAsClient() {
        EXPECT_EQ(hear()[0], 11);
        tellNumber(2);
        tellNumber(4);
        ASSERT_TRUE(handler.wasTold("open answered"));
    }

    /// Keeps the daemon's thread from anything else until what it returns is set.
    [[nodiscard]] std::promise<void> hold() const {
        std::promise<void> release;
        std::promise<void> isHeld;
        loop.post([&isHeld, held = release.get_future().share()] {
            isHeld.set_value();
            held.wait();
        });
        isHeld.get_future().wait();
        return release;
    }

    test::CapturedLog log;
    test::TemporaryFolder folder;
    RecordingHandler handler;
    DeviceDescription description;
    test::LoopThread loop;
    std::vector<Descriptor> kernels;
    Descriptor kernel;
    std::unique_ptr<UhidPublisher> publisher;
    std::unique_ptr<Channel> channel;
};

TEST_F(DaemonUhidPublisher, CreatesTheDevice) { EXPECT_EQ(hear(), *uhidCreateMessage(description)); }

TEST_F(DaemonUhidPublisher, RemovedChannelClosesTheDevice) {
    EXPECT_FALSE(hear().empty());
    loop.run([&] { channel.reset(); });
    EXPECT_EQ(hear(), Bytes{});
}

TEST_F(DaemonUhidPublisher, SendsNothingUntilItIsOpened) {
    EXPECT_FALSE(hear().empty());
    EXPECT_EQ(sendInput({0x35, 1}), 0U);
    tellNumber(2);
    EXPECT_EQ(sendInput({0x35, 1}), 0U);
    EXPECT_TRUE(hearsNothing());
    tellNumber(4);
    ASSERT_TRUE(handler.wasTold("open answered"));
    EXPECT_EQ(channel->openCount(), 1U);
    EXPECT_EQ(sendInput({0x35, 2}), 1U);
    EXPECT_EQ(hear(), uhidInputMessage(Bytes{0x35, 2}));
    tellNumber(5);
    ASSERT_TRUE(handler.wasTold("disconnected"));
    EXPECT_EQ(sendInput({0x35, 3}), 0U);
    EXPECT_TRUE(hearsNothing());
}

TEST_F(DaemonUhidPublisher, HandlerHearsOfOpeningAndClosingOnceEach) {
    openDeviceAsClient();
    tellNumber(4);
    tellNumber(5);
    tellNumber(5);
    tellNumber(3);
    tellOutput(0x46, 1);
    ASSERT_TRUE(handler.wasTold("set 1 70 1"));
    EXPECT_EQ(handler.told.get(), (std::vector<std::string>{"connected 0", "open", "open answered", "closed",
                                                            "disconnected", "set 1 70 1"}));
}

TEST_F(DaemonUhidPublisher, OutputReachesTheHandlerWithoutAReply) {
    openDeviceAsClient();
    tellOutput(0x63, 3071);
    tell(littleEndian(9, 4) + littleEndian(5, 4) + Bytes{0x54, 1});
    ASSERT_TRUE(handler.wasTold("set 1 99 3071"));
    EXPECT_EQ(hear(), uhidGetReply(5, 0x54, HIDStatus::success, Bytes{1, 2, 3}));
    ASSERT_TRUE(handler.wasTold("get 84 4095"));
}

TEST_F(DaemonUhidPublisher, RefusalsAreReplies) {
    openDeviceAsClient();
    handler.getStatus.store(HIDStatus::error);
    handler.setStatus.store(HIDStatus::badArgument);
    tell(littleEndian(9, 4) + littleEndian(5, 4) + Bytes{0x54, 1});
    EXPECT_EQ(hear(), uhidGetReply(5, 0x54, HIDStatus::error, {}));
    tell(littleEndian(13, 4) + littleEndian(6, 4) + Bytes{0x63, 0} + littleEndian(1, 2) + Bytes{0x63});
    EXPECT_EQ(hear(), uhidSetReply(6, HIDStatus::badArgument));
}

TEST_F(DaemonUhidPublisher, WithoutAnswersRequestsStayWithoutReplies) {
    openDeviceAsClient();
    handler.answers = false;
    tell(littleEndian(9, 4) + littleEndian(5, 4) + Bytes{0x54, 1});
    ASSERT_TRUE(handler.wasTold("get 84 4095"));
    loop.run([] {});
    EXPECT_TRUE(hearsNothing());
}

TEST_F(DaemonUhidPublisher, MessagesWithoutSenseAreLoggedAndTheDeviceGoesOn) {
    openDeviceAsClient();
    tell({6, 0, 0, 0});
    tellOutput(0x46, 9);
    EXPECT_TRUE(handler.wasTold("set 1 70 9"));
    EXPECT_EQ(log.count("Error: Device: a message of the kernel makes no sense"), 1U);
}

TEST_F(DaemonUhidPublisher, MuchInputGoesOutInBurstsAndInOrder) {
    openDeviceAsClient();
    constexpr size_t count = 6 * UhidChannel::burstReports;
    size_t waiting = 0;
    loop.run([&] {
        for (size_t index = 0; index < count; ++index)
            EXPECT_EQ(channel->sendInput(Bytes{0x35, static_cast<uint8_t>(index)}), 1U);
        waiting = channel->queuedBytes();
    });
    EXPECT_GT(waiting, 0U);
    for (size_t index = 0; index < count; ++index)
        ASSERT_EQ(hear(), uhidInputMessage(Bytes{0x35, static_cast<uint8_t>(index)}));
    EXPECT_TRUE(handler.shrunk.await([](int times) { return times > 0; }));
    loop.run([&] { waiting = channel->queuedBytes(); });
    EXPECT_EQ(waiting, 0U);
}

TEST_F(DaemonUhidPublisher, InputThatWaitsIsBounded) {
    openDeviceAsClient();
    size_t taken = 0;
    loop.run([&] {
        for (size_t index = 0; index < UhidChannel::queueLimit + 1000; ++index)
            taken += channel->sendInput(Bytes{0x35});
    });
    EXPECT_GE(taken, UhidChannel::queueLimit);
    EXPECT_LT(taken, UhidChannel::queueLimit + 1000);
    EXPECT_EQ(log.count("Error: Device: too much input waits, more is dropped"), 1U);
}

TEST_F(DaemonUhidPublisher, KernelThatEndsTheDeviceIsLoggedOnceAndWatchedNoMore) {
    openDeviceAsClient();
    kernel.reset();
    EXPECT_TRUE(log.waitFor("Error: Device: the kernel does not serve the device any more"));
    loop.run([] {});
    loop.run([] {});
    EXPECT_EQ(log.countContaining("does not serve"), 1U);
}

TEST_F(DaemonUhidPublisher, NameThatAnotherDeviceHasIsRefused) {
    folder.write("0006:4D58:0001.0001/uevent", "DRIVER=hid-generic\nHID_NAME=Second\nHID_PHYS=x\n");
    loop.run([&] {
        DeviceDescription second = description;
        second.name = "Second";
        const auto refused = publisher->publish(second, handler);
        ASSERT_FALSE(refused.ok());
        EXPECT_EQ(refused.error().code, EADDRINUSE);
        second.name = "Secon";
        EXPECT_TRUE(publisher->publish(second, handler).ok());
    });
}

TEST_F(DaemonUhidPublisher, WithoutTheKernelsDeviceThereIsNoPublisher) {
    loop.run([&] {
        const auto refused = UhidPublisher::create(UhidMaker(
            []() -> Result<Descriptor> { return systemError("Cannot open it", ENOENT); }, folder.path()));
        ASSERT_FALSE(refused.ok());
        EXPECT_EQ(refused.error().code, ENOENT);
    });
}

// ------------------------------------------------------------------------------------------ Floods

TEST_F(DaemonUhidPublisher, FloodLeavesTheLoopToOthersAndLosesNothingThatHasRoom) {
    openDeviceAsClient();
    const size_t before = handler.told.get().size();
    std::promise<void> release = hold();
    for (size_t count = 0; count < UhidInbox::limit; ++count)
        tellOutput(0x46, count);
    size_t servedAtFirst = 0;
    loop.post([&] { servedAtFirst = handler.told.get().size() - before; });
    release.set_value();
    ASSERT_TRUE(handler.wasTold("set 1 70 " + std::to_string(UhidInbox::limit - 1)));
    EXPECT_LE(servedAtFirst, UhidInbox::servedPerTurn);
    const std::vector<std::string> told = handler.told.get();
    for (size_t count = 0; count < UhidInbox::limit; ++count)
        ASSERT_EQ(told.at(before + count), "set 1 70 " + std::to_string(count));
}

TEST_F(DaemonUhidPublisher, GoesOnAfterAFlood) {
    openDeviceAsClient();
    constexpr size_t beyond = 32; // Fits into the kernel's side.
    for (int round = 0; round < 2; ++round) {
        std::promise<void> release = hold();
        for (size_t count = 0; count < UhidInbox::limit + beyond; ++count)
            tellNumber(99);
        release.set_value();
        tellOutput(0x46, static_cast<size_t>(round) + 1);
        ASSERT_TRUE(handler.wasTold("set 1 70 " + std::to_string(round + 1))) << "the device goes on";
    }
    EXPECT_LE(log.countContaining("clients send faster than they are served"), 2U);
}

TEST_F(DaemonUhidPublisher, MuchWithoutSenseDoesNotFillTheLog) {
    openDeviceAsClient();
    for (int count = 0; count < 500; ++count)
        tell({6, 0, 0, 0});
    tellOutput(0x46, 9);
    ASSERT_TRUE(handler.wasTold("set 1 70 9"));
    EXPECT_GT(log.countContaining("makes no sense"), 0U);
    EXPECT_LE(log.countContaining("makes no sense"), 100U);
}

TEST(DaemonLogQuota, LetsSomeLinesOfEachPeriodThrough) {
    const test::CapturedLog log;
    LogQuota quota;
    const LogQuota::Clock::time_point start{};
    for (int line = 0; line < 1000; ++line)
        quota.log("Error: nonsense", start + LogQuota::period / 2);
    EXPECT_EQ(log.count("Error: nonsense"), LogQuota::linesInAPeriod);
    EXPECT_EQ(log.countContaining("left out"), 1U);
    quota.log("Error: nonsense", start + 2 * LogQuota::period);
    EXPECT_EQ(log.count("Error: nonsense"), LogQuota::linesInAPeriod + 1);
}

/// Fails at the first report.
class FailingHandler final : public RecordingHandler {
  public:
    Reply setReport(const Peer &peer, HIDReportType type, uint8_t reportID,
                    std::span<const uint8_t> report) override {
        if (!std::exchange(hasFailed_, true))
            throw std::runtime_error("no memory");
        return RecordingHandler::setReport(peer, type, reportID, report);
    }

  private:
    bool hasFailed_ = false;
};

TEST_F(DaemonUhidPublisher, HandlerThatFailsOnceIsAskedAgain) {
    FailingHandler failing;
    std::unique_ptr<Channel> second;
    loop.run([&] {
        description.name = "Second";
        second = std::move(*publisher->publish(description, failing));
    });
    kernel = std::move(kernels.back());
    tellOutput(0x46, 1);
    tellOutput(0x46, 2);
    tellOutput(0x46, 3);
    EXPECT_TRUE(failing.wasTold("set 1 70 2"));
    EXPECT_TRUE(failing.wasTold("set 1 70 3"));
    loop.run([&] { second.reset(); });
}

// ------------------------------------------------------------------------------------------ New devices

TEST_F(DaemonUhidPublisher, InputWaitsUntilTheKernelIsDoneWithTheDevice) {
    EXPECT_FALSE(hear().empty());
    tellNumber(2);
    const auto opened = std::chrono::steady_clock::now();
    tellNumber(4);
    ASSERT_TRUE(handler.wasTold("open answered"));
    EXPECT_EQ(sendInput({0x35, 1}), 1U);
    EXPECT_EQ(hear(), uhidInputMessage(Bytes{0x35, 1}));
    EXPECT_GE(std::chrono::steady_clock::now() - opened, UhidChannel::settlingTime);
}

TEST_F(DaemonUhidPublisher, InputWaitsHoweverLateTheDeviceIsOpenedFirst) {
    EXPECT_FALSE(hear().empty());
    tellNumber(2);
    std::promise<void> isLate;
    loop.run([&isLate] {
        const auto tell = [&isLate] { isLate.set_value(); };
        EXPECT_TRUE((*RunLoop::current())->performAfterDelay(3 * UhidChannel::settlingTime, tell).ok());
    });
    isLate.get_future().wait();
    const auto opened = std::chrono::steady_clock::now();
    tellNumber(4);
    ASSERT_TRUE(handler.wasTold("open answered"));
    EXPECT_EQ(sendInput({0x35, 1}), 1U);
    EXPECT_EQ(hear(), uhidInputMessage(Bytes{0x35, 1}));
    EXPECT_GE(std::chrono::steady_clock::now() - opened, UhidChannel::settlingTime);
}

TEST_F(DaemonUhidPublisher, DeviceThatItsDriverLeavesIsReported) {
    tellNumber(2);
    tellNumber(3);
    EXPECT_TRUE(
        log.waitFor("Error: Device: the kernel's driver has left the device, so that no client sees it; the "
                    "machine has 64 hidraw nodes, which may all be taken"));
}

TEST_F(DaemonUhidPublisher, DeviceWithoutADriverIsReported) {
    EXPECT_TRUE(
        log.waitFor("Error: Device: the kernel has no driver for the device, so that no client sees it; "
                    "\"modprobe hid-generic\" loads one"));
}

/// Notes who connects.
class PeerHandler final : public RecordingHandler {
  public:
    void connected(const Peer &peer) override {
        peers.change([&](auto &all) { all.push_back(peer.connection); });
    }
    test::Awaited<std::vector<uint64_t>> peers;
};

TEST_F(DaemonUhidPublisher, ConnectionsOfSeveralDevicesAreNotTheSame) {
    PeerHandler peers;
    std::vector<std::unique_ptr<Channel>> channels(2);
    const size_t first = kernels.size();
    loop.run([&] {
        for (size_t index = 0; index < 2; ++index) {
            description.name = "Peer " + std::to_string(index);
            channels[index] = std::move(*publisher->publish(description, peers));
        }
    });
    for (size_t index = 0; index < 2; ++index) {
        kernel = std::move(kernels[first + index]);
        tellNumber(2);
        tellNumber(4);
        ASSERT_TRUE(peers.peers.await([&](const auto &all) { return all.size() > index; }));
    }
    EXPECT_NE(peers.peers.get()[0], peers.peers.get()[1]);
    loop.run([&] { channels.clear(); });
}

TEST_F(DaemonUhidPublisher, NameIsTakenBeforeTheKernelListsTheDevice) {
    const std::string file = folder.path("uhid");
    ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
    const auto open = [file]() -> Result<Descriptor> {
        return Descriptor(::open(file.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    };
    loop.run([&] {
        const auto one = std::move(*UhidPublisher::create(UhidMaker(open, folder.path())));
        const auto other = std::move(*UhidPublisher::create(UhidMaker(open, folder.path())));
        auto first = one->publish(description, handler);
        ASSERT_TRUE(first.ok());
        const auto refused = other->publish(description, handler);
        ASSERT_FALSE(refused.ok());
        EXPECT_EQ(refused.error().code, EADDRINUSE);
        DeviceDescription different = description;
        different.name = "Different";
        EXPECT_TRUE(other->publish(different, handler).ok());
    });
}

/// The first device that it opens takes its time to be closed.
class DaemonUhidNames : public DaemonUhidPublisher {
  protected:
    DaemonUhidNames() {
        loop.run([this] {
            names = std::move(
                *UhidPublisher::create(UhidMaker([this] { return openSlowOnce(); }, folder.path())));
            isArmed = true;
            channel = std::move(*names->publish(description, handler));
            channel.reset();
        });
    }
    ~DaemonUhidNames() override {
        slow.release();
        loop.run([this] {
            channel.reset();
            names.reset();
        });
    }
    Result<Descriptor> openSlowOnce() {
        if (isArmed && !std::exchange(hasOpenedSlow, true))
            return slow.take();
        Result<Descriptor> opened = openDevice();
        made.change([this](size_t &count) { count = kernels.size(); });
        return opened;
    }

    test::SlowToClose slow;
    bool isArmed = false;
    bool hasOpenedSlow = false;
    test::Awaited<size_t> made;
    std::unique_ptr<UhidPublisher> names;
};

TEST_F(DaemonUhidNames, DeviceComesWhenTheEarlierOneOfItsNameHasBeenClosed) {
    loop.run([this] {
        kernels.clear();
        made.set(0);
        auto published = names->publish(description, handler);
        ASSERT_TRUE(published.ok());
        channel = std::move(*published);
        const auto second = names->publish(description, handler);
        ASSERT_FALSE(second.ok());
        EXPECT_EQ(second.error().code, EADDRINUSE);
        EXPECT_EQ(channel->sendInput(Bytes{0x35}), 0U);
    });
    EXPECT_EQ(made.get(), 0U) << "its name is not free yet";
    slow.release();
    ASSERT_TRUE(made.awaitValue(1));
    loop.run([this] { kernel = std::move(kernels.back()); });
    openDeviceAsClient();
}

TEST_F(DaemonUhidNames, DeviceThatIsNotWantedAnyMoreDoesNotComeLater) {
    loop.run([this] {
        kernels.clear();
        made.set(0);
        EXPECT_TRUE(names->publish(description, handler).ok());
        auto published = names->publish(description, handler);
        ASSERT_TRUE(published.ok()) << "nobody waits for the name";
        channel = std::move(*published);
    });
    slow.release();
    ASSERT_TRUE(made.awaitValue(1));
    loop.run([this] { EXPECT_EQ(kernels.size(), 1U); });
}

TEST_F(DaemonUhidNames, DeviceWhoseNameSomebodyElseHasTakenIsReported) {
    loop.run([this] { channel = std::move(*names->publish(description, handler)); });
    folder.write("0006:4D58:0001.0001/uevent", "HID_NAME=Device\n");
    slow.release();
    EXPECT_TRUE(log.waitFor("Error: Device is already published by a running daemon"));
}

TEST_F(DaemonUhidPublisher, DaemonLeavesSomeOfTheKernelsNodesToOthers) {
    Options options;
    Journal journal(0, 0);
    loop.run([&] {
        DaemonCore core(options, "Base", std::move(publisher), *RunLoop::current(), journal);
        ASSERT_TRUE(core.start().ok());
        for (uint64_t channelID = 1; channelID < 48; ++channelID)
            ASSERT_TRUE(core.publishChannel(channelID, 0).ok()) << channelID;
        EXPECT_FALSE(core.publishChannel(48, 0).ok());
    });
}

} // namespace
} // namespace moxel::daemon
