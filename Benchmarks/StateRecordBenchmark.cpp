// The time from sending a state record over a socket until the application's handler has it, beside that of a
// thread which does nothing but wait, receive and call the handler.
#include "Platform/RunLoop.h"
#include "Platform/Thread.h"
#include "Protocol/WireLayouts.h"
#include "Session/ChannelCallbacks.h"
#include "Support/ClientTestAccess.h"
#include "Support/FakeHIDDevice.h"

#include <benchmark/benchmark.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <future>
#include <memory>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace moxel {
namespace {

using Report = std::array<uint8_t, wire::inputReportSize>;

/// Time stamp of the newest record that the handler has got.
std::atomic<uint64_t> newestHandled;

void messageHandler(uint32_t, uint32_t, void *argument) {
    newestHandled.store(static_cast<const MoxelStateRecord *>(argument)->time);
}

/// The driver's end and the client's end of a channel.
class SocketPair {
  public:
    SocketPair() {
        if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends_.data()) != 0)
            std::abort();
    }
    ~SocketPair() {
        hangUp();
        ::close(ends_[1]);
    }
    SocketPair(const SocketPair &) = delete;
    SocketPair &operator=(const SocketPair &) = delete;

    [[nodiscard]] int clientEnd() const { return ends_[1]; }
    void send(const Report &report) const { ::send(ends_[0], report.data(), report.size(), MSG_NOSIGNAL); }
    /// Nothing once the driver has hung up.
    [[nodiscard]] size_t receive(Report &report) const {
        const ssize_t size = ::recv(clientEnd(), report.data(), report.size(), 0);
        return size > 0 ? static_cast<size_t>(size) : 0;
    }
    void hangUp() {
        if (ends_[0] >= 0)
            ::close(std::exchange(ends_[0], -1));
    }

  private:
    std::array<int, 2> ends_{-1, -1};
};

/// A thread that runs its loop until the object's end.
class LoopThread {
  public:
    /// `prepare` runs on the thread before this returns; its source lives as long as the thread.
    explicit LoopThread(const std::function<RunLoopSource(RunLoop &)> &prepare) {
        std::promise<std::shared_ptr<RunLoop>> ready;
        thread_ = *Thread::start("benchmark", [&prepare, &ready] {
            const std::shared_ptr<RunLoop> loop = *RunLoop::current();
            const RunLoopSource source = prepare(*loop);
            ready.set_value(loop);
            loop->run();
        });
        loop_ = ready.get_future().get();
    }
    ~LoopThread() {
        loop_->stop();
        thread_->join();
    }
    LoopThread(const LoopThread &) = delete;
    LoopThread &operator=(const LoopThread &) = delete;

  private:
    std::shared_ptr<Thread> thread_;
    std::shared_ptr<RunLoop> loop_;
};

/// Sends one record after the other, each when the one before has reached the handler.
void sendRecords(benchmark::State &state, const SocketPair &channel) {
    wire::DeviceStateReport content{};
    content.header = {wire::daemonMessage, wire::deviceState};
    content.record.command = 10; // Never dropped.
    newestHandled.store(0);
    Report report{};
    for ([[maybe_unused]] auto iteration : state) {
        content.record.time = content.record.time + 1;
        std::memcpy(report.data(), &content, sizeof content);
        channel.send(report);
        const uint64_t sent = content.record.time;
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (newestHandled.load() != sent) {
            if (std::chrono::steady_clock::now() > deadline) {
                state.SkipWithError("A record is lost; is this login session on the console?");
                return;
            }
        }
    }
}

/// The library's client, from the channel's input callback on.
void measureClient(benchmark::State &state, bool threaded) {
    SocketPair channel;
    MoxelClientTestAccess::Client client;
    const LoopThread callerThread([&](RunLoop &) {
        client = MoxelClientTestAccess::make(messageHandler, nullptr, nullptr, threaded);
        return RunLoopSource();
    });
    const auto device = std::make_shared<test::FakeHIDDevice>();
    client->setM_refHIDChannelDedicated(device);
    const LoopThread clientThread([&](RunLoop &loop) {
        return *loop.watchDescriptor(
            channel.clientEnd(), RunLoop::Descriptor::readable, [&](RunLoop::Readiness) {
                Report report;
                const size_t size = channel.receive(report);
                HandleIncomingDataDedicated(client.get(), HIDStatus::success, device.get(),
                                            HIDReportType::input, report[0], report.data(), size);
            });
    });
    sendRecords(state, channel);
}

void epollAndReceive(benchmark::State &state) {
    SocketPair channel;
    std::thread receiver([&channel] {
        const int epoll = ::epoll_create1(EPOLL_CLOEXEC);
        epoll_event event{EPOLLIN, {}};
        ::epoll_ctl(epoll, EPOLL_CTL_ADD, channel.clientEnd(), &event);
        Report report;
        while (::epoll_wait(epoll, &event, 1, -1) >= 0 && channel.receive(report) > 0) {
            MoxelStateRecord record;
            std::memcpy(&record, report.data() + offsetof(wire::DeviceStateReport, record), sizeof record);
            messageHandler(0, kMoxelMsgDeviceState, &record);
        }
        ::close(epoll);
    });
    sendRecords(state, channel);
    channel.hangUp();
    receiver.join();
}

void handlerOnClientThread(benchmark::State &state) { measureClient(state, true); }

void handlerOnCallerThread(benchmark::State &state) { measureClient(state, false); }

BENCHMARK(epollAndReceive)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(handlerOnClientThread)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(handlerOnCallerThread)->UseRealTime()->Unit(benchmark::kMicrosecond);

} // namespace
} // namespace moxel
