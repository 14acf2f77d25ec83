// The least that threads can do to receive state records and hand them over: the floors of the library's
// figures.
#pragma once

#include "Support/Arrival.h"
#include "Support/StateDatagram.h"

#include <atomic>
#include <cstdlib>
#include <functional>
#include <sys/epoll.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace moxel::benchmarks {

/// A connected pair of sockets; the sender's end is closed first.
class SocketPair {
  public:
    SocketPair() {
        if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends_) != 0)
            std::abort();
    }
    ~SocketPair() {
        hangUp();
        ::close(ends_[1]);
    }
    SocketPair(const SocketPair &) = delete;
    SocketPair &operator=(const SocketPair &) = delete;

    [[nodiscard]] int sendersEnd() const { return ends_[0]; }
    [[nodiscard]] int receiversEnd() const { return ends_[1]; }
    void hangUp() {
        if (const int end = std::exchange(ends_[0], -1); end >= 0)
            ::close(end);
    }

  private:
    int ends_[2]{-1, -1};
};

/// Waits with epoll for one descriptor.
class Waiter {
  public:
    explicit Waiter(int descriptor) : epoll_(::epoll_create1(EPOLL_CLOEXEC)) {
        epoll_event event{EPOLLIN, {}};
        if (epoll_ < 0 || ::epoll_ctl(epoll_, EPOLL_CTL_ADD, descriptor, &event) != 0)
            std::abort();
    }
    ~Waiter() { ::close(epoll_); }
    Waiter(const Waiter &) = delete;
    Waiter &operator=(const Waiter &) = delete;

    void wait() const {
        epoll_event event;
        while (::epoll_wait(epoll_, &event, 1, -1) < 1) {
        }
    }

  private:
    int epoll_;
};

/// A thread that receives records, all that are there at each wake-up, and hands each to a function.
class ReceivingThread {
  public:
    using Handler = std::function<void(const MoxelStateRecord &)>;

    explicit ReceivingThread(Handler handler) : handler_(std::move(handler)), thread_([this] { run(); }) {}
    ~ReceivingThread() {
        sockets_.hangUp();
        thread_.join();
    }
    ReceivingThread(const ReceivingThread &) = delete;
    ReceivingThread &operator=(const ReceivingThread &) = delete;

    [[nodiscard]] int socket() const { return sockets_.sendersEnd(); }

  private:
    void run() const {
        const int descriptor = sockets_.receiversEnd();
        const Waiter waiter(descriptor);
        std::array<uint8_t, StateDatagram::size> datagram;
        for (;;) {
            waiter.wait();
            ssize_t size;
            while ((size = ::recv(descriptor, datagram.data(), datagram.size(), MSG_DONTWAIT)) > 0) {
                MoxelStateRecord record;
                std::memcpy(&record, datagram.data() + StateDatagram::recordOffset, sizeof record);
                handler_(record);
            }
            if (size == 0)
                return;
        }
    }

    SocketPair sockets_;
    const Handler handler_;
    std::thread thread_;
};

/// Handles records on the thread that receives them.
class BareReceiver {
  public:
    explicit BareReceiver(Arrival &arrival)
        : thread_([&arrival](const MoxelStateRecord &record) {
              if (record.command == 10)
                  arrival.mark();
          }) {}

    [[nodiscard]] int socket() const { return thread_.socket(); }

  private:
    ReceivingThread thread_;
};

/// Puts every record into a ring and tells a second thread, with one write to an eventfd; that thread handles
/// it.
class BareForwarder {
  public:
    explicit BareForwarder(Arrival &arrival)
        : wake_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
          consumer_([this, &arrival] { consume(arrival); }),
          receiver_([this](const MoxelStateRecord &record) { forward(record); }) {}
    ~BareForwarder() {
        ended_ = true;
        tell();
        consumer_.join();
        ::close(wake_);
    }
    BareForwarder(const BareForwarder &) = delete;
    BareForwarder &operator=(const BareForwarder &) = delete;

    [[nodiscard]] int socket() const { return receiver_.socket(); }

  private:
    /// More than are ever under way.
    static constexpr size_t ringSize = 32768;

    void tell() const {
        const uint64_t one = 1;
        if (::write(wake_, &one, sizeof one) != sizeof one)
            std::abort();
    }
    void forward(const MoxelStateRecord &record) {
        const size_t end = end_.load(std::memory_order_relaxed);
        ring_[end % ringSize] = record;
        end_.store(end + 1, std::memory_order_release);
        tell();
    }
    void consume(Arrival &arrival) const {
        const Waiter waiter(wake_);
        for (size_t begin = 0; !ended_;) {
            waiter.wait();
            uint64_t count;
            if (::read(wake_, &count, sizeof count) != sizeof count)
                continue;
            for (const size_t end = end_.load(std::memory_order_acquire); begin != end; ++begin) {
                const MoxelStateRecord record = ring_[begin % ringSize];
                if (record.command == 10)
                    arrival.mark();
            }
        }
    }

    const int wake_;
    std::vector<MoxelStateRecord> ring_{ringSize};
    std::atomic<size_t> end_{0};
    std::atomic<bool> ended_{false};
    std::thread consumer_;
    ReceivingThread receiver_;
};

} // namespace moxel::benchmarks
